#ifndef HARVANE_HOST_REMOTESESSION_H
#define HARVANE_HOST_REMOTESESSION_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/HostSession.h"
#include "host/ModuleExports.h"
#include "host/WindowsModule.h"

namespace harvane {

// How long a RemoteSession's end waits for the last log rows and the process.
inline constexpr int kEndTimeoutMs = 10000;

// How Wine sees a file or folder of this machine: "/a/b" is "Z:\host\a\b". A relative
// path counts from the working directory; symbolic links are followed as far as they
// exist. An empty text stays empty. For the paths that a parameter document carries to
// a Windows module.
std::string WindowsPathOf(const std::string& path);

// harvane-session.exe: beside the module, or in ../windows as seen from
// `executableFolder`. Throws ModuleError, which says how to build it.
std::string SessionProgram(const std::string& modulePath, const std::string& executableFolder);

// What starts Windows programs: the environment variable HARVANE_WINE_RUNNER, or
// ../../tools/i386-root as seen from `executableFolder`. Throws ModuleError.
std::string WineRunner(const std::string& executableFolder);

// A job on a Windows module, which runs under Wine in a process of its own. The same
// operations as HostSession's, with the same results.
//
// The process is SessionProgram, seen from this program's folder, and is started by
// "RUNNER wine -- PROGRAM MODULE", where RUNNER is WineRunner.
//
// Log        paths in the parameter document are the module's: see WindowsPathOf. The
//            module stays loaded, and its writer at work, while the session lives.
// Errors     ModuleRefusal, as HostSession. ModuleError: something is missing or cannot
//            be started, or the module cannot be loaded. ModuleDeath: the process came
//            to an end once the instance was open. After such an error every further
//            call throws it again at once.
// Streams    the process's standard error is this program's.
// Thread     one caller at a time.
class RemoteSession {
 public:
  // Loads the module and opens an instance. A cold start of Wine takes seconds.
  explicit RemoteSession(const std::string& modulePath);
  // Closes the instance and unloads the module, whose last log rows are on the disk
  // afterwards. Ends the process by force if it takes longer than kEndTimeoutMs.
  ~RemoteSession();
  RemoteSession(const RemoteSession&) = delete;
  RemoteSession& operator=(const RemoteSession&) = delete;

  void Configure(const std::string& parameterXml, const SessionFormat& format);
  void StartSequence();
  void StartPass(std::uint32_t passNumber);
  // A unit of more than kMaxUnitBytes (SessionProtocol.h) is a ModuleError.
  void Deliver(const std::int16_t* interleaved, std::uint32_t frames,
               std::vector<std::int16_t>* output);
  void EndPass();
  void EndSequence();

 private:
  struct Connection;
  std::unique_ptr<Connection> connection;
  std::uint32_t channels = 0;
};

}  // namespace harvane

#endif  // HARVANE_HOST_REMOTESESSION_H
