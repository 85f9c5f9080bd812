#include "tool/Workers.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <list>
#include <utility>

#include "tool/Interruption.h"
#include "tool/WorkerProcess.h"

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

// The whole lines of a stream that comes in pieces.
class LineReader {
 public:
  // To append what comes.
  std::string* Text() { return &text; }

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

// One worker and what it is at.
struct Worker {
  explicit Worker(const std::vector<std::string>& command) : process(command) {}

  WorkerProcess process;
  LineReader lineReader;
  LineReader errorReader;
  std::string lastErrorLine;
  bool isReady = false;
  std::optional<std::size_t> job;
  bool hasBegun = false;
  Clock::time_point since;                // the job was handed out
  std::optional<JobEnd::Kind> wantedEnd;  // it has been asked to die
  Clock::time_point killAt;
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
      const std::string error = workers.back().process.StartError();
      if (error.empty()) continue;
      workers.pop_back();
      // With fewer processes than were asked for it goes on.
      if (workers.empty()) FailStart("no process can be started for it: " + error);
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
      if (worker.process.WriteLine(jobs[*worker.job]) && listener.onStart) {
        listener.onStart(*worker.job);
      }
    }
  }

  void Wait() {
    std::vector<Awaited> awaited;
    for (const Worker& worker : workers) worker.process.AddAwaited(&awaited);
    interruption->Await(awaited, kTickMs);
  }

  void Listen() {
    for (Worker& worker : workers) Hear(&worker);
  }

  // What it said on standard error before an answer is read after that, and heard before.
  void Hear(Worker* worker) {
    const bool isOpen = worker->process.ReadOutput(worker->lineReader.Text());
    worker->process.ReadErrors(worker->errorReader.Text());
    while (const auto line = worker->errorReader.Next()) HearError(worker, *line);
    while (const auto line = worker->lineReader.Next()) HearLine(worker, *line);
    if (!isOpen) worker->process.Kill();
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
    worker->process.AskToEnd();
  }

  void EndAll() {
    for (Worker& worker : workers) AskToDie(&worker, JobEnd::Kind::kInterrupted);
  }

  void EndLateOnes() {
    const Clock::time_point now = Clock::now();
    for (Worker& worker : workers) {
      if (worker.wantedEnd) {
        if (now >= worker.killAt) worker.process.Kill();
      } else if (worker.job && settings.timeoutSeconds &&
                 now - worker.since >= std::chrono::duration<double>(*settings.timeoutSeconds)) {
        AskToDie(&worker, JobEnd::Kind::kTimedOut);
      }
    }
  }

  void BuryTheDead() {
    for (auto worker = workers.begin(); worker != workers.end();) {
      const std::optional<std::string> end = worker->process.TakeEnd();
      if (!end) {
        ++worker;
        continue;
      }
      // What it said last.
      Hear(&*worker);
      const std::string rest = worker->errorReader.Rest();
      if (!rest.empty()) HearError(&*worker, rest);
      Bury(&*worker, *end);
      worker = workers.erase(worker);
    }
  }

  void Bury(Worker* worker, std::string reason) {
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
    for (Worker& worker : workers) worker.process.CloseInput();
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

}  // namespace

bool RunInWorkers(const WorkerSettings& settings, const std::vector<std::string>& jobs,
                  const WorkerListener& listener, Interruption* interruption) {
  return WorkerRun(settings, jobs, listener, interruption).Run();
}

void ServeJobs(const WorkerJob& work) {
  WorkerStreams streams;
  const auto say = [&](char kind, const std::string& text) { streams.WriteLine(kind + text); };
  LineReader jobs;
  const auto nextJob = [&] {
    std::optional<std::string> job = jobs.Next();
    for (bool isOpen = true; !job && isOpen; job = jobs.Next()) isOpen = streams.Read(jobs.Text());
    return job;
  };
  say(kReady, "");
  while (const auto job = nextJob()) {
    say(kBegun, "");
    const std::string answer = work(*job, [&](const std::string& text) { say(kNews, text); });
    say(kAnswer, answer);
  }
}

}  // namespace harvane
