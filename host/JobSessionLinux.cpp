#include <filesystem>

#include "host/JobSession.h"
#include "host/RemoteSession.h"

namespace harvane {

JobSession::JobSession(const std::string& modulePath) {
  if (IsWindowsModule(modulePath)) {
    session.emplace<RemoteSession>(modulePath);
  } else {
    LoadModule(modulePath);
  }
}

std::string PathForModule(const std::string& module, const std::string& path) {
  if (!module.empty() && IsWindowsModule(module)) return WindowsPathOf(path);
  return std::filesystem::absolute(path).lexically_normal().string();
}

}  // namespace harvane
