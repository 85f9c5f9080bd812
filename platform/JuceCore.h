#ifndef HARVANE_PLATFORM_JUCECORE_H
#define HARVANE_PLATFORM_JUCECORE_H

// JUCE's core module: strings, files, time, threads. The settings that it is
// compiled with come from the build target `juce_core`.
#include <juce_core/juce_core.h>

#endif  // HARVANE_PLATFORM_JUCECORE_H
