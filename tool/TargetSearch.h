#ifndef HARVANE_TOOL_TARGETSEARCH_H
#define HARVANE_TOOL_TARGETSEARCH_H

#include <optional>
#include <vector>

#include "host/ParameterDocument.h"

namespace harvane {

// How near a track has to come to its target, in LU, and how many jobs are tried.
inline constexpr double kConvergenceLu = 0.1;
inline constexpr int kMostTrials = 12;

// The search for the two parameters with which a limited track comes out as it was asked for.
//
// The limiter has a soft knee of 12 dB and a release of 0.7 s, so a track comes out below its
// target, by more the more is taken off, and its peaks may lie on either side of the ceiling. Each
// trial is a whole job with other parameters: the loudness moves by what was missing, over the
// slope that the last two trials show; the ceiling by what the peaks were past it, or, where
// asking for more loudness gives no more, by what they left free.
//
// In the mode kMaxShortTerm a track is only ever lowered, and only what is too loud counts.
//
// Units      LUFS, dBTP, LU. Thread: one caller at a time.
class TargetSearch {
 public:
  struct Parameters {
    double loudness;  // of the mode: Loudness or ShortTermLoudness
    double maxTruePeak;
  };
  // What one meter found.
  struct Found {
    double loudness;
    double truePeak;
  };

  TargetSearch(NormalisationMode mode, double loudness, double maxTruePeak);

  // The next job to run; before the first report what was asked for.
  const Parameters& Next() const { return next; }
  // What came out of it by each of one or more meters. No meter: nothing could be measured.
  void Report(const std::vector<Found>& found);

  // No further job is worth running: it is reached, or no more trials are.
  bool IsDone() const { return isDone; }
  bool IsReached() const { return best && best->isReached; }
  int Trials() const { return trials; }
  // Of the best job; what was asked for before the first report.
  const Parameters& Best() const { return best ? best->parameters : next; }
  // Its target minus its result, of the meter that is further off; 0 while nothing was measured.
  double MissedLu() const { return best ? best->missed : 0.0; }
  // By how much its true peak is past the ceiling; 0 where it is not.
  double PeakExcessDb() const { return best && best->room < 0.0 ? -best->room : 0.0; }

 private:
  struct Trial {
    Parameters parameters;
    double missed;  // by the meter that is further off
    double centre;  // the middle between the meters: target minus result
    double room;    // under the ceiling, by the meter that says less
    bool isReached;
  };
  bool IsBetter(const Trial& trial) const;
  void Step(const Trial& trial);

  NormalisationMode mode;
  double target;
  double ceiling;
  Parameters next;
  double slope;  // LU that come out for one that is asked for
  int trials = 0;
  bool isDone = false;
  std::optional<Trial> last;
  std::optional<Trial> best;
  std::optional<double> lowestPast;  // MaxTP of a trial whose peaks were past the ceiling
};

}  // namespace harvane

#endif  // HARVANE_TOOL_TARGETSEARCH_H
