#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include "tool/ChildProcessWindows.h"
#include "tool/WorkerProcess.h"

namespace harvane {
namespace {

constexpr DWORD kPipeBytes = 65536;
constexpr Awaited kNews = 1;

struct Pipe {
  SystemHandle read;
  SystemHandle write;
};

[[noreturn]] void Fail() {
  throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                          "a pipe to a worker cannot be made");
}

// To the worker. Nobody inherits an end that he is not given.
Pipe MakeInput() {
  HANDLE read = nullptr;
  HANDLE write = nullptr;
  if (CreatePipe(&read, &write, nullptr, kPipeBytes) == FALSE) Fail();
  return {SystemHandle(read), SystemHandle(write)};
}

// From the worker. It has a name, since only such a pipe can be read in the background.
Pipe MakeOutput() {
  static std::atomic<unsigned> number{0};
  const std::wstring name =
      WideText("\\\\.\\pipe\\harvane-" + std::to_string(GetCurrentProcessId()) + "-" +
               std::to_string(number++));
  Pipe pipe;
  pipe.read = SystemHandle(CreateNamedPipeW(
      name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 0, kPipeBytes, 0, nullptr));
  if (!pipe.read.IsOpen()) Fail();
  pipe.write =
      SystemHandle(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!pipe.write.IsOpen()) Fail();
  return pipe;
}

bool WriteWhole(HANDLE pipe, std::string line) {
  line += '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    DWORD written = 0;
    if (WriteFile(pipe, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr) == FALSE) {
      return false;
    }
    rest.remove_prefix(written);
  }
  return true;
}

// Reads a pipe in the background: what has come is noted whenever its thread waits alertably, in
// the order in which it came, that of other pipes included.
class PipeReader {
 public:
  explicit PipeReader(SystemHandle pipe) : pipe(std::move(pipe)) {
    // Of no use to the system here.
    place.hEvent = this;
    Begin();
  }
  ~PipeReader() {
    CancelIo(pipe.Get());
    AwaitEnd();
  }
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;

  // Appends what has come. False where that was the last of it.
  bool Take(std::string* text) {
    SleepEx(0, TRUE);
    hasNews = false;
    text->append(come);
    come.clear();
    return isOpen;
  }

  bool HasNews() const { return hasNews; }

  // Until the pipe is empty and nobody can write to it.
  void AwaitEnd() {
    while (isOpen) SleepEx(INFINITE, TRUE);
  }

 private:
  void Begin() {
    isOpen = ReadFileEx(pipe.Get(), piece.data(), static_cast<DWORD>(piece.size()), &place, Note) !=
             FALSE;
  }

  static void CALLBACK Note(DWORD error, DWORD count, OVERLAPPED* place) {
    auto* const reader = static_cast<PipeReader*>(place->hEvent);
    reader->isOpen = false;
    reader->hasNews = true;
    if (error != ERROR_SUCCESS) return;
    reader->come.append(reader->piece.data(), count);
    reader->Begin();
  }

  SystemHandle pipe;
  OVERLAPPED place{};
  std::vector<char> piece = std::vector<char>(kPipeBytes);
  std::string come;      // and was not taken
  bool isOpen = false;   // and being read
  bool hasNews = false;  // since the last Take
};

}  // namespace

struct WorkerProcess::System {
  SystemHandle input;
  std::optional<PipeReader> output;
  std::optional<PipeReader> errors;
  // Goes first, so that the pipes come to their end.
  std::optional<ChildProcess> process;
};

WorkerProcess::WorkerProcess(const std::vector<std::string>& command)
    : system(std::make_unique<System>()) {
  Pipe input = MakeInput();
  Pipe output = MakeOutput();
  Pipe errors = MakeOutput();
  system->process.emplace(
      command, ChildProcess::Streams{input.read.Get(), output.write.Get(), errors.write.Get()});
  if (!StartError().empty()) return;
  system->input = std::move(input.write);
  system->output.emplace(std::move(output.read));
  system->errors.emplace(std::move(errors.read));
}

WorkerProcess::~WorkerProcess() = default;

const std::string& WorkerProcess::StartError() const { return system->process->StartError(); }

bool WorkerProcess::WriteLine(const std::string& line) {
  return WriteWhole(system->input.Get(), line);
}

void WorkerProcess::CloseInput() { system->input = SystemHandle(); }

bool WorkerProcess::ReadOutput(std::string* text) { return system->output->Take(text); }

bool WorkerProcess::ReadErrors(std::string* text) {
  std::string come;
  const bool isOpen = system->errors->Take(&come);
  std::copy_if(come.begin(), come.end(), std::back_inserter(*text),
               [](char character) { return character != '\r'; });
  return isOpen;
}

void WorkerProcess::AddAwaited(std::vector<Awaited>* awaited) const {
  if (system->output->HasNews() || system->errors->HasNews()) awaited->push_back(kNews);
}

void WorkerProcess::AskToEnd() { system->process->AskToEnd(); }

void WorkerProcess::Kill() { system->process->Kill(); }

std::optional<std::string> WorkerProcess::TakeEnd() {
  const std::optional<DWORD> code = system->process->AwaitEnd(0);
  if (!code) return std::nullopt;
  system->output->AwaitEnd();
  system->errors->AwaitEnd();
  return "its process ended with " + ExitText(*code);
}

struct WorkerStreams::System {
  SystemHandle input;
  SystemHandle output;
};

namespace {

// The same stream under a handle that nobody inherits.
SystemHandle Own(DWORD stream) {
  HANDLE own = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetStdHandle(stream), GetCurrentProcess(), &own, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  return SystemHandle(own);
}

constexpr int kInput = 0;
constexpr int kOutput = 1;
constexpr int kErrors = 2;

}  // namespace

WorkerStreams::WorkerStreams() : system(std::make_unique<System>()) {
  system->input = Own(STD_INPUT_HANDLE);
  system->output = Own(STD_OUTPUT_HANDLE);
  const int nothing = _open("NUL", _O_RDONLY | _O_BINARY);
  _dup2(nothing, kInput);
  _close(nothing);
  std::fflush(stdout);
  _dup2(kErrors, kOutput);
  SetStdHandle(STD_INPUT_HANDLE, reinterpret_cast<HANDLE>(_get_osfhandle(kInput)));
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(_get_osfhandle(kOutput)));
}

WorkerStreams::~WorkerStreams() = default;

bool WorkerStreams::Read(std::string* text) {
  std::vector<char> piece(kPipeBytes);
  DWORD count = 0;
  if (ReadFile(system->input.Get(), piece.data(), kPipeBytes, &count, nullptr) == FALSE) {
    return false;
  }
  text->append(piece.data(), count);
  return true;
}

bool WorkerStreams::WriteLine(const std::string& line) {
  return WriteWhole(system->output.Get(), line);
}

}  // namespace harvane
