#include "tests/measurement/RandomSamples.h"

#include <bit>
#include <limits>

namespace measurement_tests {
namespace {

enum Kind : int { kSilence, kNoise, kQuietNoise, kFullScale, kDenormal, kNegativeZero, kSpecial };

float NoiseAt(support::NoiseSource* noise, double amplitude) {
  return static_cast<float>(noise->NextBipolar() * amplitude);
}

double RandomAmplitude(support::NoiseSource* noise) {
  static const double kAmplitudes[] = {1.0, 0.5, 0.1, 0.03, 0.01, 0.003, 0.001, 0.0005, 0.0003};
  return kAmplitudes[noise->NextBelow(sizeof kAmplitudes / sizeof kAmplitudes[0])];
}

}  // namespace

int RandomInt(support::NoiseSource* noise, int low, int high) {
  return low + static_cast<int>(noise->NextBelow(static_cast<std::uint32_t>(high - low + 1)));
}

bool OneIn(support::NoiseSource* noise, int chances) {
  return noise->NextBelow(static_cast<std::uint32_t>(chances)) == 0;
}

float RandomBits(support::NoiseSource* noise) { return std::bit_cast<float>(noise->NextBits()); }

std::vector<float> RandomRun(support::NoiseSource* noise, std::size_t length, bool special) {
  static const std::vector<float> specials = support::SpecialFloats();
  const int kind = RandomInt(noise, kSilence, special ? kSpecial : kNegativeZero);
  const double amplitude = kind == kQuietNoise ? 0.0004 : RandomAmplitude(noise);
  std::vector<float> run;
  for (std::size_t i = 0; i < length; ++i) {
    switch (kind) {
      case kSilence:
        run.push_back(0.0F);
        break;
      case kFullScale:
        run.push_back(OneIn(noise, 2) ? 1.0F : -1.0F);
        break;
      case kDenormal:
        run.push_back(NoiseAt(noise, double(std::numeric_limits<float>::min())));
        break;
      case kNegativeZero:
        run.push_back(OneIn(noise, 3) ? -0.0F : NoiseAt(noise, amplitude));
        break;
      case kSpecial:
        run.push_back(OneIn(noise, 4)
                          ? specials[noise->NextBelow(static_cast<std::uint32_t>(specials.size()))]
                          : NoiseAt(noise, amplitude));
        break;
      default:
        run.push_back(NoiseAt(noise, amplitude));
    }
  }
  return run;
}

std::size_t RandomLength(support::NoiseSource* noise, int longest) {
  switch (RandomInt(noise, 0, 5)) {
    case 0:
      return 0;
    case 1:
      return longest > 0 ? 1 : 0;
    case 2:
      return static_cast<std::size_t>(RandomInt(noise, 0, longest / 2) / 2 * 2 + 1);
    case 3: {
      const int length = RandomInt(noise, 0, longest / 4) * 4 + RandomInt(noise, -1, 1);
      return static_cast<std::size_t>(length < 0 ? 0 : length > longest ? longest : length);
    }
    default:
      return static_cast<std::size_t>(RandomInt(noise, 0, longest));
  }
}

}  // namespace measurement_tests
