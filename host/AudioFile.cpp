#include "host/AudioFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>

#include "host/FileAccess.h"
#include "host/FileError.h"

namespace harvane {
namespace {

constexpr const char* kRightKinds = "a WAV, RF64, W64, AIFF, CAF or FLAC file would be right";
constexpr int kBytesPerSample = 2;
// Sizes in a WAV or AIFF header have 32 bits; room is left for what is not audio.
constexpr std::int64_t kLargestShortFile =
    std::numeric_limits<std::uint32_t>::max() - std::int64_t{1} * 1024 * 1024;
constexpr int kFlacChannels = 8;
// Blocks are as large as the caller asks for, within these limits.
constexpr std::size_t kLeastBlockSamples = 16384;
constexpr std::size_t kMostBlockSamples = 1048576;
// What waits between two threads.
constexpr std::size_t kWaitingSamples = 1048576;
constexpr std::size_t kLeastBlocks = 4;
constexpr std::size_t kMostBlocks = 64;
// So much is written before the system is told to bring it to the disk, so that the end does not
// have to wait for all of it.
constexpr sf_count_t kBytesToStart = sf_count_t{8} * 1024 * 1024;
constexpr std::size_t kCodingHistoryBytes = 8192;  // libsndfile takes less than 16384
constexpr std::int16_t kLoudnessNotIndicated = 0x7FFF;
constexpr double kMostHundredths = 9999.0;
constexpr std::uint32_t kMostCues = 1000;

using BroadcastInfo = SF_BROADCAST_INFO_VAR(kCodingHistoryBytes);

constexpr std::array kTextKinds = {SF_STR_TITLE,   SF_STR_COPYRIGHT,   SF_STR_ARTIST,
                                   SF_STR_COMMENT, SF_STR_DATE,        SF_STR_ALBUM,
                                   SF_STR_LICENSE, SF_STR_TRACKNUMBER, SF_STR_GENRE};

std::size_t BlocksOf(std::size_t samples) {
  return std::clamp(kWaitingSamples / std::max<std::size_t>(samples, 1), kLeastBlocks, kMostBlocks);
}

std::string FormatName(int format, int command) {
  SF_FORMAT_INFO name{};
  name.format = format;
  if (sf_command(nullptr, command, &name, sizeof name) != 0 || name.name == nullptr) {
    return fmt::format("coding {:#x}", static_cast<unsigned>(format));
  }
  return name.name;
}

// Bytes that a sample takes in a file; 0 where that is not a fixed number.
int BytesOf(int coding) {
  switch (coding) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
      return 1;
    case SF_FORMAT_PCM_16:
      return 2;
    case SF_FORMAT_PCM_24:
      return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
      return 4;
    case SF_FORMAT_DOUBLE:
      return 8;
    default:
      return 0;
  }
}

// libsndfile corrects what does not fit, or passes over it, and tells only its parse log.
bool HasWrongHeader(SNDFILE* sound, const SF_INFO& format) {
  constexpr std::size_t kLogBytes = 16384;
  std::string log(kLogBytes, '\0');
  sf_command(sound, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
  for (const char* sign : {"(should be ", "> file length", "not equal to frame count"}) {
    if (log.find(sign) != std::string::npos) return true;
  }
  const std::string blockSize = "Block Align   : ";
  const std::size_t start = log.find(blockSize);
  const int bytes = BytesOf(format.format & SF_FORMAT_SUBMASK);
  return start != std::string::npos && bytes != 0 &&
         std::atoi(log.c_str() + start + blockSize.size()) != bytes * format.channels;
}

// Why libsndfile has not opened a file; its own words where they mean something to a user.
std::string OpeningFailure() {
  std::string reason = sf_strerror(nullptr);
  if (reason.find("SF_INFO") != std::string::npos) {
    return "its header names an impossible sample rate, length or number of channels";
  }
  if (reason.find("internal error") != std::string::npos) return "its header is damaged";
  while (!reason.empty() && (reason.back() == '.' || reason.back() == '\n')) reason.pop_back();
  return reason;
}

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

int FormatFor(Container container, const AudioInfo& source) {
  switch (container) {
    case Container::kWav:
      return (source.isExtensible || !source.channelMap.empty() ? SF_FORMAT_WAVEX : SF_FORMAT_WAV) |
             SF_FORMAT_PCM_16;
    case Container::kRf64:
      return SF_FORMAT_RF64 | SF_FORMAT_PCM_16;
    case Container::kW64:
      return SF_FORMAT_W64 | SF_FORMAT_PCM_16;
    case Container::kAiff:
      return SF_FORMAT_AIFF | SF_FORMAT_PCM_16;
    case Container::kCaf:
      return SF_FORMAT_CAF | SF_FORMAT_PCM_16;
    case Container::kFlac:
      break;
  }
  return SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
}

ChunkFamily FamilyOf(Container container) {
  switch (container) {
    case Container::kWav:
    case Container::kRf64:
      return ChunkFamily::kRiff;
    case Container::kAiff:
      return ChunkFamily::kAiff;
    case Container::kCaf:
      return ChunkFamily::kCaf;
    case Container::kW64:
    case Container::kFlac:
      break;
  }
  return ChunkFamily::kNone;
}

bool IsLong(const AudioInfo& info, std::int64_t frames) {
  return frames > (kLargestShortFile - BytesOf(info.chunks)) /
                      (std::int64_t{kBytesPerSample} * info.channels);
}

}  // namespace

const char* ContainerName(Container container) {
  switch (container) {
    case Container::kWav:
      return "WAV";
    case Container::kRf64:
      return "RF64";
    case Container::kW64:
      return "W64";
    case Container::kAiff:
      return "AIFF";
    case Container::kCaf:
      return "CAF";
    case Container::kFlac:
      break;
  }
  return "FLAC";
}

const char* EndingOf(Container container) {
  switch (container) {
    case Container::kWav:
      return ".wav";
    case Container::kRf64:
      return ".rf64";
    case Container::kW64:
      return ".w64";
    case Container::kAiff:
      return ".aiff";
    case Container::kCaf:
      return ".caf";
    case Container::kFlac:
      break;
  }
  return ".flac";
}

std::optional<Container> ContainerOfName(const std::string& path) {
  constexpr std::pair<const char*, Container> kEndings[] = {
      {".wav", Container::kWav},   {".wave", Container::kWav},  {".bwf", Container::kWav},
      {".rf64", Container::kRf64}, {".w64", Container::kW64},   {".aif", Container::kAiff},
      {".aiff", Container::kAiff}, {".aifc", Container::kAiff}, {".caf", Container::kCaf},
      {".flac", Container::kFlac}};
  const std::string ending = Lowered(PathOf(path).extension().string());
  for (const auto& [known, container] : kEndings) {
    if (ending == known) return container;
  }
  return std::nullopt;
}

Container ContainerForName(const std::string& path, Container inherited) {
  const std::string ending = PathOf(path).extension().string();
  if (ending.empty()) return inherited;
  const std::optional<Container> known = ContainerOfName(path);
  if (known) return *known;
  throw FileError(path, "its name ends in \"" + ending +
                            "\"; .wav, .rf64, .w64, .aif, .aiff, .caf or .flac would be right");
}

bool CanHold(Container container, const AudioInfo& info, std::int64_t frames, std::string* reason) {
  if (container == Container::kFlac && info.channels > kFlacChannels) {
    *reason = fmt::format("FLAC holds {} channels at most; .wav would be right", kFlacChannels);
    return false;
  }
  if (container == Container::kAiff && IsLong(info, frames)) {
    *reason = "AIFF holds 4 GiB at most; .wav would be right";
    return false;
  }
  SF_INFO format{};
  format.samplerate = info.sampleRate;
  format.channels = info.channels;
  format.format = FormatFor(container, info);
  if (sf_format_check(&format) != SF_FALSE) return true;
  *reason = fmt::format("{} cannot hold {} channels at {} Hz", ContainerName(container),
                        info.channels, info.sampleRate);
  return false;
}

// ---- reading

AudioReader::AudioReader(const std::string& path)
    : path(path), descriptor(OpenForReading(path)), sound(nullptr, sf_close) {
  if (!descriptor.IsOpen()) throw FileError(path, "cannot be opened: " + SystemText(errno));
  FileState state{};
  if (!ReadState(descriptor.Number(), &state)) {
    throw FileError(path, "cannot be read: " + SystemText(errno));
  }
  if (state.kind == FileKind::kFolder) {
    throw FileError(path, "is a folder; an audio file would be right");
  }
  if (state.kind != FileKind::kRegular) {
    throw FileError(path, "is not a regular file, and cannot be read twice");
  }
  if (state.version.bytes == 0) {
    throw FileError(path, fmt::format("is empty; {}", kRightKinds));
  }
  identity = state.identity;
  version = state.version;
  SF_INFO format{};
  sound.reset(sf_open_fd(descriptor.Number(), SFM_READ, &format, SF_FALSE));
  if (!sound) {
    throw FileError(path,
                    fmt::format("cannot be read as audio: {}; {}", OpeningFailure(), kRightKinds));
  }
  TakeFormat(format);
  TakeTags();
  TakeMarkers();
}

AudioReader::~AudioReader() { StopReadingAhead(); }

void AudioReader::TakeFormat(const SF_INFO& format) {
  const int container = format.format & SF_FORMAT_TYPEMASK;
  switch (container) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
      info.container = Container::kWav;
      break;
    case SF_FORMAT_RF64:
      info.container = Container::kRf64;
      break;
    case SF_FORMAT_W64:
      info.container = Container::kW64;
      break;
    case SF_FORMAT_AIFF:
      info.container = Container::kAiff;
      break;
    case SF_FORMAT_CAF:
      info.container = Container::kCaf;
      break;
    case SF_FORMAT_FLAC:
      info.container = Container::kFlac;
      break;
    default:
      throw FileError(path, fmt::format("is of the kind \"{}\"; {}",
                                        FormatName(container, SFC_GET_FORMAT_INFO), kRightKinds));
  }
  info.isHeaderWrong = HasWrongHeader(sound.get(), format);
  info.isExtensible = container == SF_FORMAT_WAVEX;
  info.sampleRate = format.samplerate;
  info.channels = format.channels;
  info.frames = format.frames == SF_COUNT_MAX ? kUnknownFrames : format.frames;
  if (info.frames == 0) throw FileError(path, "is empty: it holds no frame of audio");

  const int coding = format.format & SF_FORMAT_SUBMASK;
  constexpr const char* kIntegerRule = "rounded to the nearest step, ties to even, no dither";
  switch (coding) {
    case SF_FORMAT_PCM_16:
      break;
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
      width = Width::kInteger;
      info.reduction = "8-bit samples become 16 bits, without a change of value";
      break;
    case SF_FORMAT_PCM_24:
      width = Width::kInteger;
      info.reduction = fmt::format("24-bit samples become 16 bits: {}", kIntegerRule);
      break;
    case SF_FORMAT_PCM_32:
      width = Width::kInteger;
      info.reduction = fmt::format("32-bit samples become 16 bits: {}", kIntegerRule);
      break;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
      width = Width::kFloat;
      info.reduction = fmt::format("{}-bit float samples become 16 bits: times 32768, {}, clipped",
                                   coding == SF_FORMAT_FLOAT ? 32 : 64, kIntegerRule);
      break;
    default:
      info.reduction = fmt::format("samples coded as \"{}\" are decoded to 16 bits",
                                   FormatName(coding, SFC_GET_FORMAT_INFO));
  }
}

void AudioReader::TakeTags() {
  info.channelMap.resize(static_cast<std::size_t>(info.channels));
  const auto mapBytes = static_cast<int>(info.channelMap.size() * sizeof(int));
  if (sf_command(sound.get(), SFC_GET_CHANNEL_MAP_INFO, info.channelMap.data(), mapBytes) ==
      SF_FALSE) {
    info.channelMap.clear();
  }
  for (const int kind : kTextKinds) {
    const char* const text = sf_get_string(sound.get(), kind);
    if (text != nullptr) info.texts.emplace_back(kind, text);
  }
  std::vector<unsigned char> broadcast(sizeof(BroadcastInfo));
  if (sf_command(sound.get(), SFC_GET_BROADCAST_INFO, broadcast.data(),
                 static_cast<int>(broadcast.size())) != SF_FALSE) {
    info.broadcast = std::move(broadcast);
  }
}

void AudioReader::TakeMarkers() {
  info.chunks = TakeChunks(sound.get(), FamilyOf(info.container), version.bytes);
  std::uint32_t count = 0;
  if (sf_command(sound.get(), SFC_GET_CUE_COUNT, &count, sizeof count) != SF_FALSE) {
    info.cues.resize(sizeof count + std::min(count, kMostCues) * sizeof(SF_CUE_POINT));
    if (sf_command(sound.get(), SFC_GET_CUE, info.cues.data(),
                   static_cast<int>(info.cues.size())) == SF_FALSE) {
      info.cues.clear();
    }
  }
  SF_INSTRUMENT instrument{};
  if (sf_command(sound.get(), SFC_GET_INSTRUMENT, &instrument, sizeof instrument) != SF_FALSE) {
    info.instrument = instrument;
  }
}

std::size_t AudioReader::Read(std::size_t maxFrames, std::vector<std::int16_t>* block) {
  const auto channels = static_cast<std::size_t>(info.channels);
  if (wantedFrames == 0) wantedFrames = maxFrames;
  std::size_t done = 0;
  while (done < maxFrames) {
    if (current == nullptr || handedOut == current->frames) {
      current = &NextBlock();
      handedOut = 0;
      if (current->frames == 0) break;
    }
    const std::size_t count = std::min(maxFrames - done, current->frames - handedOut);
    if (count == maxFrames && count == current->frames) {
      std::swap(current->samples, *block);
    } else {
      block->resize(maxFrames * channels);
      std::copy_n(current->samples.data() + handedOut * channels, count * channels,
                  block->data() + done * channels);
    }
    handedOut += count;
    done += count;
  }
  CheckUnchanged();
  position += static_cast<std::int64_t>(done);
  if (done == 0 && info.frames != kUnknownFrames && position < info.frames) {
    throw FileError(path, fmt::format("ends after {} of its {} frames", position, info.frames));
  }
  block->resize(done * channels);
  return done;
}

AudioReader::Block& AudioReader::NextBlock() {
  if (ahead && current != &first) ahead->Used();
  // A file of one block needs no thread.
  if (current != nullptr && !ahead) {
    ahead = std::make_unique<Handover<Block>>(
        BlocksOf(BlockFrames() * static_cast<std::size_t>(info.channels)),
        Handover<Block>::Waking::kEager);
    thread.Start([this] { FillAhead(); });
  }
  Block* next = &first;
  if (!thread.IsRunning()) {
    Fill(next);
  } else if (Block* const filled = ahead->ForUse(); filled != nullptr) {
    next = filled;
  } else {
    first.frames = 0;
    return first;
  }
  if (next->failure) std::rethrow_exception(next->failure);
  if (!next->error.empty()) {
    CheckUnchanged();
    throw FileError(path, fmt::format("cannot be read behind frame {}: {}", position, next->error));
  }
  counts.beyondFullScale += next->counts.beyondFullScale;
  counts.notNumbers += next->counts.notNumbers;
  return *next;
}

std::size_t AudioReader::BlockFrames() const {
  const auto channels = static_cast<std::size_t>(info.channels);
  const std::size_t samples =
      std::clamp(wantedFrames * channels, kLeastBlockSamples, kMostBlockSamples);
  return std::max<std::size_t>(samples / channels, 1);
}

void AudioReader::Fill(Block* block) {
  block->counts = {};
  block->error.clear();
  block->frames =
      static_cast<std::size_t>(ReadSamples(static_cast<sf_count_t>(BlockFrames()), block));
  if (sf_error(sound.get()) != SF_ERR_NO_ERROR) block->error = sf_strerror(sound.get());
}

void AudioReader::FillAhead() {
  while (Block* const block = ahead->ForFilling()) {
    try {
      Fill(block);
    } catch (...) {
      block->failure = std::current_exception();
    }
    const bool isLast = block->failure || !block->error.empty() || block->frames == 0;
    ahead->Filled();
    if (isLast) break;
  }
  ahead->End();
}

void AudioReader::StopReadingAhead() {
  if (ahead) ahead->Stop();
  thread.Join();
  ahead.reset();
  current = nullptr;
}

sf_count_t AudioReader::ReadSamples(sf_count_t frames, Block* block) {
  const auto samples = static_cast<std::size_t>(frames) * static_cast<std::size_t>(info.channels);
  const auto countOf = [this](sf_count_t read) {
    return static_cast<std::size_t>(read) * static_cast<std::size_t>(info.channels);
  };
  block->samples.resize(samples);
  std::int16_t* const target = block->samples.data();
  sf_count_t read = 0;
  switch (width) {
    case Width::kShort:
      read = sf_readf_short(sound.get(), target, frames);
      break;
    case Width::kInteger:
      integers.resize(samples);
      read = sf_readf_int(sound.get(), integers.data(), frames);
      ReduceIntegers(integers.data(), countOf(read), target);
      break;
    case Width::kFloat:
      floats.resize(samples);
      read = sf_readf_double(sound.get(), floats.data(), frames);
      ReduceFloats(floats.data(), countOf(read), target, &block->counts);
  }
  return read;
}

void AudioReader::Rewind() {
  StopReadingAhead();
  if (sf_seek(sound.get(), 0, SEEK_SET) != 0) {
    throw FileError(path, std::string("cannot be read again: ") + sf_strerror(sound.get()));
  }
  position = 0;
  counts = {};
}

void AudioReader::CheckUnchanged() const {
  FileState state{};
  if (!ReadState(descriptor.Number(), &state) || !(state.version == version)) {
    throw FileError(path, "was changed while it was being read");
  }
}

// ---- writing

// What libsndfile writes goes to the pending file by way of these functions, which
// note the first failure: the library itself drops those that come at its closing.
struct AudioWriter::Stream {
  PendingFile* file;
  int error = 0;
  sf_count_t unstarted = 0;  // bytes written since the system was told to bring them to the disk

  static Stream& Of(void* context) { return *static_cast<Stream*>(context); }
  template <class Result>
  Result Noted(Result result) {
    if (result < 0 && error == 0) error = errno;
    return result;
  }

  static sf_count_t Length(void* context) {
    FileState state{};
    Stream& stream = Of(context);
    const bool isRead = ReadState(stream.file->Number(), &state);
    return stream.Noted(isRead ? 0 : -1) < 0 ? 0 : state.version.bytes;
  }
  static sf_count_t Seek(sf_count_t offset, int whence, void* context) {
    Stream& stream = Of(context);
    return stream.Noted(SeekIn(stream.file->Number(), offset, whence));
  }
  static sf_count_t Read(void* bytes, sf_count_t count, void* context) {
    Stream& stream = Of(context);
    const auto got =
        stream.Noted(ReadFrom(stream.file->Number(), bytes, static_cast<std::size_t>(count)));
    return got < 0 ? 0 : got;
  }
  static sf_count_t Write(const void* bytes, sf_count_t count, void* context) {
    Stream& stream = Of(context);
    sf_count_t done = 0;
    while (done < count) {
      const std::int64_t written =
          WriteTo(stream.file->Number(), static_cast<const char*>(bytes) + done,
                  static_cast<std::size_t>(count - done));
      if (stream.Noted(written) < 0) break;
      done += written;
    }
    stream.unstarted += done;
    if (stream.unstarted >= kBytesToStart) {
      // Only a hint: the file is brought to the disk for certain when it gets its name.
      StartWriting(stream.file->Number());
      stream.unstarted = 0;
    }
    return done;
  }
  static sf_count_t Tell(void* context) {
    Stream& stream = Of(context);
    return stream.Noted(SeekIn(stream.file->Number(), 0, SEEK_CUR));
  }
};

std::int16_t BroadcastHundredths(const std::optional<double>& value) {
  if (!value) return kLoudnessNotIndicated;
  const double hundredths = std::round(*value * 100.0);
  // Also where it is no number.
  if (!(std::fabs(hundredths) <= kMostHundredths)) return kLoudnessNotIndicated;
  return static_cast<std::int16_t>(hundredths);
}

bool HasBroadcast(Container container) { return FamilyOf(container) == ChunkFamily::kRiff; }

AudioWriter::AudioWriter(PendingFile* file, Container container, const AudioInfo& source,
                         std::int64_t frames, BroadcastMode broadcastMode)
    : stream(new Stream{file}),
      sound(nullptr, sf_close),
      channels(static_cast<std::size_t>(source.channels)),
      family(FamilyOf(container)),
      broadcastMode(broadcastMode) {
  const bool isLong = container == Container::kWav && IsLong(source, frames);
  SF_INFO format{};
  format.samplerate = source.sampleRate;
  format.channels = source.channels;
  format.format = FormatFor(isLong ? Container::kRf64 : container, source);
  SF_VIRTUAL_IO io = {Stream::Length, Stream::Seek, Stream::Read, Stream::Write, Stream::Tell};
  sound.reset(sf_open_virtual(&io, SFM_WRITE, &format, stream.get()));
  if (!sound) {
    CheckStream();
    throw FileError(file->Path(), std::string("cannot be begun: ") + sf_strerror(nullptr));
  }
  if (FamilyOf(source.container) == family) chunks = source.chunks;
  if (HasBroadcast(container) && broadcastMode != BroadcastMode::kDrop) {
    broadcast = source.broadcast;
    if (broadcast.empty() && broadcastMode == BroadcastMode::kUpdate) {
      broadcast.resize(sizeof(BroadcastInfo));
    }
  }
  PutTags(source);
  PutBroadcast();
}

void AudioWriter::PutChannelMap(std::vector<int> map) {
  const auto isTaken = [this, &map] {
    return sf_command(sound.get(), SFC_SET_CHANNEL_MAP_INFO, map.data(),
                      static_cast<int>(map.size() * sizeof(int))) != SF_FALSE;
  };
  if (map.empty() || isTaken()) return;
  // AIFF and CAF know the two surround channels of 5.1 by one name only.
  if (std::find(map.begin(), map.end(), SF_CHANNEL_MAP_REAR_LEFT) != map.end()) return;
  std::replace<std::vector<int>::iterator, int>(map.begin(), map.end(), SF_CHANNEL_MAP_SIDE_LEFT,
                                                SF_CHANNEL_MAP_REAR_LEFT);
  std::replace<std::vector<int>::iterator, int>(map.begin(), map.end(), SF_CHANNEL_MAP_SIDE_RIGHT,
                                                SF_CHANNEL_MAP_REAR_RIGHT);
  isTaken();
}

void AudioWriter::PutTags(const AudioInfo& source) {
  // What the container does not have is dropped.
  for (const auto& [kind, text] : source.texts) sf_set_string(sound.get(), kind, text.c_str());
  PutChannelMap(source.channelMap);
  if (FamilyOf(source.container) == family) return;
  if (!source.cues.empty()) {
    std::vector<unsigned char> cues = source.cues;
    sf_command(sound.get(), SFC_SET_CUE, cues.data(), static_cast<int>(cues.size()));
  }
  if (source.instrument) {
    SF_INSTRUMENT instrument = *source.instrument;
    sf_command(sound.get(), SFC_SET_INSTRUMENT, &instrument, sizeof instrument);
  }
}

// The chunk has the same length each time, and its place before the samples.
void AudioWriter::PutBroadcast() {
  if (broadcast.empty()) return;
  BroadcastInfo info;
  std::memcpy(&info, broadcast.data(), sizeof info);
  info.loudness_value = BroadcastHundredths(loudness.integratedLoudness);
  info.loudness_range = BroadcastHundredths(loudness.loudnessRange);
  info.max_true_peak_level = BroadcastHundredths(loudness.maxTruePeak);
  info.max_momentary_loudness = BroadcastHundredths(loudness.maxMomentary);
  info.max_shortterm_loudness = BroadcastHundredths(loudness.maxShortTerm);
  sf_command(sound.get(), SFC_SET_BROADCAST_INFO, &info, sizeof info);
}

AudioWriter::~AudioWriter() {
  if (behind) behind->Stop();
  thread.Join();
}

void AudioWriter::Write(const std::int16_t* interleaved, std::size_t frames) {
  copied.assign(interleaved, interleaved + frames * channels);
  Write(&copied);
}

void AudioWriter::Write(std::vector<std::int16_t>* interleaved) {
  if (interleaved->empty()) return;
  // A file of one block needs no thread.
  if (isFirstWritten && !behind) {
    behind = std::make_unique<Handover<Block>>(BlocksOf(interleaved->size()),
                                               Handover<Block>::Waking::kLazy);
    thread.Start([this] { WriteBehind(); });
  }
  isFirstWritten = true;
  if (!thread.IsRunning()) {
    WriteBlock(*interleaved);
    return;
  }
  Block* const block = behind->ForFilling();
  if (block == nullptr) {
    EndThread();
    return;
  }
  std::swap(*block, *interleaved);
  behind->Filled();
}

void AudioWriter::WriteBehind() {
  try {
    while (const Block* const block = behind->ForUse()) {
      WriteBlock(*block);
      behind->Used();
    }
  } catch (...) {
    failure = std::current_exception();
    behind->Stop();
  }
}

void AudioWriter::WriteBlock(const Block& block) {
  const auto frames = static_cast<sf_count_t>(block.size() / channels);
  const bool isShort = sf_writef_short(sound.get(), block.data(), frames) != frames;
  CheckStream();
  if (isShort) {
    throw FileError(stream->file->Path(),
                    std::string("cannot be written: ") + sf_strerror(sound.get()));
  }
}

void AudioWriter::EndThread() {
  if (behind) behind->End();
  thread.Join();
  if (failure) std::rethrow_exception(failure);
}

void AudioWriter::Finish() {
  EndThread();
  if (broadcastMode == BroadcastMode::kUpdate) PutBroadcast();
  const int failed = sf_close(sound.release());
  CheckStream();
  if (failed != SF_ERR_NO_ERROR) {
    throw FileError(stream->file->Path(),
                    std::string("cannot be written: ") + sf_error_number(failed));
  }
  stream->error = AppendChunks(stream->file->Number(), chunks, family);
  CheckStream();
}

void AudioWriter::CheckStream() const {
  if (stream->error == 0) return;
  throw FileError(stream->file->Path(), "cannot be written: " + SystemText(stream->error));
}

}  // namespace harvane
