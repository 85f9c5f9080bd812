#include "tool/TargetSearch.h"

#include <algorithm>
#include <cmath>

namespace harvane {
namespace {

// Aimed at below the ceiling, so that the next trial does not end just above it again.
constexpr double kPeakMarginDb = 0.02;
// Room under the ceiling that is worth using.
constexpr double kUsefulRoomDb = 0.1;
// Of the slope, LU that come out for one that is asked for; the limiter never gives more than one.
constexpr double kUsualSlope = 0.7;
constexpr double kLowestSlope = 0.15;
constexpr double kLongestStepLu = 6.0;
// Beyond this a track is crushed rather than normalised.
constexpr double kMostRaiseLu = 20.0;
constexpr double kSmallestChange = 1e-3;

}  // namespace

TargetSearch::TargetSearch(NormalisationMode mode, double loudness, double maxTruePeak)
    : mode(mode),
      target(loudness),
      ceiling(maxTruePeak),
      next{loudness, maxTruePeak},
      slope(kUsualSlope) {}

void TargetSearch::Report(const std::vector<Found>& found) {
  ++trials;
  if (found.empty()) {
    isDone = true;
    return;
  }
  Trial trial{next, 0.0, 0.0, ceiling - found.front().truePeak, false};
  double least = target - found.front().loudness;
  double most = least;
  for (const Found& one : found) {
    const double missed = target - one.loudness;
    least = std::min(least, missed);
    most = std::max(most, missed);
    trial.room = std::min(trial.room, ceiling - one.truePeak);
  }
  if (mode == NormalisationMode::kMaxShortTerm) {
    least = std::min(least, 0.0);
    most = std::min(most, 0.0);
  }
  trial.centre = (least + most) / 2.0;
  trial.missed = std::abs(least) > std::abs(most) ? least : most;
  trial.isReached = std::abs(trial.missed) <= kConvergenceLu && trial.room >= 0.0;
  if (trial.room < 0.0) {
    const double past = next.maxTruePeak;
    lowestPast = lowestPast ? std::min(*lowestPast, past) : past;
  }
  if (!best || IsBetter(trial)) best = trial;
  isDone = trial.isReached || trials >= kMostTrials;
  if (!isDone) Step(trial);
  last = trial;
}

// Under the ceiling comes before near to the target.
bool TargetSearch::IsBetter(const Trial& trial) const {
  const double past = std::max(-trial.room, 0.0);
  const double bestPast = std::max(-best->room, 0.0);
  if (past != bestPast) return past < bestPast;
  return std::abs(trial.missed) < std::abs(best->missed);
}

void TargetSearch::Step(const Trial& trial) {
  // Only trials under the same ceiling tell how the loudness follows.
  if (last && last->parameters.maxTruePeak == trial.parameters.maxTruePeak) {
    const double asked = trial.parameters.loudness - last->parameters.loudness;
    if (std::abs(asked) > kSmallestChange) slope = (last->centre - trial.centre) / asked;
  }
  const bool isSaturated = slope < kLowestSlope;
  const double step = std::clamp(trial.centre / std::clamp(slope, kLowestSlope, 1.0),
                                 -kLongestStepLu, kLongestStepLu);
  Parameters stepped = trial.parameters;
  stepped.loudness = std::min(stepped.loudness + step, target + kMostRaiseLu);
  const bool isAtEnd = stepped.loudness - trial.parameters.loudness < kSmallestChange;
  if (trial.room < 0.0) {
    stepped.maxTruePeak += trial.room - kPeakMarginDb;
  } else if (trial.centre > 0.0 && (isSaturated || isAtEnd) && trial.room > kUsefulRoomDb) {
    const double raised = stepped.maxTruePeak + trial.room - kPeakMarginDb;
    stepped.maxTruePeak =
        lowestPast ? std::min(raised, (stepped.maxTruePeak + *lowestPast) / 2.0) : raised;
    stepped.loudness = trial.parameters.loudness;
    slope = kUsualSlope;
  }
  isDone = std::abs(stepped.loudness - trial.parameters.loudness) < kSmallestChange &&
           std::abs(stepped.maxTruePeak - trial.parameters.maxTruePeak) < kSmallestChange;
  next = stepped;
}

}  // namespace harvane
