#ifndef HARVANE_TOOL_VALIDATE_MODULEDESCRIPTION_H
#define HARVANE_TOOL_VALIDATE_MODULEDESCRIPTION_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/ModuleExports.h"

namespace harvane {

// What a module says of itself.
struct ModuleDescription {
  InstanceInformation information;
  std::string scheme;                     // without its NUL
  std::vector<unsigned char> inputOffer;  // the format blob of xEnumInputInfo
};

// Asks a module; no instance is made. Throws ModuleRefusal, and ModuleError where a record is none.
ModuleDescription DescriptionOf(const ModuleExports& exports);

// Writes it into files of a folder, and reads it back. Throw ModuleError where that fails.
void SaveDescription(const ModuleDescription& description, const std::string& folder);
ModuleDescription LoadDescription(const std::string& folder);

}  // namespace harvane

#endif  // HARVANE_TOOL_VALIDATE_MODULEDESCRIPTION_H
