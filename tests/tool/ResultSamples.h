#ifndef HARVANE_TESTS_TOOL_RESULTSAMPLES_H
#define HARVANE_TESTS_TOOL_RESULTSAMPLES_H

#include <cstdint>
#include <string>

#include "tool/FileResult.h"

namespace support {

// Results made by hand.

// A stereo track that was normalised, limited and judged: every field has a value.
harvane::TrackResult FullTrack();

// Of 25 s, with that track on channels 1 and 2 and a mono track on 3 that stayed as it was because
// nothing of it could be measured.
harvane::FileResult FullFile();

// Normalised to -23 LUFS +/- 0.5: FullFile, a file that could not be read and one that crashed.
harvane::RunResult FullRun();

// Loudness that rises and falls, with a pause, over `seconds`.
harvane::LoudnessSeries WavySeries(double seconds, float middle);

// Any values at all in every field, by `seed`: finite numbers of every size, texts with every
// character, empty and full lists. File names may be no UTF-8.
harvane::RunResult AnyRun(std::uint64_t seed);

// Every field of a run, its numbers by their bits, as text: two runs are the same where these are.
std::string Everything(const harvane::RunResult& run);

}  // namespace support

#endif  // HARVANE_TESTS_TOOL_RESULTSAMPLES_H
