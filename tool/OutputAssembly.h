#ifndef HARVANE_TOOL_OUTPUTASSEMBLY_H
#define HARVANE_TOOL_OUTPUTASSEMBLY_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace harvane {

// Frames of a file whose channels come from several places, each with a delay of its own.
//
// Samples    signed 16-bit. Errors: std::bad_alloc. Thread: one caller at a time.
class OutputAssembly {
 public:
  // By channel of the file: how many samples at the start are dropped. Of each channel `length`
  // samples are taken after those; what comes later is dropped as well.
  OutputAssembly(const std::vector<int>& skips, std::int64_t length);

  // The next `count` samples of a channel, `stride` samples apart.
  void Take(std::size_t channel, const std::int16_t* samples, std::size_t stride,
            std::size_t count);

  // Replaces `frames` by those that every channel has come to and that were not handed out
  // before, interleaved. Returns how many.
  std::size_t Hand(std::vector<std::int16_t>* frames);

 private:
  struct Channel {
    std::size_t skip;        // samples still to be dropped
    std::int64_t left;       // samples still to be taken
    std::size_t filled = 0;  // frames of `waiting` that have it
  };
  std::vector<Channel> channels;
  std::vector<std::int16_t> waiting;  // interleaved
};

}  // namespace harvane

#endif  // HARVANE_TOOL_OUTPUTASSEMBLY_H
