#ifndef HARVANE_PLATFORM_FATALSTOP_H
#define HARVANE_PLATFORM_FATALSTOP_H

namespace harvane {

// Ends the process at once: no exception, no destructors, no exit handlers, no
// dialog. For a state in which going on would hand out invented audio or read
// memory that is not ours. `reason` goes to standard error where there is one.
// Thread: any.
[[noreturn]] void FatalStop(const char* reason) noexcept;

}  // namespace harvane

#endif  // HARVANE_PLATFORM_FATALSTOP_H
