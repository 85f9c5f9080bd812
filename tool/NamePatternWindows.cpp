#include <algorithm>
#include <optional>
#include <string_view>

#include "tool/NamePattern.h"

namespace harvane {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsBetween(char c, char first, char last) {
  const auto byte = [](char each) { return static_cast<unsigned char>(each); };
  return byte(first) <= byte(c) && byte(c) <= byte(last);
}

// A set in brackets, at the beginning of a pattern.
struct Set {
  bool hasByte;
  std::size_t length;
};

// Empty where no bracket closes it. A bracket behind the opening one, or behind "!", is of the set.
std::optional<Set> SetAt(std::string_view pattern, char c) {
  std::size_t at = 1;
  const bool isInverse = at < pattern.size() && (pattern[at] == '!' || pattern[at] == '^');
  if (isInverse) ++at;
  bool isFound = false;
  for (bool isFirst = true; at < pattern.size(); isFirst = false) {
    if (pattern[at] == ']' && !isFirst) return Set{isFound != isInverse, at + 1};
    const bool isRange =
        at + 2 < pattern.size() && pattern[at + 1] == '-' && pattern[at + 2] != ']';
    const char last = isRange ? pattern[at + 2] : pattern[at];
    isFound = isFound || IsBetween(c, pattern[at], last);
    at += isRange ? 3 : 1;
  }
  return std::nullopt;
}

// What one character of a pattern, or a set, takes of it; 0 where it does not stand for `c`.
std::size_t LengthOfMatch(std::string_view pattern, char c) {
  if (pattern.front() == '?') return 1;
  if (pattern.front() == '[') {
    if (const auto set = SetAt(pattern, c)) return set->hasByte ? set->length : 0;
  }
  return pattern.front() == c ? 1 : 0;
}

}  // namespace

bool MatchesPattern(const std::string& pattern, const std::string& text, LetterCase letterCase) {
  std::string plain = pattern;
  std::replace(plain.begin(), plain.end(), '\\', '/');
  std::string wanted = text;
  if (letterCase == LetterCase::kIgnored) {
    std::transform(plain.begin(), plain.end(), plain.begin(), Lower);
    std::transform(wanted.begin(), wanted.end(), wanted.begin(), Lower);
  }
  const std::string_view view = plain;
  std::size_t p = 0;
  std::size_t t = 0;
  // Behind the latest star, and where it stops taking text.
  std::optional<std::size_t> star;
  std::size_t taken = 0;
  while (t < wanted.size()) {
    if (p < view.size() && view[p] == '*') {
      star = ++p;
      taken = t;
      continue;
    }
    const std::size_t length = p < view.size() ? LengthOfMatch(view.substr(p), wanted[t]) : 0;
    if (length > 0) {
      p += length;
      ++t;
    } else if (star) {
      p = *star;
      t = ++taken;
    } else {
      return false;
    }
  }
  return view.find_first_not_of('*', p) == std::string_view::npos;
}

}  // namespace harvane
