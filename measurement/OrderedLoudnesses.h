#ifndef HARVANE_MEASUREMENT_ORDEREDLOUDNESSES_H
#define HARVANE_MEASUREMENT_ORDEREDLOUDNESSES_H

#include <cstddef>
#include <vector>

namespace harvane {

// Loudnesses in ascending order, for percentiles while they come in: what
// sorting them all again would give. Equal values are kept as often as they came.
//
// Cost       of each operation: about the square root of the number of values.
// Thread     one caller at a time. Throws std::bad_alloc.
class OrderedLoudnesses {
 public:
  // `value` must be a number.
  void Insert(float value);
  void Clear() { runs.clear(); }

  // How many values are at or below `gate`; all of them for NaN.
  std::size_t CountUpTo(float gate) const;
  // How many values are below `value`.
  std::size_t CountBelow(float value) const;
  std::size_t Size() const;
  // The value with `index` values before it. An index out of range ends the process.
  float operator[](std::size_t index) const;

 private:
  std::vector<std::vector<float>> runs;  // each sorted, none empty, one behind the other
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_ORDEREDLOUDNESSES_H
