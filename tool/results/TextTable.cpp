#include "tool/results/TextTable.h"

#include <algorithm>
#include <cstddef>

namespace harvane {
namespace {

// All bytes but those that continue a character.
std::size_t WidthOf(const std::string& text) {
  constexpr unsigned char kTopBits = 0xc0;
  constexpr unsigned char kContinuation = 0x80;
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](unsigned char byte) {
    return (byte & kTopBits) != kContinuation;
  }));
}

}  // namespace

std::string TextTable(const std::vector<std::vector<std::string>>& rows) {
  constexpr std::size_t kGap = 2;
  std::vector<std::size_t> widths;
  for (const std::vector<std::string>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], WidthOf(row[c]));
  }
  std::string text;
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      line += row[c];
      line.append(widths[c] - WidthOf(row[c]) + kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

std::string OneLine(std::string_view text) {
  constexpr char kDelete = 0x7f;
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return (c >= '\0' && c < ' ') || c == kDelete; }, '?');
  return line;
}

}  // namespace harvane
