#include "measurement/GatedSeries.h"

#include <algorithm>

#include "measurement/SampleMath.h"

namespace harvane {
namespace {

constexpr double kIntegratedGateOffset = 10.0;  // LU, ITU-R BS.1770
constexpr double kRangeGateOffset = 20.0;       // LU, EBU Tech 3342
constexpr double kLowPercent = 10.0;
constexpr double kHighPercent = 95.0;

float AddPower(float loudness, float sum) {
  const auto exponent = static_cast<float>(static_cast<double>(loudness) / 10.0);
  return static_cast<float>(static_cast<double>(Pow(10.0F, exponent)) + sum);
}

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

bool GatedSeries::Accept(MeterValue block, double gateOffset) {
  if (!(absoluteGate < block.value)) return false;
  accepted.Append(block);
  float sum = 0.0F;
  for (const MeterValue& one : accepted) sum = AddPower(one.value, sum);
  relativeGate = GateUnder(Divide(sum, accepted.Size()), gateOffset);
  kept.Clear();
  for (const MeterValue& one : accepted) {
    if (one.value > relativeGate) kept.Append(one.value);
  }
  if (!(relativeGate < block.value)) return false;
  kept.Append(block.value);  // Deliberate: a second time.
  return true;
}

bool GatedSeries::UpdateIntegrated(MeterValue block) {
  if (!Accept(block, kIntegratedGateOffset)) return false;
  result = GateUnder(MeanPower(kept), 0.0);
  return true;
}

bool GatedSeries::UpdateRange(MeterValue block) {
  if (!Accept(block, kRangeGateOffset)) return false;
  std::sort(kept.begin(), kept.end());
  const RangeIndices indices = RangeIndicesFor(static_cast<int>(kept.Size()));
  result =
      kept[static_cast<std::size_t>(indices.high)] - kept[static_cast<std::size_t>(indices.low)];
  return true;
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
