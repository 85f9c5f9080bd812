#ifndef HARVANE_TOOL_PARAMETERREADING_H
#define HARVANE_TOOL_PARAMETERREADING_H

#include <optional>
#include <string>

#include "host/ParameterDocument.h"

namespace harvane {

// What a parameter document tells the module, read as the module reads it: numbers from the start
// of a text, 0 where there is none, and its defaults for what is not there. Of the metadata
// nothing is read. `numberOfGroups` is the count as it stands; `groupFormats` holds the four
// formats whatever it says.
struct ReadParameters {
  JobParameters parameters;
  int numberOfGroups = 1;
};

// Empty where the text is no XML. Errors: std::bad_alloc. Thread: any.
std::optional<ReadParameters> ReadParameterDocument(const std::string& xml);

}  // namespace harvane

#endif  // HARVANE_TOOL_PARAMETERREADING_H
