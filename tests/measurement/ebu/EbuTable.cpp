#include "tests/measurement/ebu/EbuTable.h"

#include <fmt/format.h>

#include <algorithm>

namespace ebu {
namespace {

std::string Number(double value) {
  const std::string text = fmt::format("{:.2f}", value);
  return text == "-0.00" ? "0.00" : text;
}

std::string FromTo(const std::vector<double>& values) {
  const auto [lowest, highest] = std::ranges::minmax(values);
  const std::string from = Number(lowest);
  const std::string to = Number(highest);
  return from == to ? from : from + " to " + to;
}

// The values; where each has a published one of its own, their differences from it.
std::string Shown(const std::vector<CaseReading>& readings) {
  std::vector<double> values;
  std::vector<double> differences;
  bool isOfOneKind = true;
  for (const CaseReading& reading : readings) {
    values.push_back(double(reading.value));
    differences.push_back(double(reading.value) - reading.published);
    if (reading.published != readings.front().published) isOfOneKind = false;
  }
  return isOfOneKind ? FromTo(values) : "off by " + FromTo(differences);
}

std::string Tolerance(const EbuCase& ebuCase) {
  if (ebuCase.below == ebuCase.above) return fmt::format("±{:.1f}", ebuCase.above);
  return fmt::format("+{:.1f} -{:.1f}", ebuCase.above, ebuCase.below);
}

std::string Departure(const EbuCase& ebuCase) {
  if (!ebuCase.isMissed) return "";
  return "windows far apart; without: " +
         Shown(ebuCase.read(MeasuredByTwinWithCloseMaxima, kPlaces));
}

}  // namespace

std::string TableHead() {
  return "| case | signal | published | tolerance | Harvane | libebur128 | missed by |\n"
         "|---|---|---|---|---|---|---|";
}

std::string TableRow(const EbuCase& ebuCase, const std::vector<CaseReading>& peer) {
  return fmt::format("| {} | {} | {} | {} | {} | {} | {} |", ebuCase.name, ebuCase.signal,
                     ebuCase.published, Tolerance(ebuCase),
                     Shown(ebuCase.read(MeasuredByModule, kAllTones)), Shown(peer),
                     Departure(ebuCase));
}

}  // namespace ebu
