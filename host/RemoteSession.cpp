#include "host/RemoteSession.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <thread>

#include "host/SessionProtocol.h"

namespace harvane {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
namespace files = std::filesystem;

constexpr milliseconds kPollStep{200};
constexpr milliseconds kReapStep{5};
constexpr milliseconds kReapTimeout{2000};

// No time limit: a unit may take what it takes.
constexpr Clock::time_point kNever = Clock::time_point::max();

files::path ExecutableFolder() { return files::read_symlink("/proc/self/exe").parent_path(); }

const char* Doing(std::uint32_t kind) {
  switch (kind) {
    case kOpen:
      return "while it was opened";
    case kConfigure:
      return "while it was configured";
    case kStartSequence:
      return "at the start of the sequence";
    case kStartPass:
      return "at the start of a pass";
    case kDeliver:
      return "in a unit of audio";
    case kEndPass:
      return "at the end of a pass";
    case kEndSequence:
      return "at the end of the sequence";
    default:
      return "at its end";
  }
}

// A broken pipe becomes an error of write() instead of the end of this program, whatever the
// program does with SIGPIPE elsewhere.
class BrokenPipesAsErrors {
 public:
  BrokenPipesAsErrors() {
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
  }
  ~BrokenPipesAsErrors() {
    const timespec now = {0, 0};
    if (!wasPending) sigtimedwait(&pipeSignal, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  }
  BrokenPipesAsErrors(const BrokenPipesAsErrors&) = delete;
  BrokenPipesAsErrors& operator=(const BrokenPipesAsErrors&) = delete;

 private:
  sigset_t pipeSignal{};
  sigset_t previous{};
  bool wasPending;
};

class Descriptor {
 public:
  Descriptor() = default;
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  void Set(int number) {
    Close();
    value = number;
  }
  int Get() const { return value; }
  void Close() {
    if (value >= 0) close(value);
    value = -1;
  }

 private:
  int value = -1;
};

void MakePipe(Descriptor* readEnd, Descriptor* writeEnd) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw ModuleError(std::string("no pipe to Wine: ") + std::strerror(errno));
  }
  readEnd->Set(ends[0]);
  writeEnd->Set(ends[1]);
}

// "status 3" or "signal 9".
std::string EndText(int status) {
  return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string WindowsPathOf(const std::string& path) {
  if (path.empty()) return path;
  std::string text = files::weakly_canonical(files::absolute(path)).string();
  for (char& character : text) {
    if (character == '/') character = '\\';
  }
  return "Z:\\host" + text;
}

std::string SessionProgram(const std::string& modulePath, const std::string& executableFolder) {
  static constexpr const char* kName = "harvane-session.exe";
  const files::path beside = files::absolute(modulePath).parent_path() / kName;
  if (files::exists(beside)) return beside.string();
  const files::path built = files::path(executableFolder) / ".." / "windows" / kName;
  if (files::exists(built)) return files::canonical(built).string();
  throw ModuleError(modulePath + ": a Windows module needs " + kName +
                    " to run under Wine, beside " + "it or at " +
                    built.lexically_normal().string() +
                    ". To build it: cmake --preset windows && cmake --build --preset windows");
}

std::string WineRunner(const std::string& executableFolder) {
  const char* const chosen = std::getenv("HARVANE_WINE_RUNNER");
  if (chosen != nullptr && *chosen != '\0') return chosen;
  const files::path runner =
      (files::path(executableFolder) / ".." / ".." / "tools" / "i386-root").lexically_normal();
  if (files::exists(runner)) return runner.string();
  throw ModuleError("a Windows module needs " + runner.string() +
                    " to run under Wine, or another program named by HARVANE_WINE_RUNNER");
}

// The process of a session, and the way to it.
struct RemoteSession::Connection {
 public:
  explicit Connection(const std::string& modulePath) : modulePath(modulePath) {
    const std::string folder = ExecutableFolder().string();
    const std::string runner = WineRunner(folder);
    Start({runner, "wine", "--", SessionProgram(modulePath, folder), WindowsPathOf(modulePath)});
  }

  ~Connection() {
    const auto deadline = Clock::now() + milliseconds(kEndTimeoutMs);
    try {
      if (hasOpened && failure.empty()) Exchange(EmptyFrame(kQuit), deadline);
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): it ends now in any case
    }
    requests.Close();
    if (Reap(deadline)) return;
    // The runner may pass on this signal, but not the next.
    kill(process, SIGTERM);
    if (Reap(Clock::now() + kReapTimeout)) return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void Ask(const Frame& request) {
    Checked([&] {
      if (Exchange(request, kNever).kind != kDone)
        throw ProtocolError("an answer to something else");
    });
  }

  void Deliver(const std::int16_t* samples, std::uint32_t frames, std::uint32_t channels,
               std::vector<std::int16_t>* output) {
    Checked([&] {
      const Frame reply = Exchange(DeliverFrame(samples, frames, channels), kNever);
      if (reply.kind != kAudio) throw ProtocolError("an answer to something else");
      TakeAudio(reply, output);
    });
  }

 private:
  // What breaks the protocol makes the session useless.
  template <class Body>
  void Checked(Body body) {
    if (!failure.empty()) ThrowFailure();
    try {
      body();
    } catch (const ProtocolError& error) {
      Fail(modulePath + ": " + error.what());
    }
  }

  void Start(std::vector<std::string> command) {
    Descriptor requestEnd;
    Descriptor replyEnd;
    MakePipe(&requestEnd, &requests);
    MakePipe(&replies, &replyEnd);
    fcntl(requests.Get(), F_SETFL, O_NONBLOCK);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    posix_spawn_file_actions_adddup2(&streams, requestEnd.Get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&streams, replyEnd.Get(), STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error =
        posix_spawnp(&process, arguments[0], &streams, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&streams);
    if (error != 0) {
      isReaped = true;
      Fail(command[0] + ": cannot be started: " + std::strerror(error));
    }
  }

  Frame Exchange(const Frame& request, Clock::time_point deadline) {
    SendFrame([&](const void* bytes, std::size_t size) { Write(bytes, size, deadline); }, request);
    Frame reply;
    if (!ReceiveFrame([&](void* bytes, std::size_t size) { return Read(bytes, size, deadline); },
                      &reply)) {
      FailAsEnded(request.kind);
    }
    switch (reply.kind) {
      case kDone:
        ExpectEmpty(reply);
        break;
      case kAudio:
        break;
      case kRefusal:
        hasOpened = true;
        throw TakeRefusal(reply);
      case kFailure:
        Fail(TakeText(reply));
      default:
        throw ProtocolError("a reply of unknown kind");
    }
    hasOpened = true;
    return reply;
  }

  // Where nobody reads any more, the reply, or its absence, tells why.
  void Write(const void* bytes, std::size_t size, Clock::time_point deadline) {
    const auto* next = static_cast<const char*>(bytes);
    const BrokenPipesAsErrors scope;
    while (size != 0 && Await(requests.Get(), POLLOUT, deadline)) {
      const ssize_t count = write(requests.Get(), next, size);
      if (count < 0 && errno != EAGAIN && errno != EINTR) return;
      if (count > 0) {
        next += count;
        size -= static_cast<std::size_t>(count);
      }
    }
  }

  std::size_t Read(void* bytes, std::size_t size, Clock::time_point deadline) {
    while (Await(replies.Get(), POLLIN, deadline)) {
      const ssize_t count = read(replies.Get(), bytes, size);
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR) break;
    }
    return 0;
  }

  // False when the process is gone, though something else may hold its pipes open, or at the
  // deadline.
  bool Await(int descriptor, short events, Clock::time_point deadline) {
    for (;;) {
      pollfd wanted = {descriptor, events, 0};
      if (poll(&wanted, 1, static_cast<int>(kPollStep.count())) > 0) return true;
      if (HasEnded()) return poll(&wanted, 1, 0) > 0;
      if (Clock::now() > deadline) return false;
    }
  }

  bool HasEnded() {
    if (!isReaped) isReaped = waitpid(process, &status, WNOHANG) == process;
    return isReaped;
  }

  bool Reap(Clock::time_point deadline) {
    while (!HasEnded() && Clock::now() < deadline) std::this_thread::sleep_for(kReapStep);
    return isReaped;
  }

  [[noreturn]] void FailAsEnded(std::uint32_t request) {
    Reap(Clock::now() + kReapTimeout);
    const std::string end = isReaped ? EndText(status) : std::string("it went silent");
    isDead = hasOpened;
    Fail(hasOpened ? modulePath + ": the module ended its process " + Doing(request) + ", " + end
                   : modulePath + ": its process under Wine came to nothing, " + end);
  }

  [[noreturn]] void Fail(const std::string& text) {
    failure = text;
    ThrowFailure();
  }

  [[noreturn]] void ThrowFailure() const {
    if (isDead) throw ModuleDeath(failure);
    throw ModuleError(failure);
  }

  const std::string modulePath;
  Descriptor requests;
  Descriptor replies;
  pid_t process = 0;
  bool isReaped = false;
  int status = 0;          // once it is reaped
  bool hasOpened = false;  // it has answered once
  bool isDead = false;     // the module ended its process
  std::string failure;     // what made the session useless
};

RemoteSession::RemoteSession(const std::string& modulePath)
    : connection(std::make_unique<Connection>(modulePath)) {
  connection->Ask(NumberFrame(kOpen, kProtocolVersion));
}

RemoteSession::~RemoteSession() = default;

void RemoteSession::Configure(const std::string& parameterXml, const SessionFormat& format) {
  connection->Ask(SetupFrame({format, parameterXml}));
  channels = format.channels;
}

void RemoteSession::StartSequence() { connection->Ask(EmptyFrame(kStartSequence)); }

void RemoteSession::StartPass(std::uint32_t passNumber) {
  connection->Ask(NumberFrame(kStartPass, passNumber));
}

void RemoteSession::Deliver(const std::int16_t* interleaved, std::uint32_t frames,
                            std::vector<std::int16_t>* output) {
  connection->Deliver(interleaved, frames, channels, output);
}

void RemoteSession::EndPass() { connection->Ask(EmptyFrame(kEndPass)); }

void RemoteSession::EndSequence() { connection->Ask(EmptyFrame(kEndSequence)); }

}  // namespace harvane
