#include <windows.h>

#include "platform/ModuleEnd.h"

// Told that the process ends, the runtime then destroys the module's statics; by
// that time every other thread is gone.
extern "C" BOOL WINAPI __attribute__((force_align_arg_pointer))
DllMain(HINSTANCE /*module*/, DWORD reason, LPVOID processEnds) {
  if (reason == DLL_PROCESS_DETACH && processEnds != nullptr) harvane::NoteProcessEnd();
  return TRUE;
}
