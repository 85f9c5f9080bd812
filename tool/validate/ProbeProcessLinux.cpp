#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "host/RemoteSession.h"
#include "tool/validate/ProbeProcess.h"

namespace harvane {
namespace {

namespace files = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* kWindowsProbe = "harvane-probe.exe";
// Wine hands Windows' code on, cut to its last byte: 5 of 0xC0000005.
constexpr int kAccessViolationUnderWine = 5;

std::string FindWindowsProbe(const std::string& modulePath, const std::string& folder) {
  const files::path beside = files::path(modulePath).parent_path() / kWindowsProbe;
  for (const files::path& place : {beside, files::path(folder) / kWindowsProbe,
                                   files::path(folder) / ".." / "windows" / kWindowsProbe}) {
    if (files::exists(place)) return files::canonical(place).string();
  }
  throw ModuleError(modulePath + ": a Windows module needs " + kWindowsProbe +
                    " to run under Wine, beside it or beside this program");
}

// The environment with another home, so that no default reaches the user's own.
std::vector<std::string> EnvironmentWithHome(const std::string& home) {
  std::vector<std::string> variables;
  for (char** next = environ; *next != nullptr; ++next) {
    if (std::strncmp(*next, "HOME=", 5) != 0 && std::strncmp(*next, "XDG_CONFIG_HOME=", 16) != 0) {
      variables.emplace_back(*next);
    }
  }
  variables.push_back("HOME=" + home);
  return variables;
}

std::vector<char*> Pointers(std::vector<std::string>* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Waits for the process, and ends it when the time is up. `isGroup`: with its descendants.
ProbeEnd Await(pid_t process, bool isGroup, int limitSeconds) {
  constexpr milliseconds kStep{2};
  constexpr milliseconds kGrace{3000};
  ProbeEnd end;
  const Clock::time_point start = Clock::now();
  Clock::time_point deadline = start + std::chrono::seconds(limitSeconds);
  int signalToSend = SIGTERM;
  int status = 0;
  for (;;) {
    const pid_t ended = waitpid(process, &status, WNOHANG);
    if (ended == process || (ended < 0 && errno != EINTR)) break;
    if (Clock::now() >= deadline) {
      end.isTimedOut = true;
      kill(isGroup ? -process : process, signalToSend);
      signalToSend = SIGKILL;
      deadline = Clock::now() + kGrace;
    }
    std::this_thread::sleep_for(kStep);
  }
  end.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    end.isStrayAccess = signal == SIGSEGV || signal == SIGBUS;
    end.way = "ended by signal " + std::to_string(signal);
  } else {
    end.status = WEXITSTATUS(status);
    end.way = "ended with status " + std::to_string(*end.status);
  }
  return end;
}

}  // namespace

ProbeProgram ProbeProgramFor(const std::string& modulePath) {
  const files::path self = files::read_symlink("/proc/self/exe");
  if (!IsWindowsModule(modulePath)) return {{self.string(), "probe"}, false, false};
  const std::string folder = self.parent_path().string();
  return {{WineRunner(folder), "wine", "--", FindWindowsProbe(modulePath, folder)}, true, true};
}

std::string PathForProbe(const ProbeProgram& program, const std::string& path) {
  return program.isUnderWine ? WindowsPathOf(path) : path;
}

std::string MakeProbeFolder() {
  std::string name = (files::temp_directory_path() / "harvane-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw files::filesystem_error("no temporary folder",
                                  std::error_code(errno, std::generic_category()));
  }
  return name;
}

ProbeEnd RunProbeProcess(const ProbeProgram& program, const std::vector<std::string>& arguments,
                         const std::string& folder, int limitSeconds) {
  std::vector<std::string> words = program.command;
  words.insert(words.end(), arguments.begin(), arguments.end());
  // Wine's root is found by the real home.
  const char* const home = std::getenv("HOME");
  std::vector<std::string> variables = EnvironmentWithHome(!program.isUnderWine ? folder
                                                           : home == nullptr    ? "/"
                                                                                : home);
  const std::string streams = folder + "/" + kProbeStreams;

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, streams.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  if (program.isUnderWine) {
    // The runner has children of its own; else the probe stays in reach of the terminal's Ctrl-C.
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  }
  pid_t process = 0;
  const int error = posix_spawnp(&process, words[0].c_str(), &actions, &attributes,
                                 Pointers(&words).data(), Pointers(&variables).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw ModuleError(words[0] + ": cannot be started: " + std::strerror(error));
  ProbeEnd end = Await(process, program.isUnderWine, limitSeconds);
  if (program.isUnderWine) end.isStrayAccess = end.status == kAccessViolationUnderWine;
  return end;
}

}  // namespace harvane
