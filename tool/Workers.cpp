#include "tool/Workers.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <list>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/PendingFile.h"
#include "tool/Interruption.h"

namespace harvane {
namespace {

using Clock = std::chrono::steady_clock;

// The first letter of a worker's lines.
constexpr char kReady = 'r';
constexpr char kBegun = 'b';
constexpr char kNews = 'n';
constexpr char kAnswer = 'a';

constexpr int kTickMs = 100;
constexpr std::chrono::milliseconds kTermGrace{1000};
constexpr std::chrono::milliseconds kLeaveGrace{5000};
constexpr int kMostReturns = 3;
constexpr int kMostFailedStarts = 3;
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

bool WriteLine(int descriptor, std::string line) {
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

// The whole lines of a stream that comes in pieces.
class LineReader {
 public:
  // Takes what is there, without waiting. False at the end of the stream.
  bool Read(int descriptor) {
    for (;;) {
      std::array<char, kReadBytes> piece;
      const ssize_t count = read(descriptor, piece.data(), piece.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errno == EAGAIN;
      if (count == 0) return false;
      text.append(piece.data(), static_cast<std::size_t>(count));
    }
  }

  std::optional<std::string> Next() {
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      text.erase(0, start);
      start = 0;
      return std::nullopt;
    }
    std::string line = text.substr(start, end - start);
    start = end + 1;
    return line;
  }

  // What came without a line end.
  std::string Rest() const { return text.substr(start); }

 private:
  std::string text;
  std::size_t start = 0;
};

std::string WaysOut(int status) {
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    return fmt::format("its process was ended by signal {} ({})", signal, strsignal(signal));
  }
  return fmt::format("its process ended with status {}", WEXITSTATUS(status));
}

// One worker process. Dies with the object.
class Worker {
 public:
  explicit Worker(const std::vector<std::string>& command) {
    Pipe toWorker = MakePipe();
    Pipe fromWorker = MakePipe();
    Pipe complaints = MakePipe();
    fcntl(fromWorker.read.Number(), F_SETFL, O_NONBLOCK);
    fcntl(complaints.read.Number(), F_SETFL, O_NONBLOCK);
    Spawn(command, {toWorker.read.Number(), fromWorker.write.Number(), complaints.write.Number()});
    jobs = std::move(toWorker.write);
    lines = std::move(fromWorker.read);
    errors = std::move(complaints.read);
  }
  ~Worker() {
    if (process <= 0) return;
    Signal(SIGKILL);
    waitpid(process, nullptr, 0);
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // 0, or why there is no process.
  int StartError() const { return startError; }

  int Lines() const { return lines.Number(); }
  int Errors() const { return errors.Number(); }

  bool HandOut(const std::string& job) { return WriteLine(jobs.Number(), job); }
  void LetGo() { jobs = Descriptor(); }

  void Signal(int signal) const {
    if (process > 0) kill(-process, signal);
  }
  void Terminate() const {
    Signal(SIGTERM);
    Signal(SIGCONT);
  }

  // How it ended; empty while it lives.
  std::optional<int> Status() {
    int status = 0;
    if (process <= 0 || waitpid(process, &status, WNOHANG) != process) return std::nullopt;
    // What it started shall not outlive it.
    Signal(SIGKILL);
    process = 0;
    return status;
  }

  LineReader lineReader;
  LineReader errorReader;
  std::string lastErrorLine;
  bool isReady = false;
  std::optional<std::size_t> job;
  bool hasBegun = false;
  Clock::time_point since;                // the job was handed out
  std::optional<JobEnd::Kind> wantedEnd;  // it has been asked to die
  Clock::time_point killAt;

 private:
  // `streams` become the worker's standard input, output and error.
  void Spawn(const std::vector<std::string>& command, const std::array<int, 3>& streams) {
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
    startError =
        posix_spawn(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
    if (startError != 0) process = 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }

  pid_t process = 0;
  int startError = 0;
  Descriptor jobs;
  Descriptor lines;
  Descriptor errors;
};

class WorkerRun {
 public:
  WorkerRun(const WorkerSettings& settings, const std::vector<std::string>& jobs,
            const WorkerListener& listener, Interruption* interruption)
      : settings(settings),
        jobs(jobs),
        listener(listener),
        interruption(interruption),
        returns(jobs.size(), 0) {
    for (std::size_t i = 0; i < jobs.size(); ++i) waiting.push_back(i);
  }

  bool Run() {
    while (!waiting.empty() || RunningJobs() > 0) {
      if (interruption->HasCome()) {
        if (!isEnding) EndAll();
        isEnding = true;
        if (RunningJobs() == 0) return false;
      } else {
        StartWorkers();
        HandOutJobs();
      }
      Wait();
      Listen();
      EndLateOnes();
      BuryTheDead();
      if (listener.onTick) listener.onTick();
    }
    LetGo();
    return true;
  }

 private:
  std::size_t RunningJobs() const {
    return static_cast<std::size_t>(
        std::count_if(workers.begin(), workers.end(),
                      [](const Worker& worker) { return worker.job.has_value(); }));
  }

  void StartWorkers() {
    const auto most = static_cast<std::size_t>(settings.processes);
    while (workers.size() < std::min(most, waiting.size() + RunningJobs())) {
      workers.emplace_back(settings.command);
      const int error = workers.back().StartError();
      if (error == 0) continue;
      workers.pop_back();
      // With fewer processes than were asked for it goes on.
      if (workers.empty()) FailStart("no process can be started for it: " + SystemText(error));
      return;
    }
  }

  void FailStart(const std::string& reason) {
    if (++failedStarts < kMostFailedStarts) return;
    for (const std::size_t job : waiting) {
      listener.onEnd({job, JobEnd::Kind::kCrashed, reason, 0.0});
    }
    waiting.clear();
  }

  void HandOutJobs() {
    for (Worker& worker : workers) {
      if (!worker.isReady || worker.job || worker.wantedEnd || waiting.empty()) continue;
      worker.job = waiting.front();
      worker.since = Clock::now();
      worker.hasBegun = false;
      worker.lastErrorLine.clear();
      waiting.pop_front();
      // A worker that has died meanwhile gives it back.
      if (worker.HandOut(jobs[*worker.job]) && listener.onStart) listener.onStart(*worker.job);
    }
  }

  void Wait() {
    std::vector<pollfd> descriptors;
    for (const Worker& worker : workers) {
      descriptors.push_back({worker.Lines(), POLLIN, 0});
      // A negative number is passed over.
      descriptors.push_back({worker.Errors(), POLLIN, 0});
    }
    interruption->Poll(&descriptors, kTickMs);
  }

  void Listen() {
    for (Worker& worker : workers) Hear(&worker);
  }

  // False where the worker has no more to say.
  bool Hear(Worker* worker) {
    worker->errorReader.Read(worker->Errors());
    while (const auto line = worker->errorReader.Next()) HearError(worker, *line);
    const bool isOpen = worker->lineReader.Read(worker->Lines());
    while (const auto line = worker->lineReader.Next()) HearLine(worker, *line);
    if (!isOpen) worker->Signal(SIGKILL);
    return isOpen;
  }

  void HearError(Worker* worker, const std::string& line) {
    worker->lastErrorLine = line;
    listener.onErrorLine(line);
  }

  void HearLine(Worker* worker, const std::string& line) {
    const char kind = line.empty() ? '\0' : line[0];
    if (kind == kReady) {
      worker->isReady = true;
      failedStarts = 0;
    }
    if (!worker->job) return;
    if (kind == kBegun) worker->hasBegun = true;
    if (kind == kNews && listener.onNews) listener.onNews(*worker->job, line.substr(1));
    if (kind == kAnswer) End(worker, JobEnd::Kind::kAnswered, line.substr(1));
  }

  void End(Worker* worker, JobEnd::Kind kind, const std::string& text) {
    const std::chrono::duration<double> spent = Clock::now() - worker->since;
    const std::size_t job = *worker->job;
    worker->job.reset();
    listener.onEnd({job, kind, text, spent.count()});
  }

  void AskToDie(Worker* worker, JobEnd::Kind kind) {
    worker->wantedEnd = kind;
    worker->killAt = Clock::now() + kTermGrace;
    worker->Terminate();
  }

  void EndAll() {
    for (Worker& worker : workers) AskToDie(&worker, JobEnd::Kind::kInterrupted);
  }

  void EndLateOnes() {
    const Clock::time_point now = Clock::now();
    for (Worker& worker : workers) {
      if (worker.wantedEnd) {
        if (now >= worker.killAt) worker.Signal(SIGKILL);
      } else if (worker.job && settings.timeoutSeconds &&
                 now - worker.since >= std::chrono::duration<double>(*settings.timeoutSeconds)) {
        AskToDie(&worker, JobEnd::Kind::kTimedOut);
      }
    }
  }

  void BuryTheDead() {
    for (auto worker = workers.begin(); worker != workers.end();) {
      const std::optional<int> status = worker->Status();
      if (!status) {
        ++worker;
        continue;
      }
      // What it said last.
      Hear(&*worker);
      const std::string rest = worker->errorReader.Rest();
      if (!rest.empty()) HearError(&*worker, rest);
      Bury(&*worker, *status);
      worker = workers.erase(worker);
    }
  }

  void Bury(Worker* worker, int status) {
    std::string reason = WaysOut(status);
    if (!worker->lastErrorLine.empty()) reason += ": " + worker->lastErrorLine;
    if (!worker->isReady && !worker->wantedEnd) FailStart(reason);
    if (!worker->job) return;
    if (worker->wantedEnd) {
      End(worker, *worker->wantedEnd, reason);
    } else if (interruption->HasCome()) {
      // Who ended the program ended its workers as well: a cluster, or the shutdown of a machine.
      End(worker, JobEnd::Kind::kInterrupted, reason);
    } else if (!worker->hasBegun && returns[*worker->job]++ < kMostReturns) {
      waiting.push_front(*worker->job);
      worker->job.reset();
    } else {
      End(worker, JobEnd::Kind::kCrashed, reason);
    }
  }

  // Lets the idle workers come to their own end, for a while.
  void LetGo() {
    for (Worker& worker : workers) worker.LetGo();
    const Clock::time_point end = Clock::now() + kLeaveGrace;
    while (!workers.empty() && Clock::now() < end && !interruption->HasCome()) {
      Wait();
      Listen();
      BuryTheDead();
    }
    workers.clear();
  }

  const WorkerSettings& settings;
  const std::vector<std::string>& jobs;
  const WorkerListener& listener;
  Interruption* interruption;
  std::vector<int> returns;         // by job: how often it was given back
  std::deque<std::size_t> waiting;  // jobs
  std::list<Worker> workers;
  int failedStarts = 0;  // in turn
  bool isEnding = false;
};

// Lines of standard input from now on, which the process itself finds empty.
class JobLines {
 public:
  JobLines() : input(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(nothing.Number(), STDIN_FILENO);
  }

  std::optional<std::string> Next() {
    for (;;) {
      if (auto line = reader.Next()) return line;
      pollfd ready = {input.Number(), POLLIN, 0};
      poll(&ready, 1, -1);
      fcntl(input.Number(), F_SETFL, O_NONBLOCK);
      if (!reader.Read(input.Number())) return reader.Next();
    }
  }

 private:
  Descriptor input;
  LineReader reader;
};

}  // namespace

bool RunInWorkers(const WorkerSettings& settings, const std::vector<std::string>& jobs,
                  const WorkerListener& listener, Interruption* interruption) {
  return WorkerRun(settings, jobs, listener, interruption).Run();
}

void ServeJobs(const WorkerJob& work) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  JobLines jobs;
  const Descriptor answers(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  dup2(STDERR_FILENO, STDOUT_FILENO);
  const auto say = [&](char kind, const std::string& text) {
    WriteLine(answers.Number(), kind + text);
  };
  say(kReady, "");
  while (const auto job = jobs.Next()) {
    say(kBegun, "");
    const std::string answer = work(*job, [&](const std::string& text) { say(kNews, text); });
    say(kAnswer, answer);
  }
}

}  // namespace harvane
