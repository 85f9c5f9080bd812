#include <filesystem>

#include "host/FileAccess.h"
#include "host/JobSession.h"

namespace harvane {

JobSession::JobSession(const std::string& modulePath) { LoadModule(modulePath); }

std::string PathForModule(const std::string& /*module*/, const std::string& path) {
  return std::filesystem::absolute(PathOf(path)).lexically_normal().string();
}

}  // namespace harvane
