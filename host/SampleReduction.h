#ifndef HARVANE_HOST_SAMPLEREDUCTION_H
#define HARVANE_HOST_SAMPLEREDUCTION_H

#include <cstddef>
#include <cstdint>

namespace harvane {

// How samples of other widths become the module's 16 bits.
//
// Integers   scaled to full scale 2^31 and divided by 65536.
// Floats     full scale 1.0, multiplied by 32768. What is not a number becomes 0.
// Both       rounded to the nearest step, ties to the even one, then clipped to
//            -32768..32767. No dither. So 8 and 16 bits come through exactly,
//            and so do 16 bits that were stored as floats over 32768.
//
// Errors     none. Thread: any; a count has one caller at a time.

struct ReductionCounts {
  std::uint64_t beyondFullScale = 0;  // floats over 1.0 or under -1.0, infinities among them
  std::uint64_t notNumbers = 0;
};

std::int16_t ReduceInteger(std::int32_t sample);
std::int16_t ReduceFloat(double sample);

// `target` has room for `count` samples.
void ReduceIntegers(const std::int32_t* samples, std::size_t count, std::int16_t* target);
// Adds to `counts`.
void ReduceFloats(const double* samples, std::size_t count, std::int16_t* target,
                  ReductionCounts* counts);

}  // namespace harvane

#endif  // HARVANE_HOST_SAMPLEREDUCTION_H
