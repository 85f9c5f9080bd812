#ifndef HARVANE_HOST_FILEERROR_H
#define HARVANE_HOST_FILEERROR_H

#include <stdexcept>
#include <string>

namespace harvane {

// What is wrong with one file, as one line: "FILE: reason".
class FileError : public std::runtime_error {
 public:
  FileError(const std::string& path, const std::string& reason)
      : std::runtime_error(path + ": " + reason) {}
};

}  // namespace harvane

#endif  // HARVANE_HOST_FILEERROR_H
