#include "host/FileChunks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "host/FileAccess.h"

namespace harvane {
namespace {

constexpr std::int64_t kMostBytes = std::int64_t{64} * 1024 * 1024;
constexpr std::int64_t kLongestHead = 12;  // a CAF chunk's: id and 64 bits
// Where the length of the whole stands, and what it does not count.
constexpr std::int64_t kShortLengthPlace = 4;
constexpr std::int64_t kRf64LengthPlace = 20;
constexpr std::int64_t kNotCounted = 8;

bool IsKept(ChunkFamily family, std::string_view id) {
  constexpr std::string_view kRiff[] = {"iXML", "axml", "chna", "_PMX", "cart",
                                        "cue ", "smpl", "inst", "LIST"};
  constexpr std::string_view kAiff[] = {"MARK", "INST", "COMT", "iXML"};
  constexpr std::string_view kCaf[] = {"mark", "strg", "regn", "inst", "umid", "iXML"};
  const auto isAmong = [id](const auto& ids) {
    return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
  };
  switch (family) {
    case ChunkFamily::kNone:
      return false;
    case ChunkFamily::kRiff:
      return isAmong(kRiff);
    case ChunkFamily::kAiff:
      return isAmong(kAiff);
    case ChunkFamily::kCaf:
      break;
  }
  return isAmong(kCaf);
}

// The other type of LIST holds texts, which libsndfile reads and writes itself.
bool IsListOfTexts(const FileChunk& chunk) {
  return std::string_view(chunk.id.data(), chunk.id.size()) == "LIST" &&
         (chunk.data.size() < 4 || std::memcmp(chunk.data.data(), "adtl", 4) != 0);
}

void PutNumber(std::string* bytes, std::uint64_t value, int size, bool isBigEndian) {
  for (int i = 0; i < size; ++i) {
    const int place = isBigEndian ? size - 1 - i : i;
    bytes->push_back(static_cast<char>(value >> (8 * place) & 0xFF));
  }
}

bool IsRf64(int descriptor) {
  char magic[4];
  return ReadAt(descriptor, magic, sizeof magic, 0) == sizeof magic &&
         std::memcmp(magic, "RF64", sizeof magic) == 0;
}

std::string Written(const std::vector<FileChunk>& chunks, ChunkFamily family, bool isRf64) {
  std::string bytes;
  for (const FileChunk& chunk : chunks) {
    const bool isOdd = family != ChunkFamily::kCaf && chunk.data.size() % 2 != 0;
    // libsndfile does not pass over the odd byte in RF64: there it is part of the chunk.
    const bool isCounted = isOdd && isRf64;
    bytes.append(chunk.id.data(), chunk.id.size());
    PutNumber(&bytes, chunk.data.size() + (isCounted ? 1 : 0), family == ChunkFamily::kCaf ? 8 : 4,
              family != ChunkFamily::kRiff);
    bytes.append(chunk.data.begin(), chunk.data.end());
    if (isOdd) bytes.push_back(isCounted ? ' ' : '\0');
  }
  return bytes;
}

int WriteAllAt(int descriptor, const std::string& bytes, std::int64_t place) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const std::int64_t written = WriteAt(descriptor, bytes.data() + done, bytes.size() - done,
                                         place + static_cast<std::int64_t>(done));
    if (written < 0) return errno;
    done += static_cast<std::size_t>(written);
  }
  return 0;
}

int CorrectLength(int descriptor, ChunkFamily family, bool isRf64, std::int64_t fileBytes) {
  if (family == ChunkFamily::kCaf) return 0;
  std::string length;
  PutNumber(&length, static_cast<std::uint64_t>(fileBytes - kNotCounted), isRf64 ? 8 : 4,
            family == ChunkFamily::kAiff);
  return WriteAllAt(descriptor, length, isRf64 ? kRf64LengthPlace : kShortLengthPlace);
}

}  // namespace

std::vector<FileChunk> TakeChunks(SNDFILE* sound, ChunkFamily family, std::int64_t fileBytes) {
  std::vector<FileChunk> chunks;
  if (family == ChunkFamily::kNone) return chunks;
  std::int64_t room = std::min(kMostBytes, fileBytes);
  for (SF_CHUNK_ITERATOR* each = sf_get_chunk_iterator(sound, nullptr); each != nullptr;
       each = sf_next_chunk_iterator(each)) {
    SF_CHUNK_INFO found{};
    if (sf_get_chunk_size(each, &found) != SF_ERR_NO_ERROR) continue;
    // libsndfile tells the id with the data only.
    FileChunk chunk;
    unsigned char start[4] = {};
    SF_CHUNK_INFO head{};
    head.data = start;
    head.datalen = std::min<unsigned>(found.datalen, sizeof start);
    if (sf_get_chunk_data(each, &head) != SF_ERR_NO_ERROR) continue;
    std::copy_n(head.id, chunk.id.size(), chunk.id.begin());
    if (!IsKept(family, std::string_view(chunk.id.data(), chunk.id.size()))) continue;
    if (found.datalen > room) continue;
    chunk.data.resize(found.datalen);
    found.data = chunk.data.data();
    if (found.datalen > 0 && sf_get_chunk_data(each, &found) != SF_ERR_NO_ERROR) continue;
    if (IsListOfTexts(chunk)) continue;
    room -= found.datalen;
    chunks.push_back(std::move(chunk));
  }
  return chunks;
}

std::int64_t BytesOf(const std::vector<FileChunk>& chunks) {
  std::int64_t bytes = 0;
  for (const FileChunk& chunk : chunks) {
    bytes += kLongestHead + static_cast<std::int64_t>(chunk.data.size()) + 1;
  }
  return bytes;
}

int AppendChunks(int descriptor, const std::vector<FileChunk>& chunks, ChunkFamily family) {
  if (chunks.empty()) return 0;
  FileState state{};
  if (!ReadState(descriptor, &state)) return errno;
  const std::int64_t length = state.version.bytes;
  const bool isRf64 = IsRf64(descriptor);
  std::string bytes = Written(chunks, family, isRf64);
  // A chunk begins at an even place.
  if (family != ChunkFamily::kCaf && length % 2 != 0) bytes.insert(bytes.begin(), '\0');
  if (const int error = WriteAllAt(descriptor, bytes, length); error != 0) return error;
  return CorrectLength(descriptor, family, isRf64,
                       length + static_cast<std::int64_t>(bytes.size()));
}

}  // namespace harvane
