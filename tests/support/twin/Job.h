// The slow twin of a whole job: samples in, samples, measured values and log rows out.
//
// Every pass is worked out at once over whole streams instead of frame by frame. For 60 s of
// stereo at 48000 Hz expect a few seconds and some tens of megabytes.
//
// Input      16-bit samples, channels interleaved, whole frames only.
// Ranges     sampleRate from 200 Hz, so that a chunk has at least one frame; channels from 1.
// Carried    over between passes of a sequence: filter and oversampling histories, the recent
//            range, the relative gates, channel values of an unfinished block. Between sequences
//            only the gain decisions live on.
// Thread     one caller at a time for one Job.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/twin/Kernels.h"

namespace twin {

// Where the method departs from the published one. A test that takes a departure back shows what
// it does to a value, and that nothing else does.
struct Departures {
  // Maxima look at the windows of the gated series only, a quarter of a window apart. Taken back,
  // they look at windows every 10 ms (momentary) and every 100 ms (short-term).
  bool maximaOfSeriesOnly = true;
};

struct JobSpec {
  int sampleRate = 48000;
  int channels = 2;
  int numberOfPasses = 2;
  int numberOfGroups = 1;
  int formats[4] = {2, 2, 2, 2};
  int normalisationMode = 0;
  float loudness = -23.0f;
  float shortTermLoudness = -20.0f;
  float maxTp = -1.0f;
  float frameRate = 0.0f;
  std::string entryName;
  Departures departures;

  // Video information of the host, used with a frameRate of exactly 1.0.
  bool hasVideo = false;
  std::uint32_t frameRateNumerator = 0;
  std::uint32_t frameRateDenominator = 1;

  // Local time for the default name, used with an empty entryName.
  int hour = 0;
  int minute = 0;
  int second = 0;
};

struct MeterValue {
  float value = 0.0f;
  int position = 0;
};

// One track after one pass: what stands in the track's measurement when its row is formed, and
// what the meter holds inside.
struct TrackReport {
  TrackValues values;
  float recentLow = 0.0f;
  float recentHigh = 0.0f;
  float integratedRelativeGate = -70.0f;
  float rangeRelativeGate = -70.0f;
  float limiterPeakHold = 0.0f;       // dB
  std::vector<MeterValue> momentary;  // every 0.4 s block of the pass
  std::vector<MeterValue> shortTerm;  // every 3 s block of the pass
  // The windows that the maxima look at: the blocks, unless that departure is taken back.
  std::vector<MeterValue> momentaryLooks;
  std::vector<MeterValue> shortTermLooks;
};

struct PassResult {
  bool endsProcess = false;  // nothing else is filled in then
  std::vector<TrackReport> tracks;
  std::vector<std::int16_t> output;  // interleaved; empty in the first pass of two
  std::vector<std::string> rows;     // without line ends; none if numberOfPasses is not 1 or 2
};

struct JobResult {
  bool endsProcess = false;      // what was reached before stands in the other fields
  bool sequenceRefused = false;  // the sequence start answers 3
  int blockSize = 0;             // frames of a chunk
  int timecodeFrameRate = 0;
  Layout layout;
  std::vector<std::vector<TrackReport>> passes;  // per pass and track
  std::vector<Decision> decisions;               // per track, after the first pass of two
  std::vector<float> limiterFinalPeakHold;       // per track, after the last pass, dB
  std::vector<std::int16_t> output;              // of the last pass, interleaved
  std::vector<std::string> rows;                 // of all passes, in order
};

// One instance with its parameters and format set, over any number of sequences.
class Job {
 public:
  enum class Start { kStarted, kRefused, kEndsProcess };

  explicit Job(const JobSpec& jobSpec);

  Start StartSequence();

  // Delivers `input` as pass `passNumber` and ends the pass; after a Start of kStarted only.
  //
  // Ends the process: a limited track without phases; a second pass before any decision; a
  // second pass with fewer channels than the tracks have, as the search for the track's peak
  // then leaves the frame's list.
  PassResult RunPass(int passNumber, const std::vector<std::int16_t>& input);

  const Layout& GetLayout() const { return layout; }
  const std::vector<Decision>& GetDecisions() const { return decisions; }
  int GetBlockSize() const { return blockSize; }
  int GetTimecodeFrameRate() const { return timecodeFrameRate; }

 private:
  struct ChannelState {
    std::vector<float> firstInputs, firstOutputs;    // newest samples of stage 1
    std::vector<float> secondInputs, secondOutputs;  // newest samples of stage 2
    std::vector<float> peakPast;                     // newest samples of the oversampler
    std::vector<float> weighted;                     // since the gatherers were last reset
    std::vector<float> gained;                       // all limiter input of the sequence
  };

  // The blocks of one window length.
  struct SeriesOfBlocks {
    int window = 0;
    int hop = 0;
    std::size_t reported = 0;            // blocks per channel already handed on since the reset
    std::vector<float> pendingPowers{};  // of a block that waits for further channels
    int pendingPosition = 0;
  };

  struct TrackState {
    TrackReport report;
    std::vector<ChannelState> channels;
    std::vector<std::size_t> present;  // positions in the track that the stream has
    std::vector<int> runPositions;     // chunks since the gatherers were last reset
    int mode = 0;
    SeriesOfBlocks momentary;
    SeriesOfBlocks shortTerm;
    SeriesOfBlocks momentaryLooks;
    SeriesOfBlocks shortTermLooks;
    SeriesState integratedSeries;
    SeriesState rangeSeries;
    std::vector<float> shortTermOfSequence;
    LimiterSettings limiter;
    LimiterLevels limiterLevels;
  };

  bool SecondPassEndsProcess() const;
  void Process(const std::vector<std::vector<float>>& input,
               std::vector<std::vector<float>>* output);
  void MeasureTrack(std::size_t track, const std::vector<std::vector<float>>& stream);
  std::vector<MeterValue> NewBlocks(TrackState* track, SeriesOfBlocks* series) const;
  void SetMode(TrackState* track, int mode) const;
  std::vector<std::string> Rows(const std::string& passName) const;
  void DecideGains();

  JobSpec spec;
  Layout layout;
  int blockSize;
  int timecodeFrameRate;
  std::vector<std::vector<float>> bank;
  std::vector<TrackState> tracks;
  std::vector<Decision> decisions;
};

// One sequence with all its passes, the same input in each.
JobResult RunJob(const JobSpec& spec, const std::vector<std::int16_t>& interleavedInput);

}  // namespace twin
