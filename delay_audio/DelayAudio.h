#ifndef HARVANE_DELAY_AUDIO_DELAYAUDIO_H
#define HARVANE_DELAY_AUDIO_DELAYAUDIO_H

#include <cstdint>
#include <string>
#include <vector>

#include "delay_audio/HostRecords.h"
#include "delay_audio/PassObserver.h"
#include "measurement/LoudnessMeter.h"
#include "measurement/SampleMath.h"
#include "measurement/TrackMeasurement.h"
#include "measurement/TruePeakMeter.h"
#include "normalisation/TruePeakLimiter.h"
#include "parameters/ChannelLayouts.h"
#include "platform/CheckedList.h"

namespace harvane {

// One job of the host: its parameters, its format, and all state of its passes
// over the audio. The exports forward to it.
//
// Channels   0 to 31 may belong to tracks; a track number is the index into
//            every list per track. Frame: one sample of every channel. Chunk:
//            `blockSize` samples of one channel, the unit of measuring.
// Units      samples: floats with full scale 1.0, 32767.0 steps of the host's
//            16 bits for both signs. Positions: frames since the pass began;
//            behind 2147483647 (12.4 hours at 48000 Hz) they go on from
//            -2147483648.
// Order      as in Exports.h; it is not checked.
// Errors     PluginException, std::logic_error, std::runtime_error,
//            std::bad_alloc; nothing is rolled back. A list index out of range
//            ends the process.
// Thread     one caller at a time; no locks.
class DelayAudio {
 public:
  DelayAudio();
  // Deliberate: frees the members only. The track objects and scratch arrays go
  // with EndSequence, or not at all.
  ~DelayAudio() = default;
  DelayAudio(const DelayAudio&) = delete;
  DelayAudio& operator=(const DelayAudio&) = delete;

  // Parameters. `xml` is NUL-terminated UTF-8. Throws std::runtime_error where
  // it is not well-formed, PluginException with code 4 where a value is missing,
  // ComError where there is no XML reader.
  static InfoBuffer* GetParameterScheme();
  void SetParameter(const char* xml);
  // Number of tracks, or -1 for a format that is not 1 to 8 in a group in use.
  // `groupFormats` has an entry for each group; a fifth group ends the process.
  int SetupChannelTables(int numberOfGroups, CheckedList<int> groupFormats);
  // False, and nothing stored, for a channel of no track. `channel` >= 0.
  bool LookupChannel(int channel, int* positionInTrack, int* track) const {
    if (channel >= kMaxChannels) return false;
    const int position = channelIndexInTrack[channel];
    const int owner = trackOfChannel[channel];
    if (position == kNoTrack || owner == kNoTrack) return false;
    *positionInTrack = position;
    *track = owner;
    return true;
  }

  // Format. The records made go to the caller; the records taken are released
  // as the last step of a success.
  static InfoBuffer* EnumInputInfo();
  void SetInputInfo(InfoBuffer* info);
  InfoBuffer* EnumOutputInfo() const;
  void SetOutputInfo(InfoBuffer* info);
  InfoBuffer* GetErrorMessage();

  // Sequence and passes.
  void StartSequence();
  void StartPass(std::uint32_t passNumber);
  void DeliverPcmUnit(PcmUnit* unit, std::uint32_t* outFlag);
  void FetchPcmUnit(PcmUnit** outUnit, std::uint32_t* outFlag);
  void EndPass();
  void EndSequence();

  // Track objects.
  void CreateTrackObjects();
  void ResetTrackObjects();
  // Measures the full accumulator of channel `c`, which is position `k` of
  // track `t`, at the position of the present frame.
  void MeasureChunk(int c, int k, int t);

  // A channel of a track: its number, its position in the track, the track's.
  struct MeasuredChannel {
    int c;
    int k;
    int t;
  };
  // The same for several channels whose accumulators are full at this frame.
  void MeasureChunks(const MeasuredChannel* channels, int count);

  // Between the passes, and in the second one.
  void DecideGains();
  void ProcessFrame(const PcmUnit& unit, std::uint32_t s);

  // `frames` >= 1 frames from `s` on, of a unit that has them, none of which but
  // the last may fill an accumulator.
  void ProcessFrames(const PcmUnit& unit, std::uint32_t s, std::uint32_t frames,
                     const MeasuredChannel* channels, int count);

  // Queues one row per track with the values of the pass. A row that memory is lacking
  // for is lost, and is no failure.
  void LogPass(const std::string& passName);

  void SetObserver(PassObserver newObserver) { observer = newObserver; }

  // Sample `s` of channel `c`, rounded to single precision. -32768 lies just
  // past full scale.
  static float ReadSample(const PcmUnit& unit, std::uint32_t s, int c);
  // The same for `count` samples from `s` on.
  static void ReadSamples(const PcmUnit& unit, std::uint32_t s, std::uint32_t count, int c,
                          float* out);
  // The same for `channelCount` channels: each into its entry of `outs`.
  static void ReadFrames(const PcmUnit& unit, std::uint32_t s, std::uint32_t count,
                         const MeasuredChannel* channels, int channelCount, float* const* outs);

  // The state of a job, for tests and for a program that links the instance in.
  const CheckedList<TrackMeasurement>& Results() const { return results; }
  const CheckedList<float>& TrackGains() const { return trackGains; }
  const CheckedFlags& LimiterNeeded() const { return limiterNeeded; }
  const CheckedList<LoudnessMeter*>& Meters() const { return meters; }
  const CheckedList<TruePeakLimiter*>& Limiters() const { return limiters; }
  const CheckedList<int>& TrackChannelCounts() const { return trackChannelCounts; }

 private:
  friend class DelayAudioProbe;  // tests read members that no operation gives out

  using SampleLists = CheckedList<CheckedList<float>>;

  void DeliverFirstOfTwo(const PcmUnit& unit);
  void DeliverSinglePass(const PcmUnit& unit);
  void DeliverSecondOfTwo(const PcmUnit& unit);
  // The channels of tracks among those of the format, in order. `channels`
  // takes kMaxChannels entries; the result is their number.
  int FindMeasuredChannels(MeasuredChannel* channels) const;
  // Frames, `frames` at most, until the first of the accumulators is full.
  std::uint32_t FramesToFullChunk(const MeasuredChannel* channels, int count,
                                  std::uint32_t frames) const;
  // Room for `frames` frames more in the input lists of `channels`, and in the output
  // lists of all channels, before any of them takes a sample: where memory is
  // exhausted none runs ahead of the others.
  void MakeInputRoom(const MeasuredChannel* channels, int count, std::uint32_t frames);
  void MakeOutputRoom(std::uint32_t frames);
  // Counts `frames` >= 1 frames that every accumulator has taken, and measures
  // the chunks that the last of them filled.
  void FinishFrames(const MeasuredChannel* channels, int count, std::uint32_t frames);
  static void EmptyEach(SampleLists* accumulators);
  void LogTrack(const std::string& passName, std::size_t t, int startChannel, int endChannel);
  int ChannelCount() const { return static_cast<int>(inputFormat.channels); }

  static void OnMomentary(float value, int position, int track, void* context);
  static void OnShortTerm(float value, int position, int track, void* context);
  static void OnIntegrated(float value, int position, int track, void* context);
  static void OnRange(float value, int position, int track, void* context);
  static void OnTruePeak(float value, int position, int track, void* context);

  CheckedList<TrackMeasurement> results;
  LpcmPayload inputFormat{};
  VidePayload videoInfo{};
  std::string sourceFileName;  // filled for the host's sake; nothing reads it
  std::string targetFilePath;  // the same
  std::string logPath;
  std::string logFileName;
  std::string logEntryName;
  int numberOfPasses;
  std::uint32_t currentPass;
  std::string lastErrorText;
  float frameRate;
  float Loudness;                 // LUFS
  float ShortTermLoudness;        // LUFS
  float MaxTP;                    // dBTP
  CheckedList<float> trackGains;  // linear
  SampleMath sampleMath;
  CheckedList<LoudnessMeter*> meters;          // owned from StartSequence to EndSequence
  CheckedList<TruePeakMeter*> truePeakMeters;  // the same
  CheckedList<TruePeakLimiter*> limiters;      // the same
  std::uint32_t blockSize;                     // samples
  int sampleRate;                              // Hz
  int timecodeFrameRate;                       // whole video frames per second, 0 for none
  CheckedList<int> trackChannelCounts;
  float* truePeakScratch;          // a chunk and the samples before it; owned like the meters
  SampleLists inputAccumulators;   // per channel: the chunk that is being gathered
  SampleLists outputAccumulators;  // per channel: what waits for FetchPcmUnit
  int normalisationMode;
  CheckedFlags limiterNeeded;
  int sampleCounter;  // frames of this pass
  int channelIndexInTrack[kMaxChannels];
  int trackOfChannel[kMaxChannels];
  int numberOfGroups;
  int trackCount;

  std::vector<float> frameScratch;  // of one ProcessFrames call; kept for its memory
  PassObserver observer;            // none in the module
};

}  // namespace harvane

#endif  // HARVANE_DELAY_AUDIO_DELAYAUDIO_H
