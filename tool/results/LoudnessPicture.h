#ifndef HARVANE_TOOL_RESULTS_LOUDNESSPICTURE_H
#define HARVANE_TOOL_RESULTS_LOUDNESSPICTURE_H

#include <optional>
#include <string>

#include "tool/FileResult.h"

namespace harvane {

// The axes of a picture: pictures that are to be compared share them.
struct PictureScale {
  double seconds;  // from 0
  double lowest;   // LUFS
  double highest;
};

// What was aimed at, in LUFS and LU. Empty: no line; no band.
struct PictureTarget {
  std::optional<double> loudness;
  std::optional<double> tolerance;
};

// A scale for both passes of a track of a file of `seconds`. The loudest value and the target are
// within; of the quiet ones, which may go down for ever, every 200th may be left out.
PictureScale ScaleFor(const TrackResult& track, const PictureTarget& target, double seconds);

// Loudness over time as an SVG element, styled by the classes of the report's page: momentary
// loudness thin, short-term loudness strong, the target as a line in its tolerance, integrated
// loudness at the right edge, and the three maxima with values and time codes above. What lies
// below the scale is drawn on its edge; silence is a gap. `title` is read out in its place.
// Size: at most two points per curve and column of 640, however long the series.
// Errors: std::bad_alloc. Thread: any.
std::string LoudnessPicture(const LoudnessSeries& series, const TrackValues& values,
                            const PictureScale& scale, const PictureTarget& target,
                            const std::string& title);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_LOUDNESSPICTURE_H
