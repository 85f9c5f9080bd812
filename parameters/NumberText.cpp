#include "parameters/NumberText.h"

#include <charconv>
#include <climits>
#include <limits>
#include <string_view>

namespace harvane {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

// What stands behind blanks and a sign; `isNegative` takes the sign.
std::string_view Unsigned(std::string_view text, bool* isNegative) {
  *isNegative = false;
  const std::size_t start = text.find_first_not_of(kBlanks);
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  if (text.front() == '+' || text.front() == '-') {
    *isNegative = text.front() == '-';
    text.remove_prefix(1);
  }
  return text;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// from_chars alone would take "inf" and "nan".
bool StartsNumber(std::string_view text) {
  if (text.empty()) return false;
  if (text.front() == '.') return text.size() > 1 && IsDigit(text[1]);
  return IsDigit(text.front());
}

// The exponent that starts `text`, behind "e": a sign or none and digits. 0 where
// it is not complete, which ends the number in front of it.
long Exponent(std::string_view text) {
  constexpr long kFarOut = 1000000000;  // further than any text's own digits
  const bool isNegative = !text.empty() && text.front() == '-';
  if (isNegative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
  if (text.empty() || !IsDigit(text.front())) return 0;
  long exponent = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), exponent);
  if (parsed.ec == std::errc::result_out_of_range || exponent > kFarOut) exponent = kFarOut;
  return isNegative ? -exponent : exponent;
}

// A number out of range is huge or tiny; from_chars doesn't say which. It is
// huge where its first digit other than 0 stands at a power of ten above 0.
bool IsHuge(std::string_view number) {
  long power = 0;
  bool hasPoint = false;
  bool hasDigit = false;
  std::size_t i = 0;
  for (; i < number.size() && (IsDigit(number[i]) || (number[i] == '.' && !hasPoint)); ++i) {
    if (number[i] == '.') {
      hasPoint = true;
    } else {
      hasDigit = hasDigit || number[i] != '0';
      if (hasDigit && !hasPoint) ++power;
      if (!hasDigit && hasPoint) --power;
    }
  }
  if (i < number.size() && (number[i] == 'e' || number[i] == 'E')) {
    power += Exponent(number.substr(i + 1));
  }
  return power > 0;
}

}  // namespace

int IntFromText(const std::string& text) {
  bool isNegative = false;
  const std::string_view number = Unsigned(text, &isNegative);
  if (number.empty() || !IsDigit(number.front())) return 0;
  long long value = 0;
  const auto parsed = std::from_chars(number.data(), number.data() + number.size(), value);
  if (parsed.ec == std::errc::result_out_of_range) value = std::numeric_limits<long long>::max();
  if (isNegative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

double DoubleFromText(const std::string& text) {
  bool isNegative = false;
  const std::string_view number = Unsigned(text, &isNegative);
  if (!StartsNumber(number)) return 0.0;
  double value = 0.0;
  const auto parsed = std::from_chars(number.data(), number.data() + number.size(), value);
  if (parsed.ec == std::errc::result_out_of_range) {
    value = IsHuge(number) ? std::numeric_limits<double>::infinity() : 0.0;
  }
  return isNegative ? -value : value;
}

}  // namespace harvane
