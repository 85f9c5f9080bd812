#ifndef HARVANE_TESTS_SUPPORT_ANYFLOAT_H
#define HARVANE_TESTS_SUPPORT_ANYFLOAT_H

#include <bit>
#include <cstdint>
#include <vector>

#include "tests/support/Signals.h"

namespace support {

// Any float at all: one in four a special value, one in four random bits, the
// rest between -`usual` and `usual`.
inline float AnyFloat(NoiseSource* noise, float usual) {
  static const std::vector<float> kSpecials = SpecialFloats();
  switch (noise->NextBelow(4)) {
    case 0:
      return kSpecials[noise->NextBelow(static_cast<std::uint32_t>(kSpecials.size()))];
    case 1:
      return std::bit_cast<float>(noise->NextBits());
    default:
      return static_cast<float>(noise->NextBipolar()) * usual;
  }
}

}  // namespace support

#endif  // HARVANE_TESTS_SUPPORT_ANYFLOAT_H
