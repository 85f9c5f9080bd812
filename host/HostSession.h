#ifndef HARVANE_HOST_HOSTSESSION_H
#define HARVANE_HOST_HOSTSESSION_H

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/ModuleExports.h"

namespace harvane {

// An export that answered with a code other than 0.
class ModuleRefusal : public std::runtime_error {
 public:
  ModuleRefusal(const char* exportName, std::uint32_t code);
  const char* ExportName() const { return exportName; }
  std::uint32_t Code() const { return code; }

 private:
  const char* exportName;
  std::uint32_t code;
};

// Format of a job's audio, as it goes into the format blob.
struct SessionFormat {
  std::uint32_t sampleRate;  // Hz
  std::uint32_t channels;
  // Video frames per second of the source as a fraction; none: no VIDE chunk.
  struct FrameRate {
    std::uint32_t numerator;
    std::uint32_t denominator;
  };
  std::optional<FrameRate> videoFrameRate;
};

// One instance of a module and a job on it, through the sixteen exports and
// nothing else.
//
// Audio      interleaved signed 16-bit samples, frames of `channels` samples.
// Order      Configure, StartSequence; per pass StartPass, Deliver, EndPass;
//            EndSequence. Another sequence may follow.
// Errors     ModuleRefusal names the export and its code.
// Thread     one caller at a time.
class HostSession {
 public:
  // Opens an instance. `exports` must outlive the session.
  explicit HostSession(const ModuleExports& exports);
  // Closes it, without ending a sequence that is still open.
  ~HostSession();
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;

  // Sets the parameter document (UTF-8 XML), then agrees on the format.
  void Configure(const std::string& parameterXml, const SessionFormat& format);

  void StartSequence();
  void StartPass(std::uint32_t passNumber);
  // Hands over one unit of `frames` frames and appends to `output` what the
  // module gives back at once. `interleaved` may be reused on return.
  void Deliver(const std::int16_t* interleaved, std::uint32_t frames,
               std::vector<std::int16_t>* output);
  void EndPass();
  void EndSequence();

  // The instance's handle, for what goes beside the exports in a linked module.
  void* Handle() const { return handle; }

 private:
  void Check(const char* exportName, std::uint32_t code) const;

  const ModuleExports* exports;
  void* handle = nullptr;
  std::uint32_t channels = 0;
};

}  // namespace harvane

#endif  // HARVANE_HOST_HOSTSESSION_H
