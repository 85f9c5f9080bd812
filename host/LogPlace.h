#ifndef HARVANE_HOST_LOGPLACE_H
#define HARVANE_HOST_LOGPLACE_H

#include <string>

#include "host/ParameterDocument.h"
#include "platform/JuceCore.h"

namespace harvane {

// The file that the linked module's log goes to when a row is written at `now`.
// Errors: std::bad_alloc. Thread: any.
std::string LogFileFor(const JobParameters& parameters, const juce::Time& now);

}  // namespace harvane

#endif  // HARVANE_HOST_LOGPLACE_H
