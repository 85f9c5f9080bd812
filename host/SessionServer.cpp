// harvane-session MODULE: holds a module for a RemoteSession.
//
// Requests come on standard input and replies go to standard output, as SessionProtocol.h
// tells. Nothing else gets there: what the module prints goes to standard error. The end of
// standard input ends the session in good order too. Status 0 after kQuit, 1 after a failure.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "host/HostSession.h"
#include "host/ModuleExports.h"
#include "host/SessionProtocol.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>
#else
#include <unistd.h>

#include <cerrno>
#include <csignal>
#endif

namespace harvane {
namespace {

constexpr std::size_t kMaxTransferBytes = 1U << 20U;

#ifdef _WIN32

int Duplicate(int descriptor) { return _dup(descriptor); }
void Redirect(int from, int to) { _dup2(from, to); }
long long ReadSome(int descriptor, void* bytes, std::size_t size) {
  return _read(descriptor, bytes, static_cast<unsigned>(size));
}
long long WriteSome(int descriptor, const void* bytes, std::size_t size) {
  return _write(descriptor, bytes, static_cast<unsigned>(size));
}

// Raw bytes, and no dialog, which would wait for a click where nobody looks.
void PrepareProcess() {
  _setmode(0, _O_BINARY);
  _setmode(1, _O_BINARY);
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

// The one argument in UTF-8; empty if there is not exactly one.
std::string ModuleArgument(int /*count*/, char** /*arguments*/) {
  int count = 0;
  wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  std::string path;
  if (arguments != nullptr && count == 2) {
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, arguments[1], -1, nullptr, 0, nullptr, nullptr);
    path.resize(static_cast<std::size_t>(size));
    WideCharToMultiByte(CP_UTF8, 0, arguments[1], -1, path.data(), size, nullptr, nullptr);
    path.pop_back();
  }
  LocalFree(arguments);
  return path;
}

#else

int Duplicate(int descriptor) { return dup(descriptor); }
void Redirect(int from, int to) { dup2(from, to); }
long long ReadSome(int descriptor, void* bytes, std::size_t size) {
  ssize_t count = 0;
  do {
    count = read(descriptor, bytes, size);
  } while (count < 0 && errno == EINTR);
  return count;
}
long long WriteSome(int descriptor, const void* bytes, std::size_t size) {
  ssize_t count = 0;
  do {
    count = write(descriptor, bytes, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

void PrepareProcess() { static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); }

std::string ModuleArgument(int count, char** arguments) { return count == 2 ? arguments[1] : ""; }

#endif

ByteSource SourceOf(int descriptor) {
  return [descriptor](void* bytes, std::size_t size) {
    const long long count = ReadSome(descriptor, bytes, std::min(size, kMaxTransferBytes));
    if (count < 0) throw ProtocolError("the requests cannot be read");
    return static_cast<std::size_t>(count);
  };
}

ByteSink SinkOf(int descriptor) {
  return [descriptor](const void* bytes, std::size_t size) {
    const auto* next = static_cast<const char*>(bytes);
    while (size != 0) {
      const long long count = WriteSome(descriptor, next, std::min(size, kMaxTransferBytes));
      if (count <= 0) throw ProtocolError("the replies cannot be written");
      next += count;
      size -= static_cast<std::size_t>(count);
    }
  };
}

// A module and the one instance on it.
class Service {
 public:
  explicit Service(const std::string& modulePath) : modulePath(modulePath) {}

  // The reply. Throws ProtocolError and ModuleError, after which the service is of no more use.
  Frame Answer(const Frame& request) {
    try {
      return Execute(request);
    } catch (const ModuleRefusal& refusal) {
      return RefusalFrame(refusal);
    }
  }

 private:
  Frame Execute(const Frame& request) {
    switch (request.kind) {
      case kOpen:
        Open(TakeNumber(request));
        return EmptyFrame(kDone);
      case kConfigure: {
        const SessionSetup setup = TakeSetup(request);
        if (setup.format.channels > kPcmUnitChannels) throw ProtocolError("too many channels");
        Session().Configure(setup.parameterXml, setup.format);
        channels = setup.format.channels;
        return EmptyFrame(kDone);
      }
      case kStartPass:
        Session().StartPass(TakeNumber(request));
        return EmptyFrame(kDone);
      case kDeliver: {
        input.clear();
        output.clear();
        const std::uint32_t frames = TakeDelivery(request, channels, &input);
        Session().Deliver(input.data(), frames, &output);
        return AudioFrame(output);
      }
      default:
        break;
    }
    ExpectEmpty(request);
    switch (request.kind) {
      case kStartSequence:
        Session().StartSequence();
        break;
      case kEndPass:
        Session().EndPass();
        break;
      case kEndSequence:
        Session().EndSequence();
        break;
      case kQuit:
        session.reset();
        module.reset();
        break;
      default:
        throw ProtocolError("a request of unknown kind");
    }
    return EmptyFrame(kDone);
  }

  void Open(std::uint32_t version) {
    if (version != kProtocolVersion) {
      throw ProtocolError("this program speaks version " + std::to_string(kProtocolVersion) +
                          ", not " + std::to_string(version) + "; build both anew");
    }
    if (session) throw ProtocolError("opened twice");
    if (!module) module = std::make_unique<LoadedModule>(modulePath);
    session = std::make_unique<HostSession>(module->Exports());
  }

  HostSession& Session() {
    if (!session) throw ProtocolError("a request before the opening");
    return *session;
  }

  std::string modulePath;
  std::unique_ptr<LoadedModule> module;
  std::unique_ptr<HostSession> session;
  std::uint32_t channels = 0;
  std::vector<std::int16_t> input;
  std::vector<std::int16_t> output;
};

// Returns the status of the process.
int Serve(const std::string& modulePath, const ByteSource& source, const ByteSink& sink) {
  Service service(modulePath);
  Frame request;
  try {
    try {
      while (ReceiveFrame(source, &request)) {
        SendFrame(sink, service.Answer(request));
        if (request.kind == kQuit) return 0;
      }
    } catch (const std::bad_alloc&) {
      SendFrame(sink, TextFrame(kFailure, "the session's memory is exhausted"));
    } catch (const std::exception& failure) {
      SendFrame(sink, TextFrame(kFailure, failure.what()));
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "harvane-session: %s\n", failure.what());
  }
  return 1;
}

}  // namespace
}  // namespace harvane

int main(int count, char** arguments) {
  harvane::PrepareProcess();
  const std::string modulePath = harvane::ModuleArgument(count, arguments);
  if (modulePath.empty()) {
    std::fprintf(stderr, "usage: harvane-session MODULE, with requests on standard input\n");
    return 1;
  }
  const int replies = harvane::Duplicate(1);
#ifdef _WIN32
  _setmode(replies, _O_BINARY);
#endif
  harvane::Redirect(2, 1);
  return harvane::Serve(modulePath, harvane::SourceOf(0), harvane::SinkOf(replies));
}
