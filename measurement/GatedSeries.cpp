#include "measurement/GatedSeries.h"

#include <algorithm>

#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr double kIntegratedGateOffset = 10.0;  // LU, ITU-R BS.1770
constexpr double kRangeGateOffset = 20.0;       // LU, EBU Tech 3342
constexpr double kLowPercent = 10.0;
constexpr double kHighPercent = 95.0;

float AddPower(float loudness, float sum) { return PowerOf(loudness) + sum; }

float Divide(float sum, std::size_t count) {
  return static_cast<float>(static_cast<double>(sum) / static_cast<double>(count));
}

float GateUnder(float meanPower, double offset) {
  return static_cast<float>(static_cast<double>(Log10(meanPower)) * 10.0 - offset);
}

int PercentileIndex(int count, double percent) {
  const auto place = static_cast<float>((count - 1) * percent / 100.0 + 1.0);
  return TruncateToInt(Floor(place));
}

}  // namespace

float MeanPower(const CheckedList<float>& loudnesses) {
  float sum = 0.0F;
  for (const float loudness : loudnesses) sum = AddPower(loudness, sum);
  return Divide(sum, loudnesses.Size());
}

RangeIndices RangeIndicesFor(int count) {
  return {PercentileIndex(count, kLowPercent), PercentileIndex(count, kHighPercent)};
}

bool GatedSeries::Accept(float block, double gateOffset) {
  if (!(absoluteGate < block)) return false;
  const float power = PowerOf(block);
  accepted.Append({block, power});
  acceptedSum = power + acceptedSum;
  relativeGate = GateUnder(Divide(acceptedSum, accepted.Size()), gateOffset);
  return true;
}

bool GatedSeries::UpdateIntegrated(float block) {
  if (!Accept(block, kIntegratedGateOffset)) return false;
  keptSum.Update(accepted, relativeGate);
  if (!(relativeGate < block)) return false;
  // Deliberate: the block a second time.
  const float sum = AddPower(block, keptSum.Sum());
  result = GateUnder(Divide(sum, keptSum.Count() + 1), 0.0);
  return true;
}

bool GatedSeries::UpdateRange(float block) {
  if (!Accept(block, kRangeGateOffset)) return false;
  ordered.Insert(block);
  if (!(relativeGate < block)) return false;
  const std::size_t dropped = ordered.CountUpTo(relativeGate);
  const std::size_t kept = ordered.Size() - dropped;
  // Deliberate: the block a second time, beside its like.
  const std::size_t second = ordered.CountBelow(block) - dropped + 1;
  const auto keptAt = [&](int index) {
    const auto i = static_cast<std::size_t>(index);
    return ordered[dropped + (i < second ? i : i - 1)];
  };
  const RangeIndices indices = RangeIndicesFor(static_cast<int>(kept + 1));
  result = keptAt(indices.high) - keptAt(indices.low);
  return true;
}

void GatedSeries::Clear() {
  accepted.Clear();
  acceptedSum = 0.0F;
  keptSum.Clear();
  ordered.Clear();
}

void RecentRange::Init(int cells) {
  capacity = cells;
  writeIndex = 0;
  ring.Clear();
  for (int i = 0; i < cells; ++i) ring.Append(kAbsoluteGateLufs);
}

bool RecentRange::Update(float shortTermLoudness) {
  if (!(absoluteGate < shortTermLoudness)) return false;
  ring[static_cast<std::size_t>(writeIndex % capacity)] = shortTermLoudness;
  ++writeIndex;
  relativeGate = GateUnder(MeanPower(ring), kRangeGateOffset);
  kept.Clear();
  for (const float loudness : ring) {
    if (loudness > relativeGate) kept.Append(loudness);
  }
  if (kept.IsEmpty()) return false;
  std::sort(kept.begin(), kept.end());
  low = kept[0];
  high = kept[kept.Size() - 1];
  return true;
}

}  // namespace harvane
