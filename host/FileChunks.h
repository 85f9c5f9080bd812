#ifndef HARVANE_HOST_FILECHUNKS_H
#define HARVANE_HOST_FILECHUNKS_H

#include <sndfile.h>

#include <array>
#include <cstdint>
#include <vector>

namespace harvane {

// Kinds of chunk that an audio file is made of.
enum class ChunkFamily {
  kNone,  // W64 and FLAC, whose chunks libsndfile does not show
  kRiff,  // WAV and RF64
  kAiff,
  kCaf,
};

// A chunk beside the audio that is carried over byte by byte into a file of the same family.
struct FileChunk {
  std::array<char, 4> id;
  std::vector<unsigned char> data;
};

// The chunks of an open file that stay right when only the samples' values change, in their order:
//
// RIFF       iXML, axml, chna, _PMX (XMP), cart, cue, smpl, inst, LIST of the type adtl (labels)
// AIFF       MARK, INST, COMT, iXML
// CAF        mark, strg, regn, inst, umid, iXML
//
// Chunks of more than 64 MiB together are left out. `fileBytes`: the file's length; what claims
// to be longer is left out as well. The place in the file where samples are read stays.
std::vector<FileChunk> TakeChunks(SNDFILE* sound, ChunkFamily family, std::int64_t fileBytes);

// Bytes that the chunks take in a file.
std::int64_t BytesOf(const std::vector<FileChunk>& chunks);

// Puts `chunks` behind all else in a complete file and corrects the length in its head. In RF64 a
// chunk of odd length gets a space at its end: libsndfile would not find what stands behind it.
// `descriptor` is open for reading and writing, at any place. Returns an errno, 0 for success.
int AppendChunks(int descriptor, const std::vector<FileChunk>& chunks, ChunkFamily family);

}  // namespace harvane

#endif  // HARVANE_HOST_FILECHUNKS_H
