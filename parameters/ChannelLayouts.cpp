#include "parameters/ChannelLayouts.h"

namespace harvane {
namespace {

// clang-format off
constexpr ChannelLayout kLayouts[] = {
    {"1",       {0, -1, -1, -1, -1, -1, -1, -1}, {0, -1, -1, -1, -1, -1, -1, -1}, 1, {1}},
    {"2",       {0,  1, -1, -1, -1, -1, -1, -1}, {0,  0, -1, -1, -1, -1, -1, -1}, 1, {2}},
    {"2+2",     {0,  1,  0,  1, -1, -1, -1, -1}, {0,  0,  1,  1, -1, -1, -1, -1}, 2, {2, 2}},
    {"2+2+2",   {0,  1,  0,  1,  0,  1, -1, -1}, {0,  0,  1,  1,  2,  2, -1, -1}, 3, {2, 2, 2}},
    {"2+2+2+2", {0,  1,  0,  1,  0,  1,  0,  1}, {0,  0,  1,  1,  2,  2,  3,  3}, 4, {2, 2, 2, 2}},
    {"5.1",     {0,  1,  2,  3,  4,  5, -1, -1}, {0,  0,  0,  0,  0,  0, -1, -1}, 1, {6}},
    {"5.1+2",   {0,  1,  2,  3,  4,  5,  0,  1}, {0,  0,  0,  0,  0,  0,  1,  1}, 2, {6, 2}},
    {"2+5.1",   {0,  1,  0,  1,  2,  3,  4,  5}, {0,  0,  1,  1,  1,  1,  1,  1}, 2, {2, 6}},
};
// clang-format on

}  // namespace

const ChannelLayout* FindChannelLayout(int format) {
  if (format < kFirstLayout || format > kLastLayout) return nullptr;
  return &kLayouts[format - kFirstLayout];
}

}  // namespace harvane
