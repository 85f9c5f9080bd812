#ifndef HARVANE_HOST_AUDIOFILE_H
#define HARVANE_HOST_AUDIOFILE_H

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/BackgroundThread.h"
#include "host/FileChunks.h"
#include "host/Handover.h"
#include "host/PendingFile.h"
#include "host/SampleReduction.h"

namespace harvane {

// Kinds of file that are read and written.
enum class Container { kWav, kRf64, kW64, kAiff, kCaf, kFlac };

const char* ContainerName(Container container);

// The ending that a container's files have: ".wav".
const char* EndingOf(Container container);

// The container that the ending of a file name stands for, in any case: .wav, .wave and .bwf,
// .rf64, .w64, .aif, .aiff and .aifc, .caf, .flac; empty for all other names.
std::optional<Container> ContainerOfName(const std::string& path);

// The container that the name of an output asks for; without an ending `inherited`. Throws
// FileError for an ending that ContainerOfName does not know.
Container ContainerForName(const std::string& path, Container inherited);

// What a file says about its audio.
struct AudioInfo {
  int sampleRate;       // Hz
  int channels;         // at least 1
  std::int64_t frames;  // as declared; kUnknownFrames if the file does not say
  Container container;
  bool isExtensible;                               // a WAV file with a channel mask
  std::vector<int> channelMap;                     // SF_CHANNEL_MAP_*; empty if there is none
  std::vector<std::pair<int, std::string>> texts;  // SF_STR_* and value
  std::vector<unsigned char> broadcast;            // SF_BROADCAST_INFO; empty if there is none
  std::vector<FileChunk> chunks;                   // what is carried over as it stands
  std::vector<unsigned char> cues;                 // SF_CUES, for another family of chunks
  std::optional<SF_INSTRUMENT> instrument;         // the same
  bool isHeaderWrong;     // it does not fit what is in the file; that is what counts
  std::string reduction;  // how the samples become 16 bits; empty if they have 16
};

inline constexpr std::int64_t kUnknownFrames = -1;

// An audio file as interleaved 16-bit frames.
//
// Samples of other widths are reduced as SampleReduction.h says; a compressed
// coding (A-law, ADPCM) gives what its decoder makes of it in 16 bits.
//
// Errors     FileError: one line with the file, what is wrong and, where it helps,
//            what would be right.
// Thread     one caller at a time. A file of more than one block is read ahead on a thread of
//            its own, by a few blocks; without such a thread it is read by the caller's.
class AudioReader {
 public:
  explicit AudioReader(const std::string& path);
  ~AudioReader();
  AudioReader(const AudioReader&) = delete;
  AudioReader& operator=(const AudioReader&) = delete;

  const AudioInfo& Info() const { return info; }
  const FileIdentity& Identity() const { return identity; }

  // Replaces `block` by the next frames, `maxFrames` at most, and returns how
  // many: 0 at the end. Throws where the file ends before its declared length
  // or was changed since it was opened. Costs least with the same `maxFrames`
  // and vector each time: then nothing is copied.
  std::size_t Read(std::size_t maxFrames, std::vector<std::int16_t>* block);

  // Back to the first frame.
  void Rewind();

  // Of all that was read since the latest Rewind.
  const ReductionCounts& Counts() const { return counts; }

 private:
  enum class Width { kShort, kInteger, kFloat };

  // Frames as they come from the file; after an error those before it.
  struct Block {
    std::vector<std::int16_t> samples;
    std::size_t frames = 0;
    ReductionCounts counts;
    std::string error;
    std::exception_ptr failure;
  };

  sf_count_t ReadSamples(sf_count_t frames, Block* block);
  std::size_t BlockFrames() const;
  void Fill(Block* block);
  void FillAhead();
  Block& NextBlock();
  void StopReadingAhead();
  void TakeFormat(const SF_INFO& format);
  void TakeTags();
  void TakeMarkers();
  void CheckUnchanged() const;

  std::string path;
  Descriptor descriptor;
  FileIdentity identity{};
  FileVersion version{};
  std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> sound;
  AudioInfo info{};
  Width width = Width::kShort;
  std::int64_t position = 0;  // frames since the start
  ReductionCounts counts;
  // Of whichever thread reads the file.
  std::vector<std::int32_t> integers;
  std::vector<double> floats;

  std::size_t wantedFrames = 0;  // by the first Read
  Block* current = nullptr;      // being handed out
  std::size_t handedOut = 0;     // its frames that were
  Block first;                   // and every other one, where nothing is read ahead
  std::unique_ptr<Handover<Block>> ahead;
  BackgroundThread thread;
};

// True if `container` can hold so many frames in 16 bits; else `reason` says in a
// few words why not. A long WAV file becomes RF64 by itself.
bool CanHold(Container container, const AudioInfo& info, std::int64_t frames, std::string* reason);

// What becomes of a broadcast chunk, "bext" of EBU Tech 3285, in WAV and RF64. It is written as
// version 2 always, the first with loudness fields.
enum class BroadcastMode {
  kKeep,    // kept; the loudness fields say "not indicated", for they spoke of the source
  kUpdate,  // kept or begun, with the loudness fields that SetLoudness gives
  kDrop,
};

// Loudness of a whole file for its broadcast chunk: LUFS, LU, dBTP; empty where not measured.
struct BroadcastLoudness {
  std::optional<double> integratedLoudness;
  std::optional<double> loudnessRange;
  std::optional<double> maxTruePeak;
  std::optional<double> maxMomentary;
  std::optional<double> maxShortTerm;
};

// As the chunk has it: hundredths, ties away from zero; 0x7FFF ("not indicated") where there is
// no value or one outside of -99.99 to 99.99.
std::int16_t BroadcastHundredths(const std::optional<double>& value);

// True where `container` has a broadcast chunk.
bool HasBroadcast(Container container);

// A 16-bit audio file that is being written into a PendingFile.
//
// Keeps rate, channels, channel map, texts and broadcast chunk of the source, as far as the
// container has them; the chunks that FileChunks.h lists where source and target are of one
// family; else cue points, without their labels, and the instrument, into a WAV file.
//
// Errors     FileError, also for a full disk; it may come with a later call than the frames that
//            did not fit.
// Thread     one caller at a time. What is more than one block is written by a thread of its own,
//            a few blocks behind; without such a thread by the caller's.
class AudioWriter {
 public:
  // `file` must outlive the writer. `frames`: how many will be written.
  AudioWriter(PendingFile* file, Container container, const AudioInfo& source, std::int64_t frames,
              BroadcastMode broadcastMode = BroadcastMode::kKeep);
  ~AudioWriter();
  AudioWriter(const AudioWriter&) = delete;
  AudioWriter& operator=(const AudioWriter&) = delete;

  // Takes whole frames and leaves other memory in place of theirs, whose contents are of no use.
  void Write(std::vector<std::int16_t>* interleaved);
  void Write(const std::int16_t* interleaved, std::size_t frames);
  // For BroadcastMode::kUpdate; without effect otherwise. Any time before Finish.
  void SetLoudness(const BroadcastLoudness& values) { loudness = values; }
  // Completes the file; PendingFile::Commit then shows it.
  void Finish();

 private:
  struct Stream;
  using Block = std::vector<std::int16_t>;

  void WriteBlock(const Block& block);
  void WriteBehind();
  void EndThread();
  void PutTags(const AudioInfo& source);
  void PutChannelMap(std::vector<int> map);
  void PutBroadcast();
  void CheckStream() const;

  std::unique_ptr<Stream> stream;
  std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> sound;
  std::size_t channels;
  ChunkFamily family;
  std::vector<FileChunk> chunks;
  BroadcastMode broadcastMode;
  std::vector<unsigned char> broadcast;  // SF_BROADCAST_INFO; empty where none is written
  BroadcastLoudness loudness;
  Block copied;
  bool isFirstWritten = false;
  std::exception_ptr failure;  // of the thread, to be seen when it has ended
  std::unique_ptr<Handover<Block>> behind;
  BackgroundThread thread;
};

}  // namespace harvane

#endif  // HARVANE_HOST_AUDIOFILE_H
