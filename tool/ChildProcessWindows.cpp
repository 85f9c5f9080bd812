#include "tool/ChildProcessWindows.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace harvane {
namespace {

constexpr DWORD kKilledCode = 0xE0000001;  // of the range that is free for programs
constexpr DWORD kAccessViolation = 0xC0000005;
constexpr DWORD kIllegalInstruction = 0xC000001D;
constexpr DWORD kFirstErrorStatus = 0x80000000;

struct NamedStatus {
  DWORD code;
  const char* name;
};

constexpr NamedStatus kNamedStatuses[] = {
    {0x80000003, "breakpoint"},
    {kAccessViolation, "access violation"},
    {0xC0000006, "page that cannot be read"},
    {0xC0000017, "out of memory"},
    {kIllegalInstruction, "illegal instruction"},
    {0xC0000094, "integer division by zero"},
    {0xC0000095, "integer overflow"},
    {0xC0000096, "privileged instruction"},
    {0xC00000FD, "stack overflow"},
    {0xC0000135, "a DLL was not found"},
    {0xC0000139, "an entry point was not found"},
    {0xC000013A, "Ctrl-C or Ctrl-Break"},
    {0xC0000142, "a DLL's start failed"},
    {0xC0000374, "heap corruption"},
    {0xC0000409, "fast fail"},
    {kKilledCode, "killed"},
};

// A word in quotation marks. Backslashes count only in front of a mark.
std::wstring Quoted(const std::wstring& word) {
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t character : word) {
    if (character == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = character == L'\\' ? backslashes + 1 : 0;
    quoted += character;
  }
  quoted.append(backslashes, L'\\');
  return quoted + L'"';
}

// What a process inherits.
class InheritedHandles {
 public:
  explicit InheritedHandles(const ChildProcess::Streams& streams)
      : handles{streams.input, streams.output, streams.errors} {
    for (const HANDLE handle : handles) {
      SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    std::sort(handles.begin(), handles.end());
    handles.erase(std::unique(handles.begin(), handles.end()), handles.end());
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    memory.resize(size);
    isMade = InitializeProcThreadAttributeList(List(), 1, 0, &size) != FALSE;
    isWhole = isMade && UpdateProcThreadAttribute(List(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                                  handles.data(), handles.size() * sizeof(HANDLE),
                                                  nullptr, nullptr) != FALSE;
    if (!isWhole) error = GetLastError();
  }
  ~InheritedHandles() {
    if (isMade) DeleteProcThreadAttributeList(List());
  }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;

  bool IsWhole() const { return isWhole; }
  DWORD Error() const { return error; }
  LPPROC_THREAD_ATTRIBUTE_LIST List() {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
  }

 private:
  std::vector<HANDLE> handles;
  std::vector<char> memory;
  bool isMade = false;
  bool isWhole = false;
  DWORD error = 0;
};

// A job object that ends all its processes when it is closed. May be closed.
SystemHandle MakeJob() {
  SystemHandle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job.IsOpen()) {
    SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
  }
  return job;
}

}  // namespace

std::wstring WideText(const std::string& text) {
  const auto length = static_cast<int>(text.size());
  std::wstring wide(
      static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0)),
      L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string PlainText(const std::wstring& wide) {
  const auto length = static_cast<int>(wide.size());
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, text.data(), size, nullptr, nullptr);
  return text;
}

std::string WindowsErrorText(DWORD error) {
  std::array<wchar_t, 512> text{};
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                error, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
  while (length > 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.')) --length;
  const std::string number = "Windows error " + std::to_string(error);
  if (length == 0) return number;
  return PlainText({text.data(), length}) + " (" + number + ")";
}

std::wstring CommandLineOf(const std::vector<std::string>& words) {
  // The program's name follows a simpler rule: up to the next mark, whatever stands there.
  std::wstring line = L'"' + WideText(words.at(0)) + L'"';
  for (std::size_t i = 1; i < words.size(); ++i) line += L' ' + Quoted(WideText(words[i]));
  return line;
}

std::string ExitText(DWORD code) {
  if (code < kFirstErrorStatus) return "status " + std::to_string(code);
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), "0x%08lX", code);
  const auto named = std::find_if(std::begin(kNamedStatuses), std::end(kNamedStatuses),
                                  [&](const NamedStatus& one) { return one.code == code; });
  if (named == std::end(kNamedStatuses)) return number.data();
  return std::string(number.data()) + " (" + named->name + ")";
}

bool IsStrayAccess(DWORD code) { return code == kAccessViolation || code == kIllegalInstruction; }

ChildProcess::ChildProcess(const std::vector<std::string>& command, const Streams& streams) {
  InheritedHandles inherited(streams);
  if (!inherited.IsWhole()) {
    startError = WindowsErrorText(inherited.Error());
    return;
  }
  STARTUPINFOEXW start{};
  start.StartupInfo.cb = sizeof start;
  start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  start.StartupInfo.hStdInput = streams.input;
  start.StartupInfo.hStdOutput = streams.output;
  start.StartupInfo.hStdError = streams.errors;
  start.lpAttributeList = inherited.List();
  Start(command, &start);
}

void ChildProcess::Start(const std::vector<std::string>& command, STARTUPINFOEXW* start) {
  const std::wstring program = WideText(command.at(0));
  std::wstring line = CommandLineOf(command);
  PROCESS_INFORMATION made{};
  // It does nothing before it is in its job.
  const DWORD flags = CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP | EXTENDED_STARTUPINFO_PRESENT;
  if (CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr,
                     &start->StartupInfo, &made) == FALSE) {
    startError = WindowsErrorText(GetLastError());
    return;
  }
  process = SystemHandle(made.hProcess);
  number = made.dwProcessId;
  const SystemHandle thread(made.hThread);
  job = MakeJob();
  if (job.IsOpen() && AssignProcessToJobObject(job.Get(), process.Get()) == FALSE) {
    job = SystemHandle();
  }
  ResumeThread(thread.Get());
}

ChildProcess::~ChildProcess() {
  Kill();
  AwaitEnd(INFINITE);
}

void ChildProcess::AskToEnd() {
  if (process.IsOpen()) GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, number);
}

void ChildProcess::Kill() {
  if (job.IsOpen()) TerminateJobObject(job.Get(), kKilledCode);
  if (process.IsOpen()) TerminateProcess(process.Get(), kKilledCode);
}

std::optional<DWORD> ChildProcess::AwaitEnd(DWORD milliseconds) {
  if (!process.IsOpen() || WaitForSingleObject(process.Get(), milliseconds) != WAIT_OBJECT_0) {
    return std::nullopt;
  }
  if (job.IsOpen()) TerminateJobObject(job.Get(), kKilledCode);
  DWORD code = 0;
  GetExitCodeProcess(process.Get(), &code);
  return code;
}

}  // namespace harvane
