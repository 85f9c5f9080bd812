#ifndef HARVANE_MEASUREMENT_POLYPHASEBANK_H
#define HARVANE_MEASUREMENT_POLYPHASEBANK_H

namespace harvane {

// Taps of one branch of an interpolating filter, for the newest sample first.
struct PolyphaseBranch {
  const float* coefficients;
  int length;
};

// An interpolating filter as one branch per interpolated value of a sample.
// Refers to constant tables; copies share them.
struct PolyphaseBank {
  const PolyphaseBranch* branches;
  int count;
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_POLYPHASEBANK_H
