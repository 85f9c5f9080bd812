#include "host/JobSession.h"

#include <exception>
#include <type_traits>

namespace harvane {
namespace {

using Session = std::variant<std::monostate, HostSession, RemoteSession>;

// Runs `operation` on whichever session there is.
template <class Operation>
void On(Session* session, Operation operation) {
  std::visit(
      [&](auto& one) {
        if constexpr (!std::is_same_v<std::decay_t<decltype(one)>, std::monostate>) operation(one);
      },
      *session);
}

}  // namespace

JobSession::JobSession() { session.emplace<HostSession>(LinkedModuleExports()); }

JobSession::JobSession(const std::string& modulePath) {
  if (IsWindowsModule(modulePath)) {
    session.emplace<RemoteSession>(modulePath);
  } else {
    module = std::make_unique<LoadedModule>(modulePath);
    session.emplace<HostSession>(module->Exports());
  }
}

JobSession::~JobSession() {
  try {
    if (isSequenceOpen) EndSequence();
  } catch (const std::exception&) {
    // The failure that left the sequence open is on its way already.
  }
}

void JobSession::Observe(PassObserver observer) {
  SetPassObserver(std::get<HostSession>(session).Handle(), observer);
}

void JobSession::Configure(const std::string& parameterXml, const SessionFormat& format) {
  On(&session, [&](auto& one) { one.Configure(parameterXml, format); });
}

void JobSession::StartSequence() {
  isSequenceOpen = true;
  On(&session, [](auto& one) { one.StartSequence(); });
}

void JobSession::StartPass(std::uint32_t passNumber) {
  On(&session, [passNumber](auto& one) { one.StartPass(passNumber); });
}

void JobSession::Deliver(const std::int16_t* interleaved, std::uint32_t frames,
                         std::vector<std::int16_t>* output) {
  On(&session, [&](auto& one) { one.Deliver(interleaved, frames, output); });
}

void JobSession::EndPass() {
  On(&session, [](auto& one) { one.EndPass(); });
}

void JobSession::EndSequence() {
  isSequenceOpen = false;
  On(&session, [](auto& one) { one.EndSequence(); });
}

}  // namespace harvane
