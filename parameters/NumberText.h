#ifndef HARVANE_PARAMETERS_NUMBERTEXT_H
#define HARVANE_PARAMETERS_NUMBERTEXT_H

#include <string>

namespace harvane {

// Numbers as the parameter document writes them: blanks, a sign and what fits
// of a number are taken from the start of the text; the rest is ignored, and a
// text without a number is 0. The decimal separator is the point in any locale,
// so "59,94" is 59. No "inf", "nan" or hexadecimal.
// Errors: none. Thread: any.

// Beyond the range of int: its nearest end.
int IntFromText(const std::string& text);

// Beyond the range of double: infinity or 0, with the sign.
double DoubleFromText(const std::string& text);

}  // namespace harvane

#endif  // HARVANE_PARAMETERS_NUMBERTEXT_H
