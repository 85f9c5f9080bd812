#include "tool/results/LoudnessPicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "tool/results/HtmlText.h"
#include "tool/results/LoudnessCurve.h"
#include "tool/results/ResultNumbers.h"

namespace harvane {
namespace {

// The picture's own units, about a pixel each.
constexpr double kWidth = 748;
constexpr double kHeight = 216;
constexpr double kLeft = 40;
constexpr double kRight = 680;
constexpr double kTop = 42;
constexpr double kBottom = 196;
constexpr std::size_t kColumns = 640;  // from kLeft to kRight

// More values than this in a column fill areas rather than draw a line.
constexpr std::size_t kDense = 6;

constexpr double kGrid = 6.0;  // LU

double X(const PictureScale& scale, double seconds) {
  return kLeft + (kRight - kLeft) * std::clamp(seconds / scale.seconds, 0.0, 1.0);
}

double Y(const PictureScale& scale, double loudness) {
  const double part = (scale.highest - loudness) / (scale.highest - scale.lowest);
  return kTop + (kBottom - kTop) * std::clamp(part, 0.0, 1.0);
}

// With one decimal at most.
std::string Place(double place) {
  constexpr double kTenths = 10.0;
  return fmt::format("{}", std::round(place * kTenths) / kTenths);
}

// ---- curves --------------------------------------------------------------------------------

// What a curve does within one column of the picture.
struct Column {
  bool isSilent = false;  // for some of it
  std::optional<float> least;
  float most = 0.0F;
};

std::vector<Column> Reduce(const LoudnessCurve& curve, const PictureScale& scale) {
  std::vector<Column> columns(kColumns + 1);
  for (std::size_t i = 0; i < curve.values.size(); ++i) {
    const double x = X(scale, curve.SecondsOf(i)) - kLeft;
    Column& column = columns[std::min(static_cast<std::size_t>(x), kColumns)];
    const std::optional<float>& value = curve.values[i];
    if (!value || !std::isfinite(*value)) {
      column.isSilent = true;
    } else if (!column.least) {
      column.least = column.most = *value;
    } else {
      column.least = std::min(*column.least, *value);
      column.most = std::max(column.most, *value);
    }
  }
  return columns;
}

// The least and the most of each column, joined by the shorter way.
std::string PathOf(const LoudnessCurve& curve, const PictureScale& scale) {
  std::string path;
  std::optional<double> last;
  const std::vector<Column> columns = Reduce(curve, scale);
  for (std::size_t c = 0; c < columns.size(); ++c) {
    const Column& column = columns[c];
    if (!column.least) {
      if (column.isSilent) last.reset();
      continue;
    }
    double first = Y(scale, *column.least);
    double second = Y(scale, column.most);
    if (last && std::abs(*last - second) < std::abs(*last - first)) std::swap(first, second);
    // A line of no length, with its round ends, shows a value that stands alone.
    const std::string x = Place(kLeft + static_cast<double>(c));
    path += (last ? "L" : "M") + x + " " + Place(first);
    if (!last || Place(first) != Place(second)) path += "V" + Place(second);
    last = second;
  }
  return path;
}

std::string CurveSvg(const LoudnessCurve& curve, const PictureScale& scale, const char* style) {
  const std::string path = PathOf(curve, scale);
  const char* const density = curve.values.size() > kDense * kColumns ? " dense" : "";
  return path.empty() ? "" : fmt::format("<path class=\"{}{}\" d=\"{}\"/>\n", style, density, path);
}

// ---- axes ----------------------------------------------------------------------------------

std::string TextSvg(double x, double y, const char* style, const std::string& text) {
  return fmt::format("<text x=\"{}\" y=\"{}\" class=\"{}\">{}</text>\n", Place(x), Place(y), style,
                     text);
}

std::string LineSvg(double x1, double y1, double x2, double y2, const char* style) {
  return fmt::format("<line x1=\"{}\" y1=\"{}\" x2=\"{}\" y2=\"{}\" class=\"{}\"/>\n", Place(x1),
                     Place(y1), Place(x2), Place(y2), style);
}

std::string LoudnessAxis(const PictureScale& scale) {
  constexpr double kMostLines = 7;
  const double span = scale.highest - scale.lowest;
  const double step = span / kGrid > kMostLines ? 2 * kGrid : kGrid;
  std::string svg;
  for (int i = static_cast<int>(std::ceil(scale.lowest / step)); i * step <= scale.highest; ++i) {
    const double level = i * step;
    const double y = Y(scale, level);
    svg += LineSvg(kLeft, y, kRight, y, "grid");
    svg += TextSvg(kLeft - 6, y + 3.5, "tick end", HtmlNumber(level, 0));
  }
  return svg + TextSvg(0, kTop - 12, "tick", "LUFS");
}

// "0:05", "12:30", "1:02:00"
std::string ClockText(int seconds) {
  constexpr int kSixty = 60;
  const int minutes = seconds / kSixty;
  if (minutes < kSixty) return fmt::format("{}:{:02}", minutes, seconds % kSixty);
  return fmt::format("{}:{:02}:{:02}", minutes / kSixty, minutes % kSixty, seconds % kSixty);
}

// Seconds between two marks: a step that people count in.
double TimeStep(double seconds) {
  constexpr double kMostMarks = 8;
  constexpr std::array<double, 19> kSteps = {1,     2,     5,     10,    15,    30,   60,
                                             120,   300,   600,   900,   1800,  3600, 7200,
                                             10800, 21600, 43200, 86400, 604800};
  for (const double step : kSteps) {
    if (seconds / step <= kMostMarks) return step;
  }
  return seconds;
}

std::string TimeAxis(const PictureScale& scale) {
  const double step = TimeStep(scale.seconds);
  std::string svg;
  for (int i = 0; i * step <= scale.seconds; ++i) {
    const double seconds = i * step;
    const double x = X(scale, seconds);
    svg += LineSvg(x, kBottom, x, kBottom + 4, "axis");
    svg += TextSvg(x, kBottom + 16, "tick middle", ClockText(static_cast<int>(seconds)));
  }
  return svg + LineSvg(kLeft, kBottom, kRight, kBottom, "axis");
}

std::string ToleranceSvg(const PictureScale& scale, const PictureTarget& target) {
  if (!target.loudness) return "";
  std::string svg;
  if (target.tolerance) {
    const double top = Y(scale, *target.loudness + *target.tolerance);
    const double bottom = Y(scale, *target.loudness - *target.tolerance);
    svg += fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" class=\"tolerance\"/>\n",
                       Place(kLeft), Place(top), Place(kRight - kLeft), Place(bottom - top));
  }
  return svg;
}

// Over the curves, which fill the picture of a long programme.
std::string TargetLine(const PictureScale& scale, const PictureTarget& target) {
  if (!target.loudness) return "";
  const double y = Y(scale, *target.loudness);
  return LineSvg(kLeft, y, kRight, y, "casing") + LineSvg(kLeft, y, kRight, y, "target");
}

// Target and integrated loudness beside the right edge, moved apart where they would meet.
std::string EdgeSvg(const PictureScale& scale, const PictureTarget& target,
                    const TrackValues& values) {
  constexpr double kLineHeight = 11;
  constexpr double kApart = 2 * kLineHeight + 3;
  constexpr double kText = kRight + 11;
  std::string svg;
  std::optional<double> targetY;
  if (target.loudness) {
    targetY = Y(scale, *target.loudness);
  }
  if (values.integratedLoudness) {
    const double y = Y(scale, *values.integratedLoudness);
    double textY = y;
    if (targetY && std::abs(y - *targetY) < kApart) {
      const double middle = (y + *targetY) / 2;
      const double side = y < *targetY ? -0.5 : 0.5;
      textY = middle + side * kApart;
      targetY = middle - side * kApart;
    }
    svg +=
        fmt::format("<path class=\"edge\" d=\"M{} {}l7 -4v8z\"/>\n", Place(kRight + 1), Place(y));
    svg += TextSvg(kText, textY - 1, "note", "integrated");
    svg +=
        TextSvg(kText, textY - 1 + kLineHeight, "value", HtmlNumber(*values.integratedLoudness, 1));
  }
  if (targetY) {
    svg += TextSvg(kText, *targetY - 1, "note aim", "target");
    svg += TextSvg(kText, *targetY - 1 + kLineHeight, "value aim", HtmlNumber(*target.loudness, 1));
  }
  return svg;
}

// ---- maxima --------------------------------------------------------------------------------

struct Mark {
  double x;
  double y;
  double labelX;  // the label's left edge
  const char* style;
  const char* shape;  // around the current point
  std::string value;
  std::string time;
};

constexpr const char* kTriangle = "m-4.5 -8h9l-4.5 8z";
constexpr const char* kCircle = "m-4 0a4 4 0 1 0 8 0a4 4 0 1 0 -8 0z";
constexpr const char* kDiamond = "m0 -4.5l4.5 4.5l-4.5 4.5l-4.5 -4.5z";

// A label begins with its mark, which stands above the marked point where there is room.
constexpr double kLabelMark = 5;

void AddMark(const std::optional<PeakValue>& peak, double y, const char* style, const char* shape,
             const char* name, const char* unit, const PictureScale& scale,
             std::vector<Mark>* marks) {
  const double x = X(scale, peak->seconds);
  marks->push_back({x, y, x - kLabelMark, style, shape,
                    fmt::format("{} {} {}", name, HtmlNumber(peak->value, 1), unit),
                    TimeCode(peak->seconds)});
}

// Moves the labels apart, in the order of their marks, and into the picture.
void SpreadLabels(std::vector<Mark>* marks) {
  constexpr double kLabelWidth = 148;
  std::sort(marks->begin(), marks->end(), [](const Mark& a, const Mark& b) { return a.x < b.x; });
  double least = 0;
  for (Mark& mark : *marks) {
    mark.labelX = std::max(mark.labelX, least);
    least = mark.labelX + kLabelWidth;
  }
  double most = kWidth - kLabelWidth;
  for (auto mark = marks->rbegin(); mark != marks->rend(); ++mark) {
    mark->labelX = std::min(mark->labelX, most);
    most = mark->labelX - kLabelWidth;
  }
}

std::string MarkSvg(const Mark& mark, double x, double y) {
  return fmt::format("<path class=\"mark {}\" d=\"M{} {}{}\"/>\n", mark.style, Place(x), Place(y),
                     mark.shape);
}

// A true peak is no loudness: it is marked at the picture's upper edge.
std::string MarksSvg(const TrackValues& values, const PictureScale& scale) {
  constexpr double kValueLine = 9;
  constexpr double kTimeLine = 20.5;
  constexpr double kText = 13;
  constexpr double kLeaderTop = 11;
  constexpr double kLeaderTurn = 22;
  constexpr double kLeaderBend = 34;
  std::vector<Mark> marks;
  if (const auto& peak = values.maxTruePeak) {
    AddMark(peak, kTop, "peak", kTriangle, "true peak", "dBTP", scale, &marks);
  }
  if (const auto& peak = values.maxShortTerm) {
    AddMark(peak, Y(scale, peak->value), "strong", kCircle, "short-term", "LUFS", scale, &marks);
  }
  if (const auto& peak = values.maxMomentary) {
    AddMark(peak, Y(scale, peak->value), "thin", kDiamond, "momentary", "LUFS", scale, &marks);
  }
  SpreadLabels(&marks);
  std::string svg;
  for (const Mark& mark : marks) {
    svg += fmt::format("<path class=\"leader\" d=\"M{} {}V{}L{} {}V{}\"/>\n",
                       Place(mark.labelX + kLabelMark), Place(kLeaderTop), Place(kLeaderTurn),
                       Place(mark.x), Place(kLeaderBend), Place(mark.y));
    svg += TextSvg(mark.labelX + kText, kValueLine, "value", mark.value);
    svg += TextSvg(mark.labelX + kText, kTimeLine, "note", mark.time);
  }
  for (const Mark& mark : marks) {
    const double middle = mark.shape == kTriangle ? kValueLine : kValueLine - 4;
    svg += MarkSvg(mark, mark.labelX + kLabelMark, middle) + MarkSvg(mark, mark.x, mark.y);
  }
  return svg;
}

// What the short-term loudness seldom falls below.
void Lower(const std::optional<LoudnessSeries>& series, double* lowest) {
  constexpr std::size_t kLeftOut = 200;
  if (!series) return;
  std::vector<float> levels;
  for (const std::optional<float>& value : series->shortTerm) {
    if (value && std::isfinite(*value)) levels.push_back(*value);
  }
  if (levels.empty()) return;
  const auto low = levels.begin() + static_cast<std::ptrdiff_t>(levels.size() / kLeftOut);
  std::nth_element(levels.begin(), low, levels.end());
  *lowest = std::min(*lowest, double{*low});
}

void Raise(const std::optional<PeakValue>& peak, double* highest) {
  if (peak && std::isfinite(peak->value)) *highest = std::max(*highest, peak->value);
}

}  // namespace

PictureScale ScaleFor(const TrackResult& track, const PictureTarget& target, double seconds) {
  constexpr double kUsualLoudness = -23.0;
  constexpr double kHeadroom = 1.0;
  constexpr double kLeastSpan = 24.0;
  constexpr double kMostSpan = 48.0;
  constexpr double kLoudest = 48.0;
  constexpr double kQuietest = -96.0;
  constexpr double kLongest = 1e9;
  const double aim = target.loudness.value_or(kUsualLoudness);
  double highest = aim + target.tolerance.value_or(0.0);
  for (const std::optional<TrackValues>& values : {std::optional(track.before), track.after}) {
    if (!values) continue;
    Raise(values->maxMomentary, &highest);
    Raise(values->maxShortTerm, &highest);
  }
  double lowest = aim - target.tolerance.value_or(0.0);
  Lower(track.seriesBefore, &lowest);
  Lower(track.seriesAfter, &lowest);
  highest = std::ceil((std::clamp(highest, kQuietest, kLoudest) + kHeadroom) / kGrid) * kGrid;
  lowest = std::floor(lowest / kGrid) * kGrid;
  lowest = std::clamp(lowest, highest - kMostSpan, highest - kLeastSpan);
  // A picture of nothing still has a width.
  return {seconds > 0.0 ? std::min(seconds, kLongest) : 1.0, lowest, highest};
}

std::string LoudnessPicture(const LoudnessSeries& series, const TrackValues& values,
                            const PictureScale& scale, const PictureTarget& target,
                            const std::string& title) {
  std::string svg = fmt::format("<svg viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"{}\">\n",
                                kWidth, kHeight, HtmlText(title));
  svg += LoudnessAxis(scale) + ToleranceSvg(scale, target) + TimeAxis(scale);
  svg += CurveSvg(MomentaryCurve(series), scale, "momentary");
  svg += CurveSvg(ShortTermCurve(series), scale, "short-term");
  svg += TargetLine(scale, target);
  svg += EdgeSvg(scale, target, values) + MarksSvg(values, scale);
  return svg + "</svg>\n";
}

}  // namespace harvane
