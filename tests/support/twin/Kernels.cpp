#include "tests/support/twin/Kernels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace twin {

// a * b + sum, rounded once from its exact value. A double holds the product
// exactly and the sum all but: where that lies in the middle between two singles,
// what it lacks decides.
float AddedProduct(float a, float b, float sum) {
  const double product = double(a) * double(b);
  const double near = product + double(sum);
  const float single = static_cast<float>(near);
  const double partOfSum = near - product;
  const double lacks = (product - (near - partOfSum)) + (double(sum) - partOfSum);
  if (lacks == 0.0 || !std::isfinite(lacks) || !std::isfinite(single)) return single;
  const float infinity = std::numeric_limits<float>::infinity();
  const float above = double(single) >= near ? single : std::nextafter(single, infinity);
  const float below = double(single) <= near ? single : std::nextafter(single, -infinity);
  const bool isMiddle = double(above) - near == near - double(below) && above != below;
  if (!isMiddle) return single;
  return lacks > 0.0 ? above : below;
}

namespace {

float Single(double v) { return static_cast<float>(v); }

// The value `age` samples before the newest, 0.0 before the start.
float Past(const std::vector<float>& history, std::size_t age) {
  if (age >= history.size()) return 0.0f;
  return history[history.size() - 1 - age];
}

float PhaseSum(const std::vector<float>& taps, const std::vector<float>& history) {
  float sum = 0.0f;
  for (std::size_t k = 0; k < taps.size(); ++k) {
    sum = AddedProduct(taps[k], Past(history, k), sum);
  }
  return sum;
}

bool TakeIntoSeries(float loudness, double relativeOffset, SeriesState* state) {
  if (!(-70.0f < loudness)) return false;
  state->accepted.push_back(loudness);
  state->relativeGate = Single(double(Log10(MeanPower(state->accepted))) * 10.0 - relativeOffset);
  state->kept.clear();
  for (float accepted : state->accepted) {
    if (accepted > state->relativeGate) state->kept.push_back(accepted);
  }
  if (!(state->relativeGate < loudness)) return false;
  // Deliberate: the newest block is in the list already and counts twice.
  state->kept.push_back(loudness);
  return true;
}

std::string Padded(int value, std::size_t width) {
  std::string text = std::to_string(value);
  while (text.size() < width) text.insert(0, 1, '0');
  return text;
}

int HourOfTwelve(int hour) {
  if (hour == 0) return 12;
  return hour > 12 ? hour - 12 : hour;
}

const char* MonthName(int month) {
  static const char* const kNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return kNames[month - 1];
}

}  // namespace

float Floor(float v) { return Single(std::floor(double(v))); }
float Log10(float v) { return Single(std::log10(double(v))); }
float Abs(float v) { return Single(std::fabs(double(v))); }
float Pow(float base, float exponent) { return Single(std::pow(double(base), double(exponent))); }

float MeanSquare(const float* x, std::size_t n) {
  float sum = 0.0f;
  for (std::size_t i = 0; i < n; ++i) sum = AddedProduct(x[i], x[i], sum);
  return Single(double(sum) / double(n));
}

void AbsInPlace(std::vector<float>* x, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if ((*x)[i] < 0.0f) (*x)[i] = -(*x)[i];
  }
}

float MaxOf(const std::vector<float>& x, std::size_t n) {
  float largest = x.at(0);
  for (std::size_t i = 0; i < n; ++i) {
    if (largest < x.at(i)) largest = x.at(i);
  }
  return largest;
}

float RoundToTenth(float v) {
  const float t = Single(double(v) * 10.0 + 0.5);
  return Single(double(Floor(t)) / 10.0);
}

TimeCode SamplesToTimeCode(std::int32_t position, std::int32_t frameRate, std::int32_t sampleRate) {
  TimeCode code;
  if (frameRate != 0) {
    const std::int32_t samplesPerFrame = sampleRate / frameRate;
    code.framesOrMilliseconds = (position / samplesPerFrame) % frameRate;
  } else {
    code.framesOrMilliseconds =
        static_cast<std::int32_t>(double(position % sampleRate) / double(sampleRate) * 1000.0);
  }
  const std::int32_t totalSeconds = position / sampleRate;
  code.hours = totalSeconds / 3600;
  code.minutes = (totalSeconds % 3600) / 60;
  code.seconds = totalSeconds % 60;
  return code;
}

float FromInt16(std::int16_t sample) { return Single(double(sample) / 32767.0); }

std::int16_t ToInt16(float sample) {
  if (sample != sample) return 0;
  if (sample < -1.0f) sample = -1.0f;
  if (sample > 1.0f) sample = 1.0f;
  return static_cast<std::int16_t>(double(sample) * 32767.0);
}

int ChunkFrames(int sampleRate) {
  return static_cast<int>(double(sampleRate) * 0.004999999888241291);
}

int MomentaryWindow(int sampleRate) {
  return static_cast<int>(Floor(Single(double(sampleRate) * 0.4000000059604645)));
}

int ShortTermWindow(int sampleRate) {
  return static_cast<int>(Floor(Single(double(sampleRate) * 3.0)));
}

int HopOf(int window, float overlap) {
  if (overlap == 0.0f) return 0;
  const float rest = Single(1.0 - double(overlap));
  return static_cast<int>(Floor(Single(double(rest) * double(window))));
}

int TimecodeFrameRate(float frameRate, bool hasVideo, std::uint32_t numerator,
                      std::uint32_t denominator) {
  if (frameRate == 1.0f) return hasVideo ? static_cast<int>(numerator / denominator) : 0;
  return static_cast<int>(double(frameRate) + 0.5);
}

KWeighting KWeightingOf(int sampleRate) {
  struct Row {
    int rate;
    float b0, b1, b2, a1, a2, secondA1, secondA2;
  };
  static const Row kRows[6] = {
      {44100, 1.5308412313461304f, -2.650979995727539f, 1.169079065322876f, -1.663655161857605f,
       0.7125954031944275f, -1.989169716835022f, 0.9891990423202515f},
      {48000, 1.5351248979568481f, -2.6916961669921875f, 1.1983928680419922f, -1.6906592845916748f,
       0.7324807643890381f, -1.9900474548339844f, 0.9900722503662109f},
      {88200, 1.5575153827667236f, -2.9056270122528076f, 1.361333966255188f, -1.8309199810028076f,
       0.8441422581672668f, -1.9945775270462036f, 0.994584858417511f},
      {96000, 1.5597141981124878f, -2.926741600036621f, 1.3782612085342407f, -1.8446094989776611f,
       0.8558433055877686f, -1.9950175285339355f, 0.995023787021637f},
      {176400, 1.5711153745651245f, -3.0365445613861084f, 1.4688715934753418f, -1.9153293371200562f,
       0.9187717437744141f, -1.9972869157791138f, 0.9972887635231018f},
      {192000, 1.5722272396087646f, -3.0472829341888428f, 1.4779713153839111f, -1.922202229499817f,
       0.9251177310943604f, -1.9975072145462036f, 0.9975087642669678f},
  };
  Row row = kRows[1];
  for (const Row& candidate : kRows) {
    if (candidate.rate == sampleRate) row = candidate;
  }
  KWeighting weighting{};
  weighting.first.a = {1.0f, row.a1, row.a2};
  weighting.first.b = {row.b0, row.b1, row.b2};
  weighting.second.a = {1.0f, row.secondA1, row.secondA2};
  weighting.second.b = {1.0f, -2.0f, 1.0f};
  return weighting;
}

std::vector<float> FilterBlock(const std::vector<float>& x, const Biquad& biquad,
                               std::vector<float>* pastInputs, std::vector<float>* pastOutputs) {
  std::vector<float> y;
  for (float sample : x) {
    pastInputs->push_back(sample);
    float acc = 0.0f;
    for (std::size_t j = 0; j < 3; ++j) {
      acc = AddedProduct(biquad.b[j], Past(*pastInputs, j), acc);
    }
    for (std::size_t j = 1; j < 3; ++j) {
      acc = AddedProduct(-biquad.a[j], Past(*pastOutputs, j - 1), acc);
    }
    y.push_back(acc);
    pastOutputs->push_back(acc);
  }
  return y;
}

std::vector<BlockPlace> BlockPlaces(int window, int hop, const std::vector<std::size_t>& lengths) {
  const std::size_t step = static_cast<std::size_t>(hop != 0 ? hop : window);
  const std::size_t length = static_cast<std::size_t>(window);
  std::vector<BlockPlace> places;
  std::size_t arrived = 0;
  std::size_t first = 0;
  for (std::size_t run = 0; run < lengths.size(); ++run) {
    arrived += lengths[run];
    // Deliberate: a block is finished by the first sample after it, not by its own last one.
    while (arrived > first + length) {
      places.push_back({first, run});
      first += step;
    }
  }
  return places;
}

std::vector<Block> OverlappingBlocks(int window, int hop, const std::vector<Run>& runs) {
  std::vector<float> joined;
  std::vector<std::size_t> lengths;
  for (const Run& run : runs) {
    joined.insert(joined.end(), run.samples.begin(), run.samples.end());
    lengths.push_back(run.samples.size());
  }
  std::vector<Block> blocks;
  for (const BlockPlace& place : BlockPlaces(window, hop, lengths)) {
    Block block;
    for (int i = 0; i < window; ++i) {
      block.samples.push_back(joined[place.first + static_cast<std::size_t>(i)]);
    }
    block.position = runs[place.run].position;
    blocks.push_back(block);
  }
  return blocks;
}

float WeightedPower(const float* block, std::size_t n, int channel) {
  float weight = 1.0f;
  if (channel == 3) weight = 0.0f;
  if (channel == 4 || channel == 5) weight = 1.409999966621399f;
  return Single(double(MeanSquare(block, n)) * double(weight));
}

float LoudnessOf(const std::vector<float>& powers) {
  float sum = 0.0f;
  for (float power : powers) sum = Single(double(sum) + double(power));
  return Single(double(Log10(sum)) * 10.0 + -0.6909999847412109);
}

float MeanPower(const std::vector<float>& loudnesses) {
  float sum = 0.0f;
  for (float loudness : loudnesses) {
    const float exponent = Single(double(loudness) / 10.0);
    sum = Single(double(Pow(10.0f, exponent)) + double(sum));
  }
  return Single(double(sum) / double(loudnesses.size()));
}

std::vector<SeriesUpdate> IntegratedSeries(const std::vector<float>& blocks, SeriesState* state) {
  std::vector<SeriesUpdate> updates;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (!TakeIntoSeries(blocks[i], 10.0, state)) continue;
    updates.push_back({i, Single(double(Log10(MeanPower(state->kept))) * 10.0)});
  }
  return updates;
}

std::vector<SeriesUpdate> RangeSeries(const std::vector<float>& blocks, SeriesState* state) {
  std::vector<SeriesUpdate> updates;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (!TakeIntoSeries(blocks[i], 20.0, state)) continue;
    std::sort(state->kept.begin(), state->kept.end());
    const float high = state->kept.at(PercentileIndex(state->kept.size(), 95.0));
    const float low = state->kept.at(PercentileIndex(state->kept.size(), 10.0));
    updates.push_back({i, Single(double(high) - double(low))});
  }
  return updates;
}

std::size_t PercentileIndex(std::size_t n, double percent) {
  // Deliberate: the added 1.0 stays although the index counts from zero.
  return static_cast<std::size_t>(Floor(Single(double(n - 1) * percent / 100.0 + 1.0)));
}

RecentRange RecentRangeOf(const std::vector<float>& shortTermBlocks) {
  std::vector<float> accepted;
  for (float loudness : shortTermBlocks) {
    if (-70.0f < loudness) accepted.push_back(loudness);
  }
  RecentRange range;
  if (accepted.empty()) return range;
  std::vector<float> cells(20, -70.0f);
  for (std::size_t i = 0; i < accepted.size(); ++i) cells[i % 20] = accepted[i];
  range.relativeGate = Single(double(Log10(MeanPower(cells))) * 10.0 - 20.0);
  std::vector<float> kept;
  for (float cell : cells) {
    if (cell > range.relativeGate) kept.push_back(cell);
  }
  std::sort(kept.begin(), kept.end());
  range.low = kept.at(0);
  range.high = kept.at(kept.size() - 1);
  return range;
}

std::vector<std::vector<float>> PolyphaseBankOf(int sampleRate) {
  const std::vector<float> phase0 = {0.001708984375f,  0.010986328125f,   -0.0196533203125f,
                                     0.033203125f,     -0.0594482421875f, 0.1373291015625f,
                                     0.97216796875f,   -0.102294921875f,  0.047607421875f,
                                     -0.026611328125f, 0.014892578125f,   -0.00830078125f};
  const std::vector<float> phase1 = {-0.0291748046875f, 0.029296875f,      -0.0517578125f,
                                     0.089111328125f,   -0.16650390625f,   0.465087890625f,
                                     0.77978515625f,    -0.2003173828125f, 0.1015625f,
                                     -0.0582275390625f, 0.0330810546875f,  -0.0189208984375f};
  const std::vector<float> phase2(phase1.rbegin(), phase1.rend());
  const std::vector<float> phase3(phase0.rbegin(), phase0.rend());
  if (sampleRate == 176400 || sampleRate == 192000) return {};
  if (sampleRate == 88200 || sampleRate == 96000) return {phase1, phase3};
  return {phase0, phase1, phase2, phase3};
}

std::vector<float> OversampleBlock(const std::vector<float>& x,
                                   const std::vector<std::vector<float>>& bank,
                                   std::vector<float>* past) {
  if (bank.empty()) return x;
  std::vector<float> y;
  for (float sample : x) {
    past->push_back(sample);
    for (const std::vector<float>& taps : bank) y.push_back(PhaseSum(taps, *past));
  }
  return y;
}

float TruePeakOfChunk(const std::vector<float>& chunk, const std::vector<std::vector<float>>& bank,
                      std::vector<float>* past) {
  std::vector<float> oversampled = OversampleBlock(chunk, bank, past);
  const std::size_t count = chunk.size() * bank.size();
  AbsInPlace(&oversampled, count);
  return Single(double(Log10(MaxOf(oversampled, count))) * 20.0);
}

float CoefficientOfTime(int sampleRate, float seconds) {
  if (seconds == 0.0f) return 0.0f;
  const float exponent = Single(-(1.0 / (double(sampleRate) * double(seconds))));
  return Pow(2.7182817459106445f, exponent);
}

LimiterSettings DefaultLimiterSettings(int sampleRate) {
  LimiterSettings settings;
  settings.attackCoefficient = CoefficientOfTime(sampleRate, 0.0f);
  settings.releaseCoefficient = CoefficientOfTime(sampleRate, 0.7f);
  return settings;
}

float PeakEstimate(const std::vector<float>& gained, const std::vector<std::vector<float>>& bank) {
  std::vector<float> sums;
  for (const std::vector<float>& taps : bank) sums.push_back(PhaseSum(taps, gained));
  AbsInPlace(&sums, sums.size());
  return MaxOf(sums, sums.size());
}

float StaticCurve(float level, const LimiterSettings& settings, float previous) {
  const double x = level;
  const double t = settings.threshold;
  const double r = settings.ratio;
  const double w = settings.knee;
  if (2.0 * (x - t) < -w) return level;
  if (2.0 * std::fabs(x - t) <= w) {
    const double inside = x - t + w / 2.0;
    return Single(x + (1.0 / r - 1.0) * (inside * inside) / (2.0 * w));
  }
  if (2.0 * (x - t) > w) return Single(t + (x - t) / r);
  return previous;
}

LimiterLevels NextLevels(const LimiterLevels& before, float peak, const LimiterSettings& settings) {
  LimiterLevels now = before;
  now.inputLevel = Single(20.0 * double(Log10(peak)));
  now.curveOutput = StaticCurve(now.inputLevel, settings, before.curveOutput);
  now.reduction = Single(double(now.inputLevel) - double(now.curveOutput));

  const double release = settings.releaseCoefficient;
  const float t =
      Single(release * double(before.peakHold) + (1.0 - release) * double(now.reduction));
  now.peakHold = t < now.reduction ? now.reduction : t;

  const double attack = settings.attackCoefficient;
  now.smoothed = Single(attack * double(before.smoothed) + (1.0 - attack) * double(now.peakHold));

  now.control = Single(double(settings.makeup) - double(now.smoothed));
  now.linearGain = Pow(10.0f, Single(double(now.control) / 20.0));
  return now;
}

Decision DecideGain(const Targets& targets, float integratedLoudness, float maxShortTerm,
                    float maxTruePeak) {
  Decision decision;
  if (targets.normalisationMode == 0) {
    decision.gainDb = Single(double(targets.loudness) - double(integratedLoudness));
  } else {
    decision.gainDb = Single(double(targets.shortTermLoudness) - double(maxShortTerm));
    if (decision.gainDb > 0.0f) decision.gainDb = 0.0f;
  }
  const float gainedPeak = Single(double(maxTruePeak) + double(decision.gainDb));
  decision.headroom = Single(double(targets.maxTp) - double(gainedPeak));
  decision.limiterNeeded = decision.headroom < 0.0f;
  decision.trackGain = Pow(10.0f, Single(double(decision.gainDb) / 20.0));
  decision.limiterThreshold = Single(double(targets.maxTp) - 0.20000000298023224);
  return decision;
}

Layout LayoutOf(int numberOfGroups, const int (&formats)[4]) {
  struct Format {
    int position[8];
    int trackOffset[8];
    std::vector<int> counts;
  };
  static const Format kFormats[8] = {
      {{0, -1, -1, -1, -1, -1, -1, -1}, {0, -1, -1, -1, -1, -1, -1, -1}, {1}},
      {{0, 1, -1, -1, -1, -1, -1, -1}, {0, 0, -1, -1, -1, -1, -1, -1}, {2}},
      {{0, 1, 0, 1, -1, -1, -1, -1}, {0, 0, 1, 1, -1, -1, -1, -1}, {2, 2}},
      {{0, 1, 0, 1, 0, 1, -1, -1}, {0, 0, 1, 1, 2, 2, -1, -1}, {2, 2, 2}},
      {{0, 1, 0, 1, 0, 1, 0, 1}, {0, 0, 1, 1, 2, 2, 3, 3}, {2, 2, 2, 2}},
      {{0, 1, 2, 3, 4, 5, -1, -1}, {0, 0, 0, 0, 0, 0, -1, -1}, {6}},
      {{0, 1, 2, 3, 4, 5, 0, 1}, {0, 0, 0, 0, 0, 0, 1, 1}, {6, 2}},
      {{0, 1, 0, 1, 2, 3, 4, 5}, {0, 0, 1, 1, 1, 1, 1, 1}, {2, 6}},
  };
  Layout layout;
  layout.trackOfChannel.fill(-1);
  layout.channelIndexInTrack.fill(-1);
  for (int group = 0; group < numberOfGroups; ++group) {
    if (group >= 4) {
      layout.pastLastGroup = true;
      return layout;
    }
    const int number = formats[group];
    if (number < 1 || number > 8) {
      layout.trackCount = -1;
      return layout;
    }
    const Format& format = kFormats[number - 1];
    for (int i = 0; i < 8; ++i) {
      const std::size_t channel = static_cast<std::size_t>(8 * group + i);
      layout.channelIndexInTrack[channel] = format.position[i];
      if (format.trackOffset[i] != -1) {
        layout.trackOfChannel[channel] = layout.trackCount + format.trackOffset[i];
      }
    }
    layout.trackCount += static_cast<int>(format.counts.size());
    for (int count : format.counts) layout.trackChannelCounts.push_back(count);
  }
  return layout;
}

bool LookupChannel(const Layout& layout, int channel, int* positionInTrack, int* track) {
  if (channel >= static_cast<int>(kTableChannels)) return false;
  const std::size_t entry = static_cast<std::size_t>(channel);
  if (layout.channelIndexInTrack[entry] == -1 || layout.trackOfChannel[entry] == -1) return false;
  *positionInTrack = layout.channelIndexInTrack[entry];
  *track = layout.trackOfChannel[entry];
  return true;
}

std::string TenthsText(float v) {
  const double n = double(RoundToTenth(v));
  char text[400];
  if (!(n > -1e20 && n < 1e20)) {
    std::snprintf(text, sizeof text, "%.1f", n);
    return text;
  }
  std::snprintf(text, sizeof text, "%.0f", std::floor(10.0 * std::fabs(n) + 0.5));
  std::string digits = text;
  if (digits.size() < 2) digits.insert(0, 1, '0');
  digits.insert(digits.size() - 1, 1, '.');
  return n < 0.0 ? "-" + digits : digits;
}

std::string TimeCodeText(std::int32_t position, std::int32_t frameRate, std::int32_t sampleRate) {
  const TimeCode code = SamplesToTimeCode(position, frameRate, sampleRate);
  return Padded(code.hours, 2) + ":" + Padded(code.minutes, 2) + ":" + Padded(code.seconds, 2) +
         ":" + Padded(code.framesOrMilliseconds, frameRate != 0 ? 2 : 3);
}

std::string RowText(const std::string& name, const std::string& pass, int startChannel,
                    int channelCount, const TrackValues& values, std::int32_t frameRate,
                    std::int32_t sampleRate) {
  std::string format = "Unspecified";
  if (channelCount == 1) format = "Mono";
  if (channelCount == 2) format = "Stereo";
  if (channelCount == 6) format = "5.1";
  std::string row = name;
  row += "," + pass;
  row += "," + std::to_string(startChannel);
  row += "," + std::to_string(startChannel + channelCount - 1);
  row += "," + format;
  row += "," + TenthsText(values.integratedLoudness);
  row += "," + TenthsText(values.loudnessRange);
  row += "," + TenthsText(values.maxTruePeak);
  row += "," + TimeCodeText(values.maxTruePeakPosition, frameRate, sampleRate);
  row += "," + TenthsText(values.maxShortTerm);
  row += "," + TimeCodeText(values.maxShortTermPosition, frameRate, sampleRate);
  row += "," + TenthsText(values.maxMomentary);
  row += "," + TimeCodeText(values.maxMomentaryPosition, frameRate, sampleRate);
  return row;
}

std::string HeaderText() {
  return "Name, Pass, StartingChannelIndex, EndChannelIndex, ChannelsFormat, Integrated Loudness, "
         "Loudness Range, Max True Peak, TC, Max ShortTerm Loudness, TC, Max Momentary Loudness, "
         "TC";
}

std::string DefaultEntryName(int hour, int minute, int second) {
  return "JobAt_" + std::to_string(HourOfTwelve(hour)) + ":" + std::to_string(minute) + ":" +
         std::to_string(second);
}

std::string DefaultFileName(int day, int month, int year) {
  return "Log" + std::to_string(day) + "_" + MonthName(month) + "_" + std::to_string(year) + ".csv";
}

std::string StartTimeText(int day, int month, int year, int hour, int minute, int second) {
  return std::to_string(day) + " " + MonthName(month) + " " + std::to_string(year) + " " +
         std::to_string(HourOfTwelve(hour)) + ":" + Padded(minute, 2) + ":" + Padded(second, 2) +
         (hour < 12 ? "am" : "pm");
}

std::string BannerBytes(const std::string& startTime) {
  return "\r\n" + std::string(58, '*') + "\r\n" + HeaderText() + "\n\r\n" +
         "Log started: " + startTime + "\r\n" + "\r\n";
}

std::string RowBytes(const std::string& row) { return row + "\n\r\n"; }

}  // namespace twin
