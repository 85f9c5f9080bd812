#ifndef HARVANE_HOST_JOBCHECKS_H
#define HARVANE_HOST_JOBCHECKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/AudioFile.h"

namespace harvane {

// Rates that the module has filters and peak tables for, in Hz, and the range in
// which others are taken with a warning.
inline constexpr int kModuleRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
inline constexpr int kLowestRate = 8000;
inline constexpr int kHighestRate = 384000;

// Frames of a unit that the hosts here deliver.
inline constexpr std::size_t kUnitFrames = 65536;

// By how much a limited track comes out late.
inline constexpr int kLimiterDelayFrames = 95;

// What a job has to be told or refused before the module sees it. Each throws
// FileError, naming `path`, where the job cannot be done; what is only to be said
// is appended to `notes`, one line each, without the file's name.
void CheckRate(const std::string& path, int rate, std::vector<std::string>* notes);
// The module counts the frames of a pass in a signed 32-bit number.
void CheckLength(const std::string& path, std::int64_t frames);
// `firstChannels` of 5.1 tracks whose six channels lie side by side, from 0.
void CheckSurroundOrder(const AudioInfo& info, const std::vector<int>& firstChannels,
                        std::vector<std::string>* notes);
// A header that does not fit, and samples that become 16 bits.
void NoteFile(const AudioInfo& info, std::vector<std::string>* notes);
// What was clipped on the way to 16 bits.
void NoteReduction(const ReductionCounts& counts, std::vector<std::string>* notes);

// True where the mark SF_CHANNEL_MAP_* stands for one of L R C LFE Ls Rs at its
// place, 0 to 5, in a 5.1 track.
bool IsSurroundPlace(int place, int mark);

// True at 176400 and 192000 Hz, where a limited track ends the process.
bool IsQuadRate(int rate);

// "95 frames (1.979 ms)"
std::string LimiterDelayText(int sampleRate);

// What a result code of an export says, in a few words.
const char* MeaningOfResult(std::uint32_t code);

}  // namespace harvane

#endif  // HARVANE_HOST_JOBCHECKS_H
