#include "host/ModuleExports.h"

namespace harvane {

const ModuleExports& LinkedModuleExports() {
  static constexpr ModuleExports kExports = {::xOpen,
                                             ::xClose,
                                             ::xGetInstanceInformation,
                                             ::xGetParameterScheme,
                                             ::xGetErrorMessage,
                                             ::xSetParameter,
                                             ::xEnumInputInfo,
                                             ::xSetInputInfo,
                                             ::xEnumOutputInfo,
                                             ::xSetOutputInfo,
                                             ::xStartSequenceEx,
                                             ::xStartPassEx,
                                             ::xDeliverPcmUnit,
                                             ::xFetchPcmUnit,
                                             ::xEndPass,
                                             ::xEndSequence};
  return kExports;
}

}  // namespace harvane
