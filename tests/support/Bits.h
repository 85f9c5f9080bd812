#ifndef HARVANE_TESTS_SUPPORT_BITS_H
#define HARVANE_TESTS_SUPPORT_BITS_H

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace support {

// "0.5 (3f000000)": a float with its bits.
inline std::string Show(float v) {
  char text[64];
  std::snprintf(text, sizeof text, "%.9g (%08x)", static_cast<double>(v),
                std::bit_cast<std::uint32_t>(v));
  return text;
}

// Equal in all bits; any NaN equals any NaN, whose bits the compiler may choose.
inline bool SameBits(float a, float b) {
  if (std::isnan(a) && std::isnan(b)) return true;
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

// For EXPECT_PRED_FORMAT2: prints both values in decimal and hex.
inline testing::AssertionResult BitsEqual(const char* wantedText, const char* gotText, float wanted,
                                          float got) {
  if (SameBits(wanted, got)) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << wantedText << " is " << Show(wanted) << ", " << gotText << " is " << Show(got);
}

// The first place in which two lists differ, or success.
inline testing::AssertionResult SameLists(const std::vector<float>& wanted,
                                          const std::vector<float>& got) {
  if (wanted.size() != got.size()) {
    return testing::AssertionFailure()
           << wanted.size() << " values wanted, " << got.size() << " came";
  }
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (!SameBits(wanted[i], got[i])) {
      return testing::AssertionFailure()
             << "at " << i << ": wanted " << Show(wanted[i]) << ", came " << Show(got[i]);
    }
  }
  return testing::AssertionSuccess();
}

}  // namespace support

#define EXPECT_BITS_EQ(wanted, got) EXPECT_PRED_FORMAT2(::support::BitsEqual, wanted, got)
#define ASSERT_BITS_EQ(wanted, got) ASSERT_PRED_FORMAT2(::support::BitsEqual, wanted, got)

#endif  // HARVANE_TESTS_SUPPORT_BITS_H
