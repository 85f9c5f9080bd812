#include "platform/FatalStop.h"

#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#include <windows.h>
#endif

namespace harvane {

void FatalStop(const char* reason) noexcept {
  std::fprintf(stderr, "Harvane: fatal stop: %s\n", reason);
  std::fflush(stderr);
#ifdef _WIN32
  // abort() may open a dialog in a host with windows, and a farm would wait for a click.
  constexpr UINT kInvalidParameter = 0xC0000417;
  TerminateProcess(GetCurrentProcess(), kInvalidParameter);
#endif
  std::abort();
}

}  // namespace harvane
