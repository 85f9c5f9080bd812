#ifndef HARVANE_PLATFORM_DIAGNOSTICLINE_H
#define HARVANE_PLATFORM_DIAGNOSTICLINE_H

#include "platform/JuceCore.h"

namespace harvane {

// A line for whoever debugs, through juce::Logger. With no logger installed it
// goes to the platform's debug output: on Windows what a debugger listens to.
// On Linux JUCE would write to standard error, which belongs to the host, so
// there the line is dropped unless a logger is there to take it.
// Thread: any. Throws std::bad_alloc.
void WriteDiagnosticLine(const juce::String& line);

}  // namespace harvane

#endif  // HARVANE_PLATFORM_DIAGNOSTICLINE_H
