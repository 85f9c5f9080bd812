#ifndef HARVANE_HOST_LAYOUTNAMES_H
#define HARVANE_HOST_LAYOUTNAMES_H

#include <string>
#include <vector>

namespace harvane {

// A layout as the user writes it: the groups' formats by the names of the
// scheme, separated by commas, one to four of them: "5.1+2", "2+2,5.1". Blanks
// do not count. Returns the format numbers; throws std::invalid_argument with a
// line that says what is wrong.
std::vector<int> ParseLayout(const std::string& text);

// The layout as the user would write it.
std::string LayoutText(const std::vector<int>& groupFormats);

// The one layout that a file of so many channels stands for by itself: 1 mono,
// 2 stereo, 6 surround. Empty for any other number.
std::vector<int> AutomaticLayout(int fileChannels);

// The layouts of one group that take so many channels: "5.1 or 2+2+2". Empty if
// there is none.
std::string LayoutsFor(int fileChannels);

}  // namespace harvane

#endif  // HARVANE_HOST_LAYOUTNAMES_H
