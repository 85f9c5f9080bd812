#include "host/ModuleExports.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace harvane {
namespace {

#ifdef _WIN32

std::wstring Wide(const std::string& text) {
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, wide.data(), size);
  return wide;
}

void* Open(const std::string& path) {
  void* const library = LoadLibraryW(Wide(path).c_str());
  if (library == nullptr) {
    throw ModuleError(path + ": cannot be loaded, Windows error " + std::to_string(GetLastError()));
  }
  return library;
}

void* Find(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void Close(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }

#else

void* Open(const std::string& path) {
  // A name without a slash would be looked for in the system's folders.
  const bool hasFolder = path.find('/') != std::string::npos;
  void* const library = dlopen((hasFolder ? path : "./" + path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw ModuleError(path + ": cannot be loaded: " + dlerror());
  return library;
}

void* Find(void* library, const char* name) { return dlsym(library, name); }

void Close(void* library) { dlclose(library); }

#endif

}  // namespace

LoadedModule::LoadedModule(const std::string& path) : library(Open(path)) {
  const auto bind = [&](auto* member, const char* name) {
    void* const address = Find(library, name);
    if (address == nullptr) {
      Close(library);
      throw ModuleError(path + ": has no export " + name);
    }
    *member = reinterpret_cast<std::remove_pointer_t<decltype(member)>>(address);
  };
  bind(&exports.xOpen, "xOpen");
  bind(&exports.xClose, "xClose");
  bind(&exports.xGetInstanceInformation, "xGetInstanceInformation");
  bind(&exports.xGetParameterScheme, "xGetParameterScheme");
  bind(&exports.xGetErrorMessage, "xGetErrorMessage");
  bind(&exports.xSetParameter, "xSetParameter");
  bind(&exports.xEnumInputInfo, "xEnumInputInfo");
  bind(&exports.xSetInputInfo, "xSetInputInfo");
  bind(&exports.xEnumOutputInfo, "xEnumOutputInfo");
  bind(&exports.xSetOutputInfo, "xSetOutputInfo");
  bind(&exports.xStartSequenceEx, "xStartSequenceEx");
  bind(&exports.xStartPassEx, "xStartPassEx");
  bind(&exports.xDeliverPcmUnit, "xDeliverPcmUnit");
  bind(&exports.xFetchPcmUnit, "xFetchPcmUnit");
  bind(&exports.xEndPass, "xEndPass");
  bind(&exports.xEndSequence, "xEndSequence");
}

LoadedModule::~LoadedModule() { Close(library); }

}  // namespace harvane
