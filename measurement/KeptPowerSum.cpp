#include "measurement/KeptPowerSum.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr std::size_t kChunkLength = 512;

std::uint32_t ExponentOf(float v) { return std::bit_cast<std::uint32_t>(v) >> 23; }

// Exactly between two single-precision neighbours: of the bits that a double has
// more, only the first is set.
bool IsTie(double sum) {
  constexpr std::uint64_t kCutOff = 0x1FFFFFFF;
  constexpr std::uint64_t kHalf = 0x10000000;
  return (std::bit_cast<std::uint64_t>(sum) & kCutOff) == kHalf;
}

}  // namespace

float PowerOf(float loudness) {
  return TenToThe(static_cast<float>(static_cast<double>(loudness) / 10.0));
}

void KeptPowerSum::Update(const CheckedList<AcceptedLoudness>& accepted, float gate) {
  const std::size_t earlier = accepted.Size() - 1;
  if (gate >= lowestKept || gate < highestDropped) MoveGate(accepted, earlier, gate);
  if (earlier % kChunkLength == 0) {
    Chunk next;
    next.sumBefore = next.sumAfter = Sum();
    chunks.push_back(next);
  }
  Chunk& last = chunks.back();
  count -= static_cast<std::size_t>(last.count);
  Add(&last, accepted[earlier], gate);
  count += static_cast<std::size_t>(last.count);
  lowestKept = std::min(lowestKept, last.lowestKept);
  highestDropped = std::max(highestDropped, last.highestDropped);
}

void KeptPowerSum::Clear() { *this = KeptPowerSum(); }

void KeptPowerSum::Add(Chunk* chunk, AcceptedLoudness loudness, float gate) {
  if (!(loudness.value > gate)) {
    chunk->highestDropped = std::max(chunk->highestDropped, loudness.value);
    return;
  }
  const double sum = static_cast<double>(loudness.power) + chunk->sumAfter;
  chunk->hasTie = chunk->hasTie || IsTie(sum);
  chunk->sumAfter = static_cast<float>(sum);
  chunk->lowestKept = std::min(chunk->lowestKept, loudness.value);
  ++chunk->count;
}

// Begins a chunk with another sum. False where its sums have to be made again.
bool KeptPowerSum::Moved(Chunk* chunk, float sumBefore) {
  if (sumBefore == chunk->sumBefore) return true;
  if (chunk->hasTie) return false;
  const float sumAfter = chunk->sumAfter + (sumBefore - chunk->sumBefore);
  const std::uint32_t exponent = ExponentOf(chunk->sumBefore);
  if (exponent != ExponentOf(chunk->sumAfter) || exponent != ExponentOf(sumBefore) ||
      exponent != ExponentOf(sumAfter)) {
    return false;
  }
  chunk->sumBefore = sumBefore;
  chunk->sumAfter = sumAfter;
  return true;
}

void KeptPowerSum::MoveGate(const CheckedList<AcceptedLoudness>& accepted, std::size_t size,
                            float gate) {
  float sum = 0.0F;
  count = 0;
  lowestKept = std::numeric_limits<float>::infinity();
  highestDropped = -std::numeric_limits<float>::infinity();
  for (std::size_t c = 0; c < chunks.size(); ++c) {
    Chunk& chunk = chunks[c];
    const bool isPassed = gate >= chunk.lowestKept || gate < chunk.highestDropped;
    if (isPassed || !Moved(&chunk, sum)) {
      chunk = Chunk();
      chunk.sumBefore = chunk.sumAfter = sum;
      const std::size_t end = std::min(size, (c + 1) * kChunkLength);
      for (std::size_t i = c * kChunkLength; i < end; ++i) Add(&chunk, accepted[i], gate);
    }
    sum = chunk.sumAfter;
    count += static_cast<std::size_t>(chunk.count);
    lowestKept = std::min(lowestKept, chunk.lowestKept);
    highestDropped = std::max(highestDropped, chunk.highestDropped);
  }
}

}  // namespace harvane
