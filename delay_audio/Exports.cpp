#include "delay_audio/Exports.h"

#include <cstring>
#include <exception>
#include <new>

#include "delay_audio/DelayAudio.h"
#include "delay_audio/PluginException.h"
#include "delay_audio/RecordRelease.h"
#include "platform/ModuleEnd.h"

namespace {

using harvane::DelayAudio;

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kMemoryExhausted = 2;
constexpr std::uint32_t kFailed = 3;

constexpr std::uint8_t kModuleId[16] = {0x9B, 0x41, 0x6E, 0xD2, 0x07, 0x5C, 0x4A, 0xF3,
                                        0xA8, 0x1D, 0x60, 0x2E, 0xB5, 0xC9, 0x33, 0x74};
constexpr char kModuleName[] = "Harvane";
constexpr char kModuleDescription[] =
    "EBU-compatible loudness normalizer with Program Loudness or Short-Term Loudness "
    "normalisation and True Peak limiting.";

// The one place where a failure becomes a result code. Its text stops here.
template <class Body>
std::uint32_t Guarded(Body body) {
  const harvane::ModuleCall call;
  if (call.IsRefused()) return kFailed;
  try {
    body();
    return kDone;
  } catch (const harvane::PluginException& failure) {
    return failure.code;
  } catch (const std::bad_alloc&) {
    return kMemoryExhausted;
  } catch (const std::exception&) {
    return kFailed;
  }
}

DelayAudio& Instance(void* handle) { return *static_cast<DelayAudio*>(handle); }

}  // namespace

extern "C" {

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xOpen(void** handle) {
  return Guarded([&] { *handle = new DelayAudio; });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xClose(void* handle) {
  const harvane::ModuleCall call;
  if (!call.IsRefused()) delete static_cast<DelayAudio*>(handle);
  return kDone;
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xGetInstanceInformation(void* /*handle*/,
                                                                 InstanceInformation* information) {
  return Guarded([&] {
    *information = InstanceInformation{};
    std::memcpy(information->id, kModuleId, sizeof kModuleId);
    std::memcpy(information->name, kModuleName, sizeof kModuleName);
    std::memcpy(information->description, kModuleDescription, sizeof kModuleDescription);
  });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xGetParameterScheme(void* /*handle*/,
                                                             InfoBuffer** scheme) {
  return Guarded([&] { *scheme = DelayAudio::GetParameterScheme(); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xGetErrorMessage(void* handle, InfoBuffer** message) {
  return Guarded([&] { *message = Instance(handle).GetErrorMessage(); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xSetParameter(void* handle, const char* xml) {
  return Guarded([&] { Instance(handle).SetParameter(xml); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xEnumInputInfo(void* /*handle*/, InfoBuffer** info) {
  return Guarded([&] { *info = DelayAudio::EnumInputInfo(); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xSetInputInfo(void* handle, InfoBuffer* info) {
  return Guarded([&] { Instance(handle).SetInputInfo(info); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xEnumOutputInfo(void* handle, InfoBuffer** info) {
  return Guarded([&] { *info = Instance(handle).EnumOutputInfo(); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xSetOutputInfo(void* handle, InfoBuffer* info) {
  return Guarded([&] { Instance(handle).SetOutputInfo(info); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xStartSequenceEx(void* handle, void* /*unused*/) {
  return Guarded([&] { Instance(handle).StartSequence(); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xStartPassEx(void* handle, const PassArgument* pass) {
  return Guarded([&] { Instance(handle).StartPass(pass->passNumber); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xDeliverPcmUnit(void* handle, uint32_t /*unused*/,
                                                         PcmUnit* unit, uint32_t* outFlag) {
  return Guarded([&] { Instance(handle).DeliverPcmUnit(unit, outFlag); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xFetchPcmUnit(void* handle, uint32_t /*unused*/,
                                                       PcmUnit** unit, uint32_t* outFlag) {
  return Guarded([&] { Instance(handle).FetchPcmUnit(unit, outFlag); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xEndPass(void* handle) {
  return Guarded([&] { Instance(handle).EndPass(); });
}

HARVANE_HOST_ENTRY uint32_t HARVANE_CALL xEndSequence(void* handle) {
  return Guarded([&] { Instance(handle).EndSequence(); });
}

}  // extern "C"
