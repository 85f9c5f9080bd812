#ifndef HARVANE_TOOL_RESULTS_HTMLTEXT_H
#define HARVANE_TOOL_RESULTS_HTMLTEXT_H

#include <string>
#include <string_view>

namespace harvane {

// `text` between tags or in quotes: the characters of the markup escaped, control characters and
// bytes that are no UTF-8 as U+FFFD. Thread: any.
std::string HtmlText(std::string_view text);

// With `decimals` digits behind the point, halves to even by the value's binary form, a true minus
// sign, and none before zero; infinities and what is no number as a dash.
std::string HtmlNumber(double value, int decimals);

}  // namespace harvane

#endif  // HARVANE_TOOL_RESULTS_HTMLTEXT_H
