#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "delay_audio/PassObserver.h"
#include "logging/LogMeasurement.h"
#include "tests/host/JobRunner.h"
#include "tests/host/endurance/Endurance.h"
#include "tests/support/Bits.h"
#include "tests/support/Signals.h"
#include "tests/support/TemporaryFolder.h"

namespace endurance {
namespace {

using hosttest::JobRunner;

constexpr std::size_t kThreads = 8;

struct Outcome {
  std::vector<std::int16_t> output;
  std::vector<std::string> rows;  // all that was measured, to the bit
};

std::string Exactly(const harvane::LogMeasurement& m) {
  std::string text = m.pass.toStdString() + " " + std::to_string(m.startChannel);
  for (const float value :
       {m.integratedLoudness, m.loudnessRange, m.maxTruePeak, m.maxShortTerm, m.maxMomentary}) {
    text += " " + support::Show(value);
  }
  for (const harvane::TimeCode& time :
       {m.maxTruePeakTime, m.maxShortTermTime, m.maxMomentaryTime}) {
    text += " " + std::to_string(time.hours) + ":" + std::to_string(time.minutes) + ":" +
            std::to_string(time.seconds) + "." + std::to_string(time.framesOrMilliseconds);
  }
  return text;
}

twin::JobSpec SpecOf(int index) {
  struct Layout {
    int format;
    int channels;
  };
  constexpr Layout kLayouts[] = {{2, 2}, {1, 1}, {6, 6}, {3, 4}};
  constexpr int kRates[] = {48000, 44100, 48000, 88200, 48000, 192000};
  twin::JobSpec spec;
  spec.sampleRate = kRates[index % 6];
  spec.formats[0] = kLayouts[index % 4].format;
  spec.channels = kLayouts[index % 4].channels;
  spec.numberOfPasses = index % 5 == 4 ? 1 : 2;
  // There is no limiter at 192000 Hz: it must not be needed.
  const bool isQuadRate = spec.sampleRate == 192000;
  spec.normalisationMode = index % 3 == 2 && !isQuadRate ? 1 : 0;
  spec.loudness = isQuadRate ? -60.0F : -10.0F - static_cast<float>(index % 11);
  spec.maxTp = -1.0F - static_cast<float>(index % 3);
  spec.entryName = "instance-" + std::to_string(index);
  return spec;
}

// A whole job that goes on by one unit at a time.
class StepwiseJob {
 public:
  StepwiseJob(int index, double seconds, const std::string& folder)
      : spec(SpecOf(index)),
        signal(support::Programme(static_cast<std::uint64_t>(100 + index), spec.sampleRate,
                                  spec.channels,
                                  static_cast<std::size_t>(spec.sampleRate * seconds))),
        unitFrames(static_cast<std::uint32_t>(900 + 37 * index)),
        runner(harvane::LinkedModuleExports(), spec, folder, "rows-" + std::to_string(index)) {
    harvane::SetPassObserver(runner.Handle(), {Note, &outcome});
    runner.StartSequence();
    runner.StartPass(0);
  }

  // False once the job is done.
  bool Step() {
    const auto channels = static_cast<std::size_t>(spec.channels);
    const std::size_t frames = signal.size() / channels;
    const std::size_t left = frames - done;
    const std::size_t count = left < unitFrames ? left : unitFrames;
    runner.Deliver(signal.data() + done * channels, static_cast<std::uint32_t>(count),
                   support::Arrangement::kInterleaved);
    done += count;
    if (spec.numberOfPasses == 1 || pass == 1) runner.Fetch(&outcome.output);
    if (done < frames) return true;
    runner.EndPass();
    if (++pass == spec.numberOfPasses) {
      runner.EndSequence();
      return false;
    }
    done = 0;
    runner.StartPass(static_cast<std::uint32_t>(pass));
    return true;
  }

  const Outcome& Result() const { return outcome; }

 private:
  static void Note(const harvane::LogMeasurement& measurement, void* context) {
    static_cast<Outcome*>(context)->rows.push_back(Exactly(measurement));
  }

  twin::JobSpec spec;
  std::vector<std::int16_t> signal;
  std::size_t unitFrames;
  Outcome outcome;
  JobRunner runner;
  int pass = 0;
  std::size_t done = 0;
};

// Instances `first`, `first` + `spacing` ... in turns.
void RunInTurns(std::size_t first, std::size_t spacing, double seconds, const std::string& folder,
                std::vector<Outcome>* outcomes) {
  std::vector<std::unique_ptr<StepwiseJob>> jobs;
  std::vector<bool> isRunning;
  for (std::size_t i = first; i < outcomes->size(); i += spacing) {
    jobs.push_back(std::make_unique<StepwiseJob>(static_cast<int>(i), seconds, folder));
    isRunning.push_back(true);
  }
  for (std::size_t running = jobs.size(); running > 0;) {
    for (std::size_t j = 0; j < jobs.size(); ++j) {
      if (!isRunning[j] || jobs[j]->Step()) continue;
      isRunning[j] = false;
      --running;
    }
  }
  for (std::size_t j = 0; j < jobs.size(); ++j) {
    (*outcomes)[first + j * spacing] = jobs[j]->Result();
  }
}

void Compare(const char* way, const std::vector<Outcome>& wanted, const std::vector<Outcome>& got) {
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const std::string place = std::string(way) + ", instance " + std::to_string(i) + ": ";
    Require(!wanted[i].output.empty() && !wanted[i].rows.empty(), place + "gave nothing");
    const std::string samples = hosttest::Difference(wanted[i].output, got[i].output);
    Require(samples.empty(), place + samples);
    const std::string rows = hosttest::Difference(wanted[i].rows, got[i].rows);
    Require(rows.empty(), place + rows);
  }
}

}  // namespace

void RunInstances(double seconds, int count) {
  const auto instances = static_cast<std::size_t>(count);
  const support::TemporaryFolder folder;
  std::vector<Outcome> alone(instances);
  for (std::size_t i = 0; i < instances; ++i) {
    RunInTurns(i, instances, seconds, folder.Text(), &alone);
  }

  std::vector<Outcome> inTurns(instances);
  RunInTurns(0, 1, seconds, folder.Text(), &inTurns);
  Compare("one thread", alone, inTurns);

  std::vector<Outcome> inThreads(instances);
  std::vector<std::thread> threads;
  std::vector<std::string> failures(kThreads);
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      try {
        RunInTurns(t, kThreads, seconds, folder.Text(), &inThreads);
      } catch (const std::exception& failure) {
        failures[t] = failure.what();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& failure : failures) Require(failure.empty(), failure);
  Compare("eight threads", alone, inThreads);
  harvane::WriteWaitingLogRows();

  std::size_t samples = 0;
  for (const Outcome& one : alone) samples += one.output.size();
  std::printf("%zu instances: %zu samples alone, in turns and on %zu threads\n", instances, samples,
              kThreads);
}

}  // namespace endurance
