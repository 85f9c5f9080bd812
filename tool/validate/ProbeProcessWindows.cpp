#include <windows.h>

#include <chrono>
#include <filesystem>
#include <random>

#include "host/ModuleExports.h"
#include "tool/ChildProcessWindows.h"
#include "tool/OwnProcess.h"
#include "tool/validate/ProbeProcess.h"

namespace harvane {
namespace {

constexpr DWORD kMsPerSecond = 1000;
constexpr DWORD kFirstErrorStatus = 0x80000000;

// A file that a process may inherit.
SystemHandle Open(const std::string& path, DWORD access, DWORD creation) {
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  return SystemHandle(CreateFileW(WideText(path).c_str(), access,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  &inherited, creation, FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

ProbeProgram ProbeProgramFor(const std::string& /*modulePath*/) {
  return {{OwnProgram(), "probe"}, false, true};
}

std::string PathForProbe(const ProbeProgram& /*program*/, const std::string& path) { return path; }

std::string MakeProbeFolder() {
  std::random_device chance;
  for (;;) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("harvane-" + std::to_string(chance()));
    if (std::filesystem::create_directory(folder)) return PlainText(folder.wstring());
  }
}

// The folders of a Windows user are not told by his environment, so that `folder` cannot be made
// the probe's home.
ProbeEnd RunProbeProcess(const ProbeProgram& program, const std::vector<std::string>& arguments,
                         const std::string& folder, int limitSeconds) {
  std::vector<std::string> words = program.command;
  words.insert(words.end(), arguments.begin(), arguments.end());
  const SystemHandle nothing = Open("NUL", GENERIC_READ, OPEN_EXISTING);
  const SystemHandle said =
      Open(folder + "\\" + kProbeStreams, FILE_APPEND_DATA | SYNCHRONIZE, OPEN_ALWAYS);
  const auto start = std::chrono::steady_clock::now();
  ChildProcess process(words, {nothing.Get(), said.Get(), said.Get()});
  if (!process.StartError().empty()) {
    throw ModuleError(words[0] + ": cannot be started: " + process.StartError());
  }
  ProbeEnd end;
  std::optional<DWORD> code = process.AwaitEnd(static_cast<DWORD>(limitSeconds) * kMsPerSecond);
  if (!code) {
    end.isTimedOut = true;
    process.Kill();
    code = process.AwaitEnd(INFINITE);
  }
  end.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  end.isStrayAccess = IsStrayAccess(*code);
  end.way = "ended with " + ExitText(*code);
  if (*code < kFirstErrorStatus) end.status = static_cast<int>(*code);
  return end;
}

}  // namespace harvane
