#ifndef HARVANE_HOST_WINDOWSFILES_H
#define HARVANE_HOST_WINDOWSFILES_H

namespace harvane {

// For bodies of Windows only, where a handle is a pointer.

// Sets errno to what GetLastError says.
void TakeWindowsError();

// A file number for a file that Windows has opened, in binary; it owns the handle. Fewer than 0
// with errno for INVALID_HANDLE_VALUE.
int NumberFor(void* file, int flags);

// The handle of an open file; it stays the file's.
void* HandleOf(int descriptor);

}  // namespace harvane

#endif  // HARVANE_HOST_WINDOWSFILES_H
