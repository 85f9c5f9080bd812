#include "tool/results/HtmlText.h"

#include <fmt/format.h>
#include <utf8.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace harvane {

std::string HtmlText(std::string_view text) {
  constexpr char kDelete = 0x7f;
  std::string valid;
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid));
  std::string html;
  for (const char c : valid) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        if ((c >= '\0' && c < ' ') || c == kDelete) {
          html += "\xEF\xBF\xBD";
        } else {
          html += c;
        }
    }
  }
  return html;
}

std::string HtmlNumber(double value, int decimals) {
  if (!std::isfinite(value)) return "\u2013";
  std::string digits = fmt::format("{:.{}f}", std::abs(value), decimals);
  const bool isZero = digits.find_first_not_of("0.") == std::string::npos;
  return value < 0 && !isZero ? "\u2212" + digits : digits;
}

}  // namespace harvane
