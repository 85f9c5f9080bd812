#ifndef HARVANE_TOOL_CHILDPROCESSWINDOWS_H
#define HARVANE_TOOL_CHILDPROCESSWINDOWS_H

#include <windows.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace harvane {

// An open kernel object of Windows; closed at its end.
class SystemHandle {
 public:
  explicit SystemHandle(HANDLE handle = nullptr)
      : handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  ~SystemHandle() {
    if (handle != nullptr) CloseHandle(handle);
  }
  SystemHandle(SystemHandle&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}
  SystemHandle& operator=(SystemHandle&& other) noexcept {
    std::swap(handle, other.handle);
    return *this;
  }
  HANDLE Get() const { return handle; }
  bool IsOpen() const { return handle != nullptr; }

 private:
  HANDLE handle;
};

// UTF-8 to UTF-16 and back; what is no such text becomes a replacement character.
std::wstring WideText(const std::string& text);
std::string PlainText(const std::wstring& wide);

// What the system says about `error`, a GetLastError.
std::string WindowsErrorText(DWORD error);

// A command line that CommandLineToArgvW takes apart into `words` again. The first word is a path,
// without quotation marks.
std::wstring CommandLineOf(const std::vector<std::string>& words);

// In words how a process ended that has left `code`: "status 3", or "0xC0000005 (access
// violation)".
std::string ExitText(DWORD code);

// True for the code of a process that has read, written or run what is not there.
bool IsStrayAccess(DWORD code);

// A process in a group and a job object of its own. It ends with the object and with this process,
// however that ends, and so does all that it has started; but for where this process lies in a job
// object itself and Windows knows no nested ones (Windows 7).
//
// Thread     one caller at a time.
class ChildProcess {
 public:
  // Open in this process; each may be given more than once.
  struct Streams {
    HANDLE input;
    HANDLE output;
    HANDLE errors;
  };

  // `command`: a path to the program, and its arguments. It inherits `streams` and nothing else.
  // Never throws but std::bad_alloc.
  ChildProcess(const std::vector<std::string>& command, const Streams& streams);
  // Kills it, and waits for its end.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Why there is no process; empty where there is one. Without one nothing below does anything.
  const std::string& StartError() const { return startError; }

  // By Ctrl-Break, where there is a console.
  void AskToEnd();
  void Kill();

  // Waits for it, and tells its code; what it has started is killed by then. Empty after
  // `milliseconds`.
  std::optional<DWORD> AwaitEnd(DWORD milliseconds);

 private:
  void Start(const std::vector<std::string>& command, STARTUPINFOEXW* start);

  std::string startError;
  SystemHandle job;
  SystemHandle process;
  DWORD number = 0;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_CHILDPROCESSWINDOWS_H
