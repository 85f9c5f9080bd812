#ifndef HARVANE_PARAMETERS_CHANNELLAYOUTS_H
#define HARVANE_PARAMETERS_CHANNELLAYOUTS_H

namespace harvane {

inline constexpr int kMaxChannels = 32;
inline constexpr int kChannelsPerGroup = 8;
inline constexpr int kMaxGroups = kMaxChannels / kChannelsPerGroup;
inline constexpr int kNoTrack = -1;

// One way of dividing the eight channels of a group into tracks.
struct ChannelLayout {
  const char* name;                        // as the scheme labels it: "5.1+2"
  int positionInTrack[kChannelsPerGroup];  // from 0; kNoTrack for an unused channel
  int trackOffset[kChannelsPerGroup];      // from the group's first track; or kNoTrack
  int trackCount;                          // tracks that the group adds
  int channelCounts[4];                    // channels of each of them: 1, 2 or 6
};

inline constexpr int kFirstLayout = 1;
inline constexpr int kLastLayout = 8;

// The layout with the format number `format`, 1 to 8; null for any other.
// Constant data.
const ChannelLayout* FindChannelLayout(int format);

}  // namespace harvane

#endif  // HARVANE_PARAMETERS_CHANNELLAYOUTS_H
