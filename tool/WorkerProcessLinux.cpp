#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/PendingFile.h"
#include "tool/WorkerProcess.h"

namespace harvane {
namespace {

constexpr std::size_t kReadBytes = 65536;

struct Pipe {
  Descriptor read;
  Descriptor write;
};

Pipe MakePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "a pipe to a worker cannot be made");
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool WriteWhole(int descriptor, std::string line) {
  line += '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = write(descriptor, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Takes what is there; the descriptor does not wait. False at the end of the stream.
bool ReadSome(int descriptor, std::string* text) {
  for (;;) {
    std::array<char, kReadBytes> piece;
    const ssize_t count = read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    if (count == 0) return false;
    text->append(piece.data(), static_cast<std::size_t>(count));
  }
}

std::string WayOut(int status) {
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    return fmt::format("its process was ended by signal {} ({})", signal, strsignal(signal));
  }
  return fmt::format("its process ended with status {}", WEXITSTATUS(status));
}

}  // namespace

struct WorkerProcess::System {
  // `streams` become the worker's standard input, output and error.
  void Start(const std::vector<std::string>& command, const std::array<int, 3>& streams) {
    std::vector<char*> arguments;
    for (const std::string& text : command) arguments.push_back(const_cast<char*>(text.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int i = 0; i < 3; ++i) {
      posix_spawn_file_actions_adddup2(&actions, streams[static_cast<std::size_t>(i)], i);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    sigset_t usual;
    sigemptyset(&usual);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&usual, signal);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    const int error =
        posix_spawn(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
    if (error != 0) {
      process = 0;
      startError = SystemText(error);
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }

  void Signal(int signal) const {
    if (process > 0) kill(-process, signal);
  }

  pid_t process = 0;  // 0: none, or none any more
  std::string startError;
  Descriptor input;
  Descriptor output;
  Descriptor errors;
};

WorkerProcess::WorkerProcess(const std::vector<std::string>& command)
    : system(std::make_unique<System>()) {
  Pipe input = MakePipe();
  Pipe output = MakePipe();
  Pipe errors = MakePipe();
  fcntl(output.read.Number(), F_SETFL, O_NONBLOCK);
  fcntl(errors.read.Number(), F_SETFL, O_NONBLOCK);
  system->Start(command, {input.read.Number(), output.write.Number(), errors.write.Number()});
  system->input = std::move(input.write);
  system->output = std::move(output.read);
  system->errors = std::move(errors.read);
}

WorkerProcess::~WorkerProcess() {
  if (system->process <= 0) return;
  Kill();
  waitpid(system->process, nullptr, 0);
}

const std::string& WorkerProcess::StartError() const { return system->startError; }

bool WorkerProcess::WriteLine(const std::string& line) {
  return WriteWhole(system->input.Number(), line);
}

void WorkerProcess::CloseInput() { system->input = Descriptor(); }

bool WorkerProcess::ReadOutput(std::string* text) {
  return ReadSome(system->output.Number(), text);
}

bool WorkerProcess::ReadErrors(std::string* text) {
  return ReadSome(system->errors.Number(), text);
}

void WorkerProcess::AddAwaited(std::vector<Awaited>* awaited) const {
  awaited->push_back(system->output.Number());
  awaited->push_back(system->errors.Number());
}

void WorkerProcess::AskToEnd() {
  system->Signal(SIGTERM);
  system->Signal(SIGCONT);
}

void WorkerProcess::Kill() { system->Signal(SIGKILL); }

std::optional<std::string> WorkerProcess::TakeEnd() {
  int status = 0;
  if (system->process <= 0 || waitpid(system->process, &status, WNOHANG) != system->process) {
    return std::nullopt;
  }
  Kill();
  system->process = 0;
  return WayOut(status);
}

struct WorkerStreams::System {
  Descriptor input{fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
  Descriptor output{fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
};

WorkerStreams::WorkerStreams() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  system = std::make_unique<System>();
  const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  dup2(nothing.Number(), STDIN_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

WorkerStreams::~WorkerStreams() = default;

bool WorkerStreams::Read(std::string* text) {
  pollfd ready = {system->input.Number(), POLLIN, 0};
  poll(&ready, 1, -1);
  fcntl(system->input.Number(), F_SETFL, O_NONBLOCK);
  return ReadSome(system->input.Number(), text);
}

bool WorkerStreams::WriteLine(const std::string& line) {
  return WriteWhole(system->output.Number(), line);
}

}  // namespace harvane
