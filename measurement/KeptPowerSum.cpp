#include "measurement/KeptPowerSum.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr std::size_t kShortestSpan = 32;
constexpr std::size_t kParts = 16;  // of a longer span

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
  if (gate >= lowestKept || gate < highestDropped) MoveGate({accepted, added, gate});
  // More than one where memory was lacking for those before.
  for (; added < accepted.Size(); ++added) Append(accepted[added], gate);
}

void KeptPowerSum::Append(AcceptedLoudness loudness, float gate) {
  std::size_t length = kShortestSpan;
  for (std::vector<Span>& level : levels) {
    if (level.size() * length <= added) {
      Span next;
      next.sumBefore = next.sumAfter = Sum();
      level.push_back(next);
    }
    length *= kParts;
  }
  for (std::vector<Span>& level : levels) Add(&level.back(), loudness, gate);
  if (loudness.value > gate) {
    lowestKept = std::min(lowestKept, loudness.value);
    ++count;
  } else {
    highestDropped = std::max(highestDropped, loudness.value);
  }
}

void KeptPowerSum::Clear() { *this = KeptPowerSum(); }

void KeptPowerSum::Add(Span* span, AcceptedLoudness loudness, float gate) {
  if (!(loudness.value > gate)) {
    span->highestDropped = std::max(span->highestDropped, loudness.value);
    return;
  }
  const double sum = static_cast<double>(loudness.power) + span->sumAfter;
  span->hasTie = span->hasTie || IsTie(sum);
  span->sumAfter = static_cast<float>(sum);
  span->lowestKept = std::min(span->lowestKept, loudness.value);
  ++span->count;
}

void KeptPowerSum::Join(Span* whole, const Span& part) {
  whole->sumAfter = part.sumAfter;
  whole->hasTie = whole->hasTie || part.hasTie;
  whole->lowestKept = std::min(whole->lowestKept, part.lowestKept);
  whole->highestDropped = std::max(whole->highestDropped, part.highestDropped);
  whole->count += part.count;
}

// Begins a span with another sum. False where its sums have to be made again.
bool KeptPowerSum::Moved(Span* span, float sumBefore) {
  if (sumBefore == span->sumBefore) return true;
  if (span->hasTie) return false;
  const float sumAfter = span->sumAfter + (sumBefore - span->sumBefore);
  const std::uint32_t exponent = ExponentOf(span->sumBefore);
  if (exponent != ExponentOf(span->sumAfter) || exponent != ExponentOf(sumBefore) ||
      exponent != ExponentOf(sumAfter)) {
    return false;
  }
  span->sumBefore = sumBefore;
  span->sumAfter = sumAfter;
  return true;
}

// Brings a span to another gate and another sum before it.
void KeptPowerSum::Refit(std::size_t level, std::size_t index, float sumBefore, const Gated& all) {
  Span& span = levels[level][index];
  const bool isPassed = all.gate >= span.lowestKept || all.gate < span.highestDropped;
  if (!isPassed && Moved(&span, sumBefore)) return;
  span = Span();
  span.sumBefore = span.sumAfter = sumBefore;
  if (level == 0) {
    const std::size_t end = std::min(all.size, (index + 1) * kShortestSpan);
    for (std::size_t i = index * kShortestSpan; i < end; ++i) {
      Add(&span, all.accepted[i], all.gate);
    }
    return;
  }
  const std::vector<Span>& parts = levels[level - 1];
  const std::size_t end = std::min(parts.size(), (index + 1) * kParts);
  for (std::size_t i = index * kParts; i < end; ++i) {
    Refit(level - 1, i, span.sumAfter, all);
    Join(&span, parts[i]);
  }
}

void KeptPowerSum::MoveGate(const Gated& all) {
  Span whole;
  const std::size_t top = levels.size() - 1;
  for (std::size_t i = 0; i < levels[top].size(); ++i) {
    Refit(top, i, whole.sumAfter, all);
    Join(&whole, levels[top][i]);
  }
  count = static_cast<std::size_t>(whole.count);
  lowestKept = whole.lowestKept;
  highestDropped = whole.highestDropped;
}

}  // namespace harvane
