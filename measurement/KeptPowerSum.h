#ifndef HARVANE_MEASUREMENT_KEPTPOWERSUM_H
#define HARVANE_MEASUREMENT_KEPTPOWERSUM_H

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
// The list is cut into chunks that remember the sum before and after them. Where
// the gate passes a loudness, its chunk is added again, and those behind it get a
// new sum to begin with. Each of those is moved on by the same amount, without
// adding: as long as all its sums keep one exponent, every one of them is a
// multiple of the same unit, so every addition rounds as before. Only a rounding
// that lay exactly between two neighbours could turn out differently.
//
// Cost       of an update: constant while the gate passes no loudness, else a few
//            operations a chunk.
// Thread     one caller at a time. Throws std::bad_alloc.
class KeptPowerSum {
 public:
  // The last of `accepted` is new, the others are those of the call before; the
  // gate may have moved to `gate`, LUFS.
  void Update(const CheckedList<AcceptedLoudness>& accepted, float gate);
  void Clear();

  // Of the loudnesses strictly above the gate.
  float Sum() const { return chunks.empty() ? 0.0F : chunks.back().sumAfter; }
  std::size_t Count() const { return count; }

 private:
  struct Chunk {
    float sumBefore = 0.0F;
    float sumAfter = 0.0F;
    float lowestKept = std::numeric_limits<float>::infinity();
    float highestDropped = -std::numeric_limits<float>::infinity();
    int count = 0;
    bool hasTie = false;  // a rounding exactly between two neighbours
  };

  static void Add(Chunk* chunk, AcceptedLoudness loudness, float gate);
  static bool Moved(Chunk* chunk, float sumBefore);
  void MoveGate(const CheckedList<AcceptedLoudness>& accepted, std::size_t size, float gate);

  std::vector<Chunk> chunks;
  std::size_t count = 0;
  float lowestKept = std::numeric_limits<float>::infinity();
  float highestDropped = -std::numeric_limits<float>::infinity();
};

}  // namespace harvane

#endif  // HARVANE_MEASUREMENT_KEPTPOWERSUM_H
