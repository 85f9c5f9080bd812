#ifndef HARVANE_MEASUREMENT_KEPTPOWERSUM_H
#define HARVANE_MEASUREMENT_KEPTPOWERSUM_H

#include <array>
#include <cstddef>
#include <limits>
#include <vector>

#include "platform/CheckedList.h"

namespace harvane {

// 10 to the power of a tenth of a loudness, as every power mean takes it.
float PowerOf(float loudness);

// A loudness in LUFS and its power.
struct AcceptedLoudness {
  float value;
  float power;
};

// The sum of the powers of all loudnesses above a gate, in order of arrival and
// rounded to single precision after each, while loudnesses come and the gate
// moves: what adding them all again would give, to the bit.
//
// Spans of the list remember the sum before and after them: short ones, and longer ones that
// consist of them. Where the gate passes a loudness, the shortest span around it is added again,
// and every span behind it gets a new sum to begin with. It is moved on by the same amount, without
// adding: as long as all its sums keep one exponent, every one of them is a multiple of the same
// unit, so every addition rounds as before. Only a rounding that lay exactly between two neighbours
// could turn out differently. What cannot be moved as a whole is looked at in its parts; of n sums
// about the logarithm of n reach a new exponent, and as many lie between two neighbours.
//
// Cost       of an update: constant while the gate passes no loudness, else about the square of
//            the logarithm of the number of loudnesses. Memory: less than a byte a loudness.
// Thread     one caller at a time. Throws std::bad_alloc.
class KeptPowerSum {
 public:
  // The last of `accepted` is new, the others are those of the call before; the
  // gate may have moved to `gate`, LUFS. After std::bad_alloc the next call makes up for it.
  void Update(const CheckedList<AcceptedLoudness>& accepted, float gate);
  void Clear();

  // Of the loudnesses strictly above the gate.
  float Sum() const { return levels.back().empty() ? 0.0F : levels.back().back().sumAfter; }
  std::size_t Count() const { return count; }

 private:
  struct Span {
    float sumBefore = 0.0F;
    float sumAfter = 0.0F;
    float lowestKept = std::numeric_limits<float>::infinity();
    float highestDropped = -std::numeric_limits<float>::infinity();
    int count = 0;
    bool hasTie = false;  // a rounding exactly between two neighbours
  };
  // What a moved gate asks of every span.
  struct Gated {
    const CheckedList<AcceptedLoudness>& accepted;
    std::size_t size;  // of those that were added
    float gate;
  };

  static void Add(Span* span, AcceptedLoudness loudness, float gate);
  static void Join(Span* whole, const Span& part);
  static bool Moved(Span* span, float sumBefore);
  void Append(AcceptedLoudness loudness, float gate);
  void Refit(std::size_t level, std::size_t index, float sumBefore, const Gated& all);
  void MoveGate(const Gated& all);

  // The shortest spans first; those of a level lie one behind the other. The sums of each span are
  // what adding from its own first sum gives. Those within a span that was moved as a whole still
  // begin where they did before, until they are looked at again.
  std::array<std::vector<Span>, 4> levels;
  std::size_t added = 0;
  std::size_t count = 0;  // of those that are kept
  float lowestKept = std::numeric_limits<float>::infinity();
  float highestDropped = -std::numeric_limits<float>::infinity();
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_KEPTPOWERSUM_H
