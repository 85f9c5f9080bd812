#ifndef HARVANE_HOST_MODULEEXPORTS_H
#define HARVANE_HOST_MODULEEXPORTS_H

#include <memory>
#include <stdexcept>
#include <string>

#include "delay_audio/Exports.h"

namespace harvane {

// The sixteen exports of one module, as the host calls them.
struct ModuleExports {
  decltype(&::xOpen) xOpen;
  decltype(&::xClose) xClose;
  decltype(&::xGetInstanceInformation) xGetInstanceInformation;
  decltype(&::xGetParameterScheme) xGetParameterScheme;
  decltype(&::xGetErrorMessage) xGetErrorMessage;
  decltype(&::xSetParameter) xSetParameter;
  decltype(&::xEnumInputInfo) xEnumInputInfo;
  decltype(&::xSetInputInfo) xSetInputInfo;
  decltype(&::xEnumOutputInfo) xEnumOutputInfo;
  decltype(&::xSetOutputInfo) xSetOutputInfo;
  decltype(&::xStartSequenceEx) xStartSequenceEx;
  decltype(&::xStartPassEx) xStartPassEx;
  decltype(&::xDeliverPcmUnit) xDeliverPcmUnit;
  decltype(&::xFetchPcmUnit) xFetchPcmUnit;
  decltype(&::xEndPass) xEndPass;
  decltype(&::xEndSequence) xEndSequence;
};

// A module file that cannot be used: names the file and the reason.
class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A module that has ended the process it was in; for this one it is of no use any more.
class ModuleDeath : public ModuleError {
 public:
  using ModuleError::ModuleError;
};

// A module file of this platform, loaded. Its exports are valid while it lives;
// its end unloads the module.
class LoadedModule {
 public:
  // `path` in UTF-8. Throws ModuleError: not loadable, or an export missing.
  explicit LoadedModule(const std::string& path);
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  const ModuleExports& Exports() const { return exports; }

 private:
  void* library;
  ModuleExports exports{};
};

// The module that is linked into this program. Needs the library `linked_module`.
const ModuleExports& LinkedModuleExports();

}  // namespace harvane

#endif  // HARVANE_HOST_MODULEEXPORTS_H
