#ifndef HARVANE_TESTS_MEASUREMENT_METERTWIN_H
#define HARVANE_TESTS_MEASUREMENT_METERTWIN_H

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "measurement/LoudnessMeter.h"
#include "tests/measurement/RecentRangeTwin.h"
#include "tests/support/Bits.h"
#include "tests/support/twin/Kernels.h"

// What a meter reports, and a second, naive statement of a whole meter that reports the same.

namespace measurement_tests {

// The track of every meter here.
inline constexpr int kTrack = 7;

enum class Kind { kMomentary, kShortTerm, kIntegrated, kRange, kRecent };

struct Event {
  Kind kind;
  float value;
  float high;  // recent range only
  int position;
  int track;
};

inline std::string Text(const Event& event) {
  static const char* const kNames[] = {"momentary", "short-term", "integrated", "range", "recent"};
  return std::string(kNames[static_cast<int>(event.kind)]) + " " + support::Show(event.value) +
         " " + support::Show(event.high) + " at " + std::to_string(event.position) + " of track " +
         std::to_string(event.track);
}

inline bool Same(const Event& a, const Event& b) {
  return a.kind == b.kind && support::SameBits(a.value, b.value) &&
         support::SameBits(a.high, b.high) && a.position == b.position && a.track == b.track;
}

inline testing::AssertionResult SameEvents(const std::vector<Event>& wanted,
                                           const std::vector<Event>& got) {
  for (std::size_t i = 0; i < wanted.size() && i < got.size(); ++i) {
    if (!Same(wanted[i], got[i])) {
      return testing::AssertionFailure()
             << "event " << i << ": wanted " << Text(wanted[i]) << ", came " << Text(got[i]);
    }
  }
  if (wanted.size() == got.size()) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << wanted.size() << " events wanted, " << got.size() << " came";
}

// All that a meter reports, in order.
struct Listener {
  std::vector<Event> events;

  static void Add(Kind kind, float value, int position, int track, void* context) {
    static_cast<Listener*>(context)->events.push_back({kind, value, 0.0F, position, track});
  }
  static void OnMomentary(float value, int position, int track, void* context) {
    Add(Kind::kMomentary, value, position, track, context);
  }
  static void OnShortTerm(float value, int position, int track, void* context) {
    Add(Kind::kShortTerm, value, position, track, context);
  }
  static void OnIntegrated(float value, int position, int track, void* context) {
    Add(Kind::kIntegrated, value, position, track, context);
  }
  static void OnRange(float value, int position, int track, void* context) {
    Add(Kind::kRange, value, position, track, context);
  }
  static void OnRecentRange(float low, float high, void* context) {
    static_cast<Listener*>(context)->events.push_back({Kind::kRecent, low, high, 0, kTrack});
  }

  std::vector<Event> Of(Kind kind) const {
    std::vector<Event> some;
    for (const Event& event : events) {
      if (event.kind == kind) some.push_back(event);
    }
    return some;
  }
};

inline constexpr harvane::MeterCallbacks kAllCallbacks = {
    Listener::OnMomentary, Listener::OnShortTerm, Listener::OnIntegrated, Listener::OnRange,
    Listener::OnRecentRange};

// One of the two series of a meter, worked out from whole streams.
class SeriesTwin {
 public:
  SeriesTwin(int window, int channels)
      : window(window), hop(twin::HopOf(window, 0.75F)), streams(std::size_t(channels)) {}

  void Reset() {
    for (Stream& stream : streams) stream = Stream();
  }

  // Loudness and position of each block that this run completes.
  std::vector<harvane::MeterValue> Feed(int channel, const std::vector<float>& run, int position) {
    std::vector<harvane::MeterValue> blocks;
    if (channel >= static_cast<int>(streams.size())) return blocks;
    Stream& stream = streams[static_cast<std::size_t>(channel)];
    stream.joined.insert(stream.joined.end(), run.begin(), run.end());
    stream.lengths.push_back(run.size());
    for (const twin::BlockPlace& place : twin::BlockPlaces(window, hop, stream.lengths)) {
      if (place.run + 1 != stream.lengths.size()) continue;
      powers.push_back(twin::WeightedPower(stream.joined.data() + place.first,
                                           static_cast<std::size_t>(window), channel));
      positions.push_back(position);
      if (powers.size() != streams.size()) continue;
      blocks.push_back({twin::LoudnessOf(powers), positions[0]});
      powers.clear();
      positions.clear();
    }
    return blocks;
  }

 private:
  struct Stream {
    std::vector<float> joined;
    std::vector<std::size_t> lengths;
  };

  int window;
  int hop;
  std::vector<Stream> streams;
  std::vector<float> powers;
  std::vector<int> positions;
};

class MeterTwin {
 public:
  MeterTwin(int sampleRate, int channels)
      : momentary(twin::MomentaryWindow(sampleRate), channels),
        shortTerm(twin::ShortTermWindow(sampleRate), channels) {}

  void SetMode(int newMode) {
    if (newMode != mode) {
      momentary.Reset();
      shortTerm.Reset();
    }
    mode = newMode;
  }

  void ClearSeries() {
    integrated.accepted.clear();
    range.accepted.clear();
  }

  void FeedMomentary(int channel, const std::vector<float>& run, int position) {
    for (const harvane::MeterValue& block : momentary.Feed(channel, run, position)) {
      Report(Kind::kMomentary, block.value, block.position);
      if (mode != harvane::LoudnessMeter::kGated) continue;
      for (const twin::SeriesUpdate& update : twin::IntegratedSeries({block.value}, &integrated)) {
        Report(Kind::kIntegrated, update.value, 0);
      }
    }
  }

  void FeedShortTerm(int channel, const std::vector<float>& run, int position) {
    for (const harvane::MeterValue& block : shortTerm.Feed(channel, run, position)) {
      Report(Kind::kShortTerm, block.value, block.position);
      shortTermBlocks.push_back(block.value);
      if (-70.0F < block.value) {
        const std::optional<twin::RecentRange> recent = RecentRangeTwin(shortTermBlocks);
        if (recent) events.push_back({Kind::kRecent, recent->low, recent->high, 0, kTrack});
      }
      if (mode != harvane::LoudnessMeter::kGated) continue;
      for (const twin::SeriesUpdate& update : twin::RangeSeries({block.value}, &range)) {
        Report(Kind::kRange, update.value, 0);
      }
    }
  }

  std::vector<Event> events;

 private:
  void Report(Kind kind, float value, int position) {
    events.push_back({kind, value, 0.0F, position, kTrack});
  }

  SeriesTwin momentary;
  SeriesTwin shortTerm;
  int mode = 0;
  twin::SeriesState integrated;
  twin::SeriesState range;
  std::vector<float> shortTermBlocks;
};

// The K-weighting of one channel.
struct WeightingTwin {
  std::vector<float> pasts[4];

  std::vector<float> Run(const std::vector<float>& x, const twin::KWeighting& row) {
    return twin::FilterBlock(twin::FilterBlock(x, row.first, &pasts[0], &pasts[1]), row.second,
                             &pasts[2], &pasts[3]);
  }
};

}  // namespace measurement_tests

#endif  // HARVANE_TESTS_MEASUREMENT_METERTWIN_H
