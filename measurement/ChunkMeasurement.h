#ifndef HARVANE_MEASUREMENT_CHUNKMEASUREMENT_H
#define HARVANE_MEASUREMENT_CHUNKMEASUREMENT_H

namespace harvane {

class LoudnessMeter;

// One channel with a chunk to be measured.
struct ChannelChunk {
  LoudnessMeter* meter;
  int channel;           // its position in the meter's track
  const float* samples;  // unweighted, full scale 1.0
};

// K-weights `n` samples of each of `count` channels, in the order of the list,
// and feeds their meters: what FilterBlock for both stages, FeedMomentary and
// FeedShortTerm do for one channel, for several side by side. `n` must be below
// the hop of the shortest window. The meters' callbacks run inside, with
// `position` in frames. Thread: that of the meters.
void WeightAndFeed(const ChannelChunk* chunks, int count, int n, int position);

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_CHUNKMEASUREMENT_H
