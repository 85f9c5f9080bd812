#ifndef HARVANE_PARAMETERS_PARAMETERSCHEME_H
#define HARVANE_PARAMETERS_PARAMETERSCHEME_H

namespace harvane {

// The XML text by which the module declares its fourteen parameters to the
// host: kinds, labels, choices, ranges, defaults, and which control is enabled
// by which value. NUL-terminated ASCII with LF line ends. The module itself
// never reads it: its ranges and defaults work in the host alone.
extern const char kParameterScheme[];

}  // namespace harvane

#endif  // HARVANE_PARAMETERS_PARAMETERSCHEME_H
