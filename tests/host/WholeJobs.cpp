#include "tests/host/WholeJobs.h"

#include <sstream>

#include "tests/support/Signals.h"

namespace hosttest {

using support::Arrangement;

std::string Describe(const WholeJob& job) {
  std::ostringstream text;
  const twin::JobSpec& spec = job.spec;
  text << job.name << ": " << spec.sampleRate << " Hz, " << spec.channels << " channels, passes "
       << spec.numberOfPasses << ", groups " << spec.numberOfGroups << ", formats";
  for (const int format : spec.formats) text << ' ' << format;
  text << ", mode " << spec.normalisationMode << ", Loudness " << spec.loudness
       << ", ShortTermLoudness " << spec.shortTermLoudness << ", MaxTP " << spec.maxTp
       << ", frameRate " << spec.frameRate;
  if (spec.hasVideo) {
    text << ", video " << spec.frameRateNumerator << '/' << spec.frameRateDenominator;
  }
  text << ", units";
  for (const std::uint32_t frames : job.delivery.unitFrames) text << ' ' << frames;
  text << ", arrangement " << static_cast<int>(job.delivery.arrangement) << ", fetch every "
       << job.delivery.fetchEvery;
  for (const Sequence& sequence : job.sequences) {
    text << "; signal " << sequence.signalSeed << " of " << sequence.frames << " frames, passes";
    for (const std::uint32_t pass : sequence.passes) text << ' ' << pass;
  }
  return text.str();
}

std::vector<std::int16_t> SignalOf(const WholeJob& job, const Sequence& sequence) {
  return support::Programme(sequence.signalSeed, job.spec.sampleRate, job.spec.channels,
                            sequence.frames);
}

Outcome RunTwin(WholeJob* job) {
  Outcome outcome;
  twin::Job oracle(job->spec);
  for (std::size_t s = 0; s < job->sequences.size(); ++s) {
    Sequence& sequence = job->sequences[s];
    const std::vector<std::int16_t> signal = SignalOf(*job, sequence);
    if (oracle.StartSequence() != twin::Job::Start::kStarted) {
      throw std::logic_error("a job whose sequence does not start: " + Describe(*job));
    }
    for (std::size_t p = 0; p < sequence.passes.size(); ++p) {
      const twin::PassResult pass = oracle.RunPass(static_cast<int>(sequence.passes[p]), signal);
      if (pass.endsProcess) {
        sequence.passes.resize(p);
        job->sequences.resize(s + 1);
        return outcome;
      }
      outcome.output.insert(outcome.output.end(), pass.output.begin(), pass.output.end());
      outcome.rows.insert(outcome.rows.end(), pass.rows.begin(), pass.rows.end());
    }
  }
  return outcome;
}

std::vector<std::int16_t> RunModule(const harvane::ModuleExports& exports, const WholeJob& job,
                                    const std::string& folder, const std::string& logFile) {
  std::vector<std::int16_t> output;
  JobRunner runner(exports, job.spec, folder, logFile);
  for (const Sequence& sequence : job.sequences) {
    const std::vector<std::int16_t> signal = SignalOf(job, sequence);
    runner.StartSequence();
    for (const std::uint32_t pass : sequence.passes) {
      const std::vector<std::int16_t> given = runner.RunPass(pass, signal, job.delivery);
      output.insert(output.end(), given.begin(), given.end());
    }
    runner.EndSequence();
  }
  return output;
}

namespace {

constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};

struct Layout {
  int groups;
  int formats[4];
  int channels;
};

// ---- the fixed matrix: twelve jobs at each of the six rates

constexpr Layout kLayouts[] = {
    {1, {1, 9, 9, 9}, 1}, {1, {2, 9, 9, 9}, 2}, {1, {3, 9, 9, 9}, 4}, {1, {4, 9, 9, 9}, 6},
    {1, {5, 9, 9, 9}, 8}, {1, {6, 9, 9, 9}, 6}, {1, {7, 9, 9, 9}, 8}, {1, {8, 9, 9, 9}, 8},
    {2, {2, 1, 9, 9}, 9}, {1, {2, 9, 9, 9}, 5}, {1, {1, 9, 9, 9}, 2}, {1, {2, 9, 9, 9}, 2},
};
constexpr float kFrameRates[] = {0.0F,  23.976F, 24.0F, 25.0F, 29.97F, 30.0F,
                                 50.0F, 59.0F,   60.0F, 1.0F,  1.0F};

}  // namespace

WholeJob MatrixJob(int rateIndex, int variant) {
  const Layout& layout = kLayouts[variant];
  const bool hasPhases = rateIndex < kFirstRateWithoutPhases;
  WholeJob job;
  job.name = std::to_string(kRates[rateIndex]) + "-" + std::to_string(variant);
  job.spec.sampleRate = kRates[rateIndex];
  job.spec.channels = layout.channels;
  job.spec.numberOfGroups = layout.groups;
  for (std::size_t g = 0; g < 4; ++g) job.spec.formats[g] = layout.formats[g];
  job.spec.entryName = job.name;
  // The last variant and the sixth are measured only; every other mode is Max. SL.
  job.spec.numberOfPasses = variant == 11 || variant == 5 + rateIndex % 2 ? 1 : 2;
  job.spec.normalisationMode = (variant + rateIndex) % 2;
  // Without phases a limiter would end the process: the targets lie far below the signal.
  const bool isLoud = hasPhases && variant % 3 != 2;
  job.spec.loudness = isLoud ? -9.0F : -45.0F;
  job.spec.shortTermLoudness = isLoud ? -8.0F : -45.5F;
  job.spec.maxTp = variant % 2 == 0 ? -3.0F : 0.0F;
  const int frameRate = (variant + 2 * rateIndex) % 11;
  job.spec.frameRate = kFrameRates[frameRate];
  if (frameRate == 10) {
    job.spec.hasVideo = true;
    job.spec.frameRateNumerator = 30000;
    job.spec.frameRateDenominator = 1001;
  }
  static const std::vector<std::uint32_t> kUnits[] = {
      {1024}, {239}, {1, 480, 3}, {100000}, {8192, 1}, {960, 961, 959}, {7777}};
  job.delivery.unitFrames = kUnits[(variant * 3 + rateIndex) % 7];
  job.delivery.arrangement = static_cast<Arrangement>((variant + rateIndex) % 3);
  job.delivery.fetchEvery = 1 + variant % 4;
  // The windows of 3 s want more than 3 s; the fewest samples a second afford
  // the most, and the most do with windows of 0.4 s.
  const int samplesPerSecond = layout.channels * job.spec.sampleRate;
  const std::size_t tenths = samplesPerSecond < 100000   ? 65
                             : samplesPerSecond < 200000 ? 42
                             : samplesPerSecond < 400000 ? 32
                                                         : 7;
  const std::size_t frames = static_cast<std::size_t>(job.spec.sampleRate) / 10 * tenths + 17;
  const auto seed = static_cast<std::uint64_t>(1000 + 100 * rateIndex + variant);
  const std::vector<std::uint32_t> passes = job.spec.numberOfPasses == 2
                                                ? std::vector<std::uint32_t>{0, 1}
                                                : std::vector<std::uint32_t>{0};
  job.sequences.push_back({passes, seed, frames});
  // A second sequence on some instances: the same plan, or a second pass with the gains at hand.
  if (variant == 1) job.sequences.push_back({passes, seed + 50, frames / 2});
  if (variant == 0) job.sequences.push_back({{1}, seed + 50, frames / 3});
  return job;
}

// ---- random jobs

namespace {

// Channels up to which the layout of each group reaches.
int ChannelsOf(int groups, const int (&formats)[4]) {
  constexpr int kUsed[] = {0, 1, 2, 4, 6, 8, 6, 8, 8};
  return 8 * (groups - 1) + kUsed[formats[groups - 1]];
}

int Between(support::NoiseSource* chance, int low, int high) {
  return low + static_cast<int>(chance->NextBelow(static_cast<std::uint32_t>(high - low + 1)));
}

}  // namespace

WholeJob RandomJob(std::uint64_t seed, int index) {
  support::NoiseSource chance(seed * 1000003 + static_cast<std::uint64_t>(index));
  const auto oneIn = [&chance](std::uint32_t n) { return chance.NextBelow(n) == 0; };
  WholeJob job;
  job.name = "seed " + std::to_string(seed) + " job " + std::to_string(index);
  twin::JobSpec& spec = job.spec;
  spec.entryName = "random-" + std::to_string(index);
  const int rateIndex = Between(&chance, 0, 5);
  spec.sampleRate = oneIn(25) ? Between(&chance, 8000, 60000) : kRates[rateIndex];
  spec.numberOfPasses = oneIn(12) ? Between(&chance, -1, 4) : Between(&chance, 1, 8) <= 2 ? 1 : 2;
  spec.numberOfGroups = oneIn(6) ? Between(&chance, 2, 4) : 1;
  for (int& format : spec.formats) format = Between(&chance, 1, 8);
  spec.channels = ChannelsOf(spec.numberOfGroups, spec.formats);
  if (oneIn(5)) spec.channels += Between(&chance, 1, 9);
  if (oneIn(30) && spec.channels > 1) spec.channels -= 1;
  spec.normalisationMode = oneIn(10) ? Between(&chance, -2, 3) : Between(&chance, 0, 1);
  const bool isQuiet = spec.sampleRate > 100000 || oneIn(4);
  spec.loudness =
      static_cast<float>(isQuiet ? Between(&chance, -500, -350) : Between(&chance, -300, -20)) /
      10.0F;
  spec.shortTermLoudness =
      static_cast<float>(isQuiet ? Between(&chance, -500, -350) : Between(&chance, -300, -20)) /
      10.0F;
  spec.maxTp = static_cast<float>(Between(&chance, -120, 0)) / 10.0F;
  spec.frameRate = kFrameRates[chance.NextBelow(10)];
  if (spec.frameRate == 1.0F && oneIn(2)) {
    spec.hasVideo = true;
    spec.frameRateDenominator = oneIn(2) ? 1001 : 1;
    spec.frameRateNumerator =
        spec.frameRateDenominator * static_cast<std::uint32_t>(Between(&chance, 0, 120)) + 7;
  }
  job.delivery.unitFrames.clear();
  for (int n = Between(&chance, 1, 3); n > 0; --n) {
    const int limit = oneIn(3) ? 50 : 6000;
    job.delivery.unitFrames.push_back(static_cast<std::uint32_t>(Between(&chance, 1, limit)));
  }
  job.delivery.arrangement = static_cast<Arrangement>(Between(&chance, 0, 2));
  job.delivery.fetchEvery = Between(&chance, 1, 5);

  // Mostly around the windows of 0.4 s; some long enough for those of 3 s; some shorter than all.
  const int channelTenths = 20 * 48000 / spec.sampleRate;  // bounds the time for a job
  int tenths = spec.channels <= 2 && oneIn(3) ? Between(&chance, 31, 40) : Between(&chance, 3, 12);
  if (tenths <= 12 && tenths * spec.channels > channelTenths) {
    tenths = channelTenths / spec.channels + 1;
  }
  const int extra = Between(&chance, 0, spec.sampleRate / 10);
  const int frames = oneIn(12) ? Between(&chance, 0, 700) : spec.sampleRate / 10 * tenths + extra;
  const std::vector<std::uint32_t> passes =
      spec.numberOfPasses == 2 ? std::vector<std::uint32_t>{0, 1} : std::vector<std::uint32_t>{0};
  const auto add = [&](const std::vector<std::uint32_t>& plan, int count) {
    job.sequences.push_back({plan, chance.NextBits(), static_cast<std::size_t>(count)});
  };
  add(passes, frames);
  if (oneIn(12))
    job.sequences.back().passes.push_back(static_cast<std::uint32_t>(Between(&chance, 0, 3)));
  if (oneIn(6)) add(oneIn(2) ? passes : std::vector<std::uint32_t>{1}, frames / 2);
  if (oneIn(20)) add(passes, frames / 3);
  return job;
}

}  // namespace hosttest
