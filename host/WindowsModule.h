#ifndef HARVANE_HOST_WINDOWSMODULE_H
#define HARVANE_HOST_WINDOWSMODULE_H

#include <string>

namespace harvane {

// True for a file in the format of Windows programs and libraries. False for any
// other file, and for one that cannot be read.
bool IsWindowsModule(const std::string& path);

}  // namespace harvane

#endif  // HARVANE_HOST_WINDOWSMODULE_H
