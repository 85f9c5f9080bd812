#ifndef HARVANE_TOOL_NAMEPATTERN_H
#define HARVANE_TOOL_NAMEPATTERN_H

#include <string>

namespace harvane {

enum class LetterCase { kMatters, kIgnored };  // of ASCII letters

// True where all of `text` is what `pattern` stands for: * any characters or none, slashes
// included; ? one byte; [abc], [a-z], [!a] one byte of those or of all others; any other character
// itself. A bracket that is not closed stands for itself. \ takes its meaning from the next
// character; on Windows it is another way to write a slash, and `text` has slashes only.
// Errors: std::bad_alloc. Thread: any.
bool MatchesPattern(const std::string& pattern, const std::string& text, LetterCase letterCase);

}  // namespace harvane

#endif  // HARVANE_TOOL_NAMEPATTERN_H
