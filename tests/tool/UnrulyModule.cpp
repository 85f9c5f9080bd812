// A module file that does what the real one does, unless the name of the source file says
// otherwise: with "crash" it ends its process as a fatal stop does, with "hang" it never comes back
// from a delivery, with "slow" it takes a fifth of a second for each.

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "delay_audio/Exports.h"

namespace {

std::string document;

bool Says(const char* word) {
  const std::size_t start = document.find("<fileName>");
  const std::size_t end = document.find("</fileName>", start);
  return document.substr(0, end).find(word, start) != std::string::npos;
}

void Misbehave() {
  if (Says("crash")) {
    std::fputs("Harvane: fatal stop: a test wants it\n", stderr);
    std::abort();
  }
  while (Says("hang")) pause();
  if (Says("slow")) usleep(200'000);
}

// The real module's export of that name.
template <class Export>
Export* Real(const char* name) {
  static void* const module = dlopen(HARVANE_MODULE, RTLD_NOW | RTLD_LOCAL);
  void* const address = module == nullptr ? nullptr : dlsym(module, name);
  if (address == nullptr) std::abort();
  return reinterpret_cast<Export*>(address);
}

}  // namespace

#define REAL(name) Real<decltype(name)>(#name)

extern "C" {

uint32_t xOpen(void** handle) { return REAL(xOpen)(handle); }
uint32_t xClose(void* handle) { return REAL(xClose)(handle); }
uint32_t xGetInstanceInformation(void* handle, InstanceInformation* information) {
  return REAL(xGetInstanceInformation)(handle, information);
}
uint32_t xGetParameterScheme(void* handle, InfoBuffer** scheme) {
  return REAL(xGetParameterScheme)(handle, scheme);
}
uint32_t xGetErrorMessage(void* handle, InfoBuffer** message) {
  return REAL(xGetErrorMessage)(handle, message);
}
uint32_t xSetParameter(void* handle, const char* xml) {
  document = xml;
  return REAL(xSetParameter)(handle, xml);
}
uint32_t xEnumInputInfo(void* handle, InfoBuffer** info) {
  return REAL(xEnumInputInfo)(handle, info);
}
uint32_t xSetInputInfo(void* handle, InfoBuffer* info) { return REAL(xSetInputInfo)(handle, info); }
uint32_t xEnumOutputInfo(void* handle, InfoBuffer** info) {
  return REAL(xEnumOutputInfo)(handle, info);
}
uint32_t xSetOutputInfo(void* handle, InfoBuffer* info) {
  return REAL(xSetOutputInfo)(handle, info);
}
uint32_t xStartSequenceEx(void* handle, void* unused) {
  return REAL(xStartSequenceEx)(handle, unused);
}
uint32_t xStartPassEx(void* handle, const PassArgument* pass) {
  return REAL(xStartPassEx)(handle, pass);
}
uint32_t xDeliverPcmUnit(void* handle, uint32_t unused, PcmUnit* unit, uint32_t* outFlag) {
  Misbehave();
  return REAL(xDeliverPcmUnit)(handle, unused, unit, outFlag);
}
uint32_t xFetchPcmUnit(void* handle, uint32_t unused, PcmUnit** unit, uint32_t* outFlag) {
  return REAL(xFetchPcmUnit)(handle, unused, unit, outFlag);
}
uint32_t xEndPass(void* handle) { return REAL(xEndPass)(handle); }
uint32_t xEndSequence(void* handle) { return REAL(xEndSequence)(handle); }

}  // extern "C"
