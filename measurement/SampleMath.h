#ifndef HARVANE_MEASUREMENT_SAMPLEMATH_H
#define HARVANE_MEASUREMENT_SAMPLEMATH_H

namespace harvane {

struct BiquadState;
struct PolyphaseBank;
class SampleHistory;

// The mathematical library in single precision: the argument is widened, the
// library's double-precision function is called, and its result is rounded to
// single. That rounding is part of every value computed through them.
float Floor(float v);
float Log10(float v);  // -inf for 0, NaN for a negative value
float Abs(float v);
float Pow(float base, float exponent);

// Pow(10, exponent), to the bit, in a third of the time: where the value lies too
// close to the border between two singles to tell, the library is asked.
float TenToThe(float exponent);

// Cuts towards zero. Outside the range of int, and for NaN, INT_MIN, which is
// what the processor's conversion gives.
int TruncateToInt(double v);

// A position in time as the log shows it.
struct TimeCode {
  int framesOrMilliseconds;  // video frames, or milliseconds where no frame rate is known
  int seconds;
  int minutes;
  int hours;  // no wrap at 24
};

// The arithmetic that the meters, the limiter and the log share. No state.
//
// Rounding   samples, accumulators and results are single precision. A running
//            sum of products takes each term exactly and is rounded to single
//            once after each (MultiplyAdd), in the order of the terms. Another
//            order, or a wider accumulator, is another result. Other formulas
//            are worked in double precision and rounded when stored.
// Errors     FilterBlock and OversampleBlock throw std::bad_alloc.
// Thread     any; only the arguments are touched.
class SampleMath {
 public:
  // Mean of the squares of `n` >= 1 samples.
  float MeanSquare(const float* x, int n) const;

  // Negates what compares less than 0.0: -0.0 and NaN stay as they are.
  void AbsInPlace(float* x, int n) const;

  // Deliberate: starts from x[0] whatever `n` is, so `n` == 0 gives x[0], with
  // its sign. The peak of rates without oversampling is this value.
  float MaxOf(const float* x, int n) const;

  // To one decimal place; halves go towards plus infinity, also below zero.
  float RoundToTenth(float v) const;

  // `position` in frames from the start of the pass, `frameRate` in video
  // frames per second (0: none, the first field is in milliseconds),
  // `sampleRate` in Hz. All integer divisions truncate.
  //
  // Deliberate: a video frame is cut to whole samples, so the frame field runs
  // ahead of the seconds where the frame rate does not divide the sample rate.
  // A position below zero, where a count went on past its end, gives all fields
  // below zero.
  // A rate that leaves no whole sample to a frame, and a sample rate of 0, give
  // 0 in the fields concerned.
  void SamplesToTimeCode(int position, int frameRate, int sampleRate, TimeCode* out) const;

  // A direct-form-I filter over `n` samples whose histories, in `state`,
  // outlive the block: y = b[0] x + b[1] x1 + ... - a[1] y1 - ..., the terms in
  // this order. a[0] is taken to be 1 and never read. `state` is a copy that
  // shares the histories. `x` and `y` must not overlap.
  void FilterBlock(const float* x, int n, const float* a, int aLength, const float* b, int bLength,
                   float* y, BiquadState state) const;

  // `phases` interpolated values for each of `n` samples, all values of a
  // sample together: `y` takes n * phases values, or n where `phases` is 0,
  // when the samples are copied and the history is left alone.
  void OversampleBlock(const float* x, int n, const PolyphaseBank* bank, int phases, float* y,
                       SampleHistory* history) const;
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_SAMPLEMATH_H
