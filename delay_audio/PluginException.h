#ifndef HARVANE_DELAY_AUDIO_PLUGINEXCEPTION_H
#define HARVANE_DELAY_AUDIO_PLUGINEXCEPTION_H

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace harvane {

// A failure with the result code that the export returns for it: 3 where the
// channel tables are unusable, 4 where the parameter document is. The text
// stops at the export.
class PluginException : public std::exception {
 public:
  PluginException(std::string text, std::uint32_t code) : text(std::move(text)), code(code) {}
  const char* what() const noexcept override { return text.c_str(); }

 private:
  std::string text;

 public:
  std::uint32_t code;
};

inline constexpr std::uint32_t kTablesFailure = 3;
inline constexpr std::uint32_t kDocumentFailure = 4;

}  // namespace harvane

#endif  // HARVANE_DELAY_AUDIO_PLUGINEXCEPTION_H
