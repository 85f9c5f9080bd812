#include <fnmatch.h>

#include "tool/NamePattern.h"

namespace harvane {

bool MatchesPattern(const std::string& pattern, const std::string& text, LetterCase letterCase) {
  const int flags = letterCase == LetterCase::kIgnored ? FNM_CASEFOLD : 0;
  return fnmatch(pattern.c_str(), text.c_str(), flags) == 0;
}

}  // namespace harvane
