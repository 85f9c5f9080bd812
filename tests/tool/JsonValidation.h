#ifndef HARVANE_TESTS_TOOL_JSONVALIDATION_H
#define HARVANE_TESTS_TOOL_JSONVALIDATION_H

#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace support {

struct Validation {
  int code;            // 0: all fit
  std::string faults;  // a line each
};

// What validate-json says of files by a schema of the tool: "harvane-result.schema.json".
inline Validation ValidateJson(const std::string& schema, const std::vector<std::string>& paths) {
  const TemporaryFolder folder;
  std::string command = "'" HARVANE_TESTS "/validate-json' '" HARVANE_SCHEMAS "/" + schema + "'";
  for (const std::string& path : paths) command += " '" + path + "'";
  const int status = std::system((command + " >'" + folder.FileIn("faults") + "'").c_str());
  return {WEXITSTATUS(status), ReadBytes(folder.FileIn("faults"))};
}

}  // namespace support

#endif  // HARVANE_TESTS_TOOL_JSONVALIDATION_H
