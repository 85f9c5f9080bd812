#ifndef HARVANE_HOST_CHANNELMAP_H
#define HARVANE_HOST_CHANNELMAP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace harvane {

// A layout as the user writes it: the groups' formats by the names of the
// scheme, separated by commas, one to four of them: "5.1+2", "2+2,5.1". Blanks
// do not count. Returns the format numbers; throws std::invalid_argument with a
// line that says what is wrong.
std::vector<int> ParseLayout(const std::string& text);

// The layout as the user would write it.
std::string LayoutText(const std::vector<int>& groupFormats);

// The one layout that a file of so many channels stands for by itself: 1 mono,
// 2 stereo, 6 surround. Empty for any other number.
std::vector<int> AutomaticLayout(int fileChannels);

// The layouts of one group that take so many channels: "5.1 or 2+2+2". Empty if
// there is none.
std::string LayoutsFor(int fileChannels);

// Where the channels of a file go in the module's row of channels.
//
// The file's channels are those of the tracks, one after the other, without a
// gap. In the module each group begins at a multiple of eight; a channel there
// that belongs to no track is fed with silence, and what comes back on it is
// dropped. The row ends with the last channel in use.
//
// Samples    signed 16-bit, interleaved, frames of FileChannels or
//            ModuleChannels samples.
// Errors     std::bad_alloc. Thread: a map is constant.
class ChannelMap {
 public:
  // `groupFormats` as ParseLayout gives them.
  explicit ChannelMap(const std::vector<int>& groupFormats);

  int FileChannels() const { return static_cast<int>(moduleChannel.size()); }
  int ModuleChannels() const { return moduleChannels; }
  // The module's channel of a channel of the file.
  int ModuleChannelOf(int fileChannel) const {
    return moduleChannel[static_cast<std::size_t>(fileChannel)];
  }
  // True if both rows are the same, so that nothing needs to be moved.
  bool IsIdentity() const { return moduleChannels == FileChannels(); }
  // Positions in the file's row of the first channel of each 5.1 track.
  const std::vector<int>& SurroundTracks() const { return surroundTracks; }

  // Replaces `row` by the module's frames for the file's.
  void Expand(const std::int16_t* file, std::size_t frames, std::vector<std::int16_t>* row) const;
  // Replaces `file` by the file's frames for the module's.
  void Extract(const std::int16_t* row, std::size_t frames, std::vector<std::int16_t>* file) const;

 private:
  std::vector<int> moduleChannel;  // by channel of the file
  std::vector<int> surroundTracks;
  int moduleChannels = 0;
};

}  // namespace harvane

#endif  // HARVANE_HOST_CHANNELMAP_H
