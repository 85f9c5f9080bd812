// The slow twin: a second, naive statement of every kernel of the normaliser.
//
// Plain loops over plain vectors, written to be obviously right rather than fast, and sharing
// nothing with the product: tables are typed a second time. Tests compare the product with it
// bit for bit.
//
// Shapes     a history is a vector of past samples, oldest first; samples before its start are
//            0.0. A function that takes a history by reference appends what it consumed.
// Units      samples: full scale 1.0. Loudness: LUFS. Peaks and limiter levels: dB.
//            Positions: frames since the start of the pass.
// Rounding   a running sum of products takes each term exactly and is rounded to float once
//            after it (AddedProduct); other formulas are worked in double and stored as float.
//            Build with -msse2 -mfpmath=sse -ffp-contract=off.
// NaN        the payload and sign of a NaN are the compiler's choice: compare NaN as NaN.
// Thread     pure functions, no shared state.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace twin {

// ---- mathematical library, in single precision in and out

// a * b + sum, rounded once from its exact value.
float AddedProduct(float a, float b, float sum);

float Floor(float v);
float Log10(float v);
float Abs(float v);
float Pow(float base, float exponent);

// ---- stateless arithmetic

// Mean of the squares of `n` samples; `n` above 0.
float MeanSquare(const float* x, std::size_t n);

// Negates exactly what compares below 0.0: -0.0 and NaN stay.
void AbsInPlace(std::vector<float>* x, std::size_t n);

// Largest of the first `n`, starting from x[0] whatever `n` is; `x` is never empty.
float MaxOf(const std::vector<float>& x, std::size_t n);

// To tenths, halves towards plus infinity.
float RoundToTenth(float v);

struct TimeCode {
  std::int32_t framesOrMilliseconds = 0;
  std::int32_t seconds = 0;
  std::int32_t minutes = 0;
  std::int32_t hours = 0;
};

// `frameRate` in whole frames a second, 0 for milliseconds; at most `sampleRate` (Hz, above 0).
TimeCode SamplesToTimeCode(std::int32_t position, std::int32_t frameRate, std::int32_t sampleRate);

// A 16-bit sample as float, and back: clamped, then truncated towards zero. NaN gives 0.
float FromInt16(std::int16_t sample);
std::int16_t ToInt16(float sample);

// ---- rates

// Frames of one measurement chunk, just under 5 ms.
int ChunkFrames(int sampleRate);
// Frames of the 0.4 s and of the 3 s window.
int MomentaryWindow(int sampleRate);
int ShortTermWindow(int sampleRate);
// Frames dropped after a block; 0 means that blocks don't overlap.
int HopOf(int window, float overlap);
// `frameRate` of exactly 1.0 takes the video's rate, 0 without a video.
int TimecodeFrameRate(float frameRate, bool hasVideo, std::uint32_t numerator,
                      std::uint32_t denominator);

// ---- K-weighting

struct Biquad {
  std::array<float, 3> a;  // a[0] is never used
  std::array<float, 3> b;
};

struct KWeighting {
  Biquad first;   // high shelf
  Biquad second;  // high pass
};

// Row of 48000 for an unknown rate.
KWeighting KWeightingOf(int sampleRate);

// Direct form I over one block. Both histories grow by x.size().
std::vector<float> FilterBlock(const std::vector<float>& x, const Biquad& biquad,
                               std::vector<float>* pastInputs, std::vector<float>* pastOutputs);

// ---- overlapping blocks

struct Run {
  std::vector<float> samples;
  int position = 0;
};

struct Block {
  std::vector<float> samples;
  int position = 0;
};

// Where a block lies in the joined runs, and the run that finished it.
struct BlockPlace {
  std::size_t first = 0;
  std::size_t run = 0;
};

// Blocks that a gatherer finishes over runs of these lengths. `window` above 0; `hop` from 0 to
// `window`.
std::vector<BlockPlace> BlockPlaces(int window, int hop, const std::vector<std::size_t>& lengths);

// The same with samples, each block with the position of the run that finished it.
std::vector<Block> OverlappingBlocks(int window, int hop, const std::vector<Run>& runs);

// ---- loudness

// Weighted mean square of one channel's block; `channel` is the position in the track.
float WeightedPower(const float* block, std::size_t n, int channel);

// Loudness of one block from the channels' weighted powers, in order of arrival.
float LoudnessOf(const std::vector<float>& powers);

// Power mean of loudnesses; `loudnesses` not empty. The result is a power.
float MeanPower(const std::vector<float>& loudnesses);

// What a gated series knows after a list of blocks.
struct SeriesState {
  std::vector<float> accepted;
  std::vector<float> kept;  // newest twice, if it passed both gates
  float relativeGate = -70.0f;
};

struct SeriesUpdate {
  std::size_t block = 0;  // index in the list given
  float value = 0.0f;
};

// Feeds blocks to a series: the running values in order, one for each block that passes both
// gates. `state` goes on from where it stands.
std::vector<SeriesUpdate> IntegratedSeries(const std::vector<float>& blocks, SeriesState* state);
std::vector<SeriesUpdate> RangeSeries(const std::vector<float>& blocks, SeriesState* state);

// Index of a percentile in a sorted list of `n`.
std::size_t PercentileIndex(std::size_t n, double percent);

struct RecentRange {
  float low = 0.0f;  // 0.0 as long as no block was accepted
  float high = 0.0f;
  float relativeGate = -70.0f;
};

// Recent range after all the 3 s blocks of a sequence so far, in order.
RecentRange RecentRangeOf(const std::vector<float>& shortTermBlocks);

// ---- true peak

// One coefficient list per phase, none at 176400 and 192000. A rate outside the six is treated
// as 48000, which is this project's choice.
std::vector<std::vector<float>> PolyphaseBankOf(int sampleRate);

// Oversampled block, phases of a sample side by side. Without phases a copy of `x`, and the
// history stays as it is.
std::vector<float> OversampleBlock(const std::vector<float>& x,
                                   const std::vector<std::vector<float>>& bank,
                                   std::vector<float>* past);

// Peak of one chunk in dB. Without phases the chunk's first sample, signed.
float TruePeakOfChunk(const std::vector<float>& chunk, const std::vector<std::vector<float>>& bank,
                      std::vector<float>* past);

// ---- limiter

struct LimiterSettings {
  float attackCoefficient = 0.0f;
  float releaseCoefficient = 0.0f;
  float threshold = -1.0f;
  float ratio = 100.0f;
  float knee = 12.0f;
  float makeup = 0.0f;
};

// All levels in dB but for `linearGain`.
struct LimiterLevels {
  float inputLevel = 0.0f;
  float curveOutput = 0.0f;
  float reduction = 0.0f;
  float peakHold = 0.0f;
  float smoothed = 0.0f;
  float control = 0.0f;
  float linearGain = 0.0f;
};

constexpr std::size_t kLookAheadFrames = 12;
constexpr std::size_t kDelayFrames = 95;

float CoefficientOfTime(int sampleRate, float seconds);
LimiterSettings DefaultLimiterSettings(int sampleRate);

// Peak over the phases at the newest sample of `gained`; `bank` not empty.
float PeakEstimate(const std::vector<float>& gained, const std::vector<std::vector<float>>& bank);

// `previous` is the result for a level that is not a number.
float StaticCurve(float level, const LimiterSettings& settings, float previous);

// One frame's walk from a linear peak to `linearGain`.
LimiterLevels NextLevels(const LimiterLevels& before, float peak, const LimiterSettings& settings);

// ---- gain decision

struct Decision {
  float gainDb = 0.0f;
  float headroom = 0.0f;
  float trackGain = 0.0f;  // linear
  bool limiterNeeded = false;
  float limiterThreshold = 0.0f;
};

struct Targets {
  int normalisationMode = 0;
  float loudness = 0.0f;
  float shortTermLoudness = 0.0f;
  float maxTp = 0.0f;
};

Decision DecideGain(const Targets& targets, float integratedLoudness, float maxShortTerm,
                    float maxTruePeak);

// ---- layouts

constexpr std::size_t kTableChannels = 32;

struct Layout {
  int trackCount = 0;          // -1: a used group has a format outside 1 to 8
  bool pastLastGroup = false;  // more than four groups: the process ends
  std::vector<int> trackChannelCounts;
  std::array<int, kTableChannels> trackOfChannel{};
  std::array<int, kTableChannels> channelIndexInTrack{};
};

Layout LayoutOf(int numberOfGroups, const int (&formats)[4]);

// False for a channel of no track.
bool LookupChannel(const Layout& layout, int channel, int* positionInTrack, int* track);

// ---- log text

// The measured values of one track and pass.
struct TrackValues {
  float maxMomentary = -70.0f;
  std::int32_t maxMomentaryPosition = 0;
  float maxShortTerm = -70.0f;
  std::int32_t maxShortTermPosition = 0;
  float integratedLoudness = -70.0f;
  float loudnessRange = -70.0f;
  float maxTruePeak = -70.0f;
  std::int32_t maxTruePeakPosition = 0;
};

std::string TenthsText(float v);
std::string TimeCodeText(std::int32_t position, std::int32_t frameRate, std::int32_t sampleRate);

// One row without its line end.
std::string RowText(const std::string& name, const std::string& pass, int startChannel,
                    int channelCount, const TrackValues& values, std::int32_t frameRate,
                    std::int32_t sampleRate);

std::string HeaderText();
// `hour` 0 to 23.
std::string DefaultEntryName(int hour, int minute, int second);
// `month` 1 to 12; with the extension.
std::string DefaultFileName(int day, int month, int year);
std::string StartTimeText(int day, int month, int year, int hour, int minute, int second);
// All bytes of a new file before its first row.
std::string BannerBytes(const std::string& startTime);
// A row as it stands in the file.
std::string RowBytes(const std::string& row);

}  // namespace twin
