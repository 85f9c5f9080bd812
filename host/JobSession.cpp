#include "host/JobSession.h"

#include <exception>
#include <type_traits>

namespace harvane {
// Runs `operation` on whichever session there is.
template <class Operation>
void JobSession::Do(Operation operation) {
  std::visit(
      [&](auto& one) {
        if constexpr (!std::is_same_v<std::decay_t<decltype(one)>, std::monostate>) operation(one);
      },
      session);
}

JobSession::JobSession() { session.emplace<HostSession>(LinkedModuleExports()); }

JobSession::~JobSession() {
  try {
    if (isSequenceOpen) EndSequence();
  } catch (const std::exception&) {
    // The failure that left the sequence open is on its way already.
  }
}

void JobSession::LoadModule(const std::string& path) {
  module = std::make_unique<LoadedModule>(path);
  session.emplace<HostSession>(module->Exports());
}

void JobSession::Observe(PassObserver observer) {
  SetPassObserver(std::get<HostSession>(session).Handle(), observer);
}

void JobSession::Configure(const std::string& parameterXml, const SessionFormat& format) {
  Do([&](auto& one) { one.Configure(parameterXml, format); });
}

void JobSession::StartSequence() {
  isSequenceOpen = true;
  Do([](auto& one) { one.StartSequence(); });
}

void JobSession::StartPass(std::uint32_t passNumber) {
  Do([passNumber](auto& one) { one.StartPass(passNumber); });
}

void JobSession::Deliver(const std::int16_t* interleaved, std::uint32_t frames,
                         std::vector<std::int16_t>* output) {
  Do([&](auto& one) { one.Deliver(interleaved, frames, output); });
}

void JobSession::EndPass() {
  Do([](auto& one) { one.EndPass(); });
}

void JobSession::EndSequence() {
  isSequenceOpen = false;
  Do([](auto& one) { one.EndSequence(); });
}

}  // namespace harvane
