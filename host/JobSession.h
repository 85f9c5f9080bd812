#ifndef HARVANE_HOST_JOBSESSION_H
#define HARVANE_HOST_JOBSESSION_H

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "delay_audio/PassObserver.h"
#include "host/HostSession.h"
#include "host/ModuleExports.h"
#ifndef _WIN32
#include "host/RemoteSession.h"
#endif

namespace harvane {

// A job on a module of any kind: the one linked into this program, a module file
// of this platform, or, elsewhere than on Windows, one of Windows, by the operations of
// HostSession.
//
// Errors     ModuleRefusal; ModuleError for a module file that is of no use;
//            ModuleDeath for one in another process that has ended it.
// End        a sequence that was not ended is ended, so that the module keeps
//            nothing; then the instance and the module file are let go.
// Thread     one caller at a time.
class JobSession {
 public:
  // On the linked module; with a path, on that module file.
  JobSession();
  explicit JobSession(const std::string& modulePath);
  ~JobSession();
  JobSession(const JobSession&) = delete;
  JobSession& operator=(const JobSession&) = delete;

  // On the linked module only: who hears the measurements of each pass.
  void Observe(PassObserver observer);

  void Configure(const std::string& parameterXml, const SessionFormat& format);
  void StartSequence();
  void StartPass(std::uint32_t passNumber);
  void Deliver(const std::int16_t* interleaved, std::uint32_t frames,
               std::vector<std::int16_t>* output);
  void EndPass();
  void EndSequence();

 private:
  std::unique_ptr<LoadedModule> module;  // outlives the session on it
#ifdef _WIN32
  using Session = std::variant<std::monostate, HostSession>;
#else
  using Session = std::variant<std::monostate, HostSession, RemoteSession>;
#endif
  void LoadModule(const std::string& path);
  template <class Operation>
  void Do(Operation operation);

  Session session;
  bool isSequenceOpen = false;
};

// `path` as that module sees it, for its parameter document: whole, and for a Windows module that
// runs under Wine as Wine has it. `module`: a module file; empty for the linked one.
std::string PathForModule(const std::string& module, const std::string& path);

}  // namespace harvane

#endif  // HARVANE_HOST_JOBSESSION_H
