// Cases 5 and 6 are authentic programmes, which cannot be made from their descriptions.
#include <gtest/gtest.h>

#include "tests/measurement/ebu/EbuExpectations.h"

namespace ebu {
namespace {

TEST(EbuTech3342, Case1RangesOverTenUnitsDown) { ExpectPublished("3342-1"); }

TEST(EbuTech3342, Case2RangesOverFiveUnitsUp) { ExpectPublished("3342-2"); }

TEST(EbuTech3342, Case3RangesOverTwentyUnitsUp) { ExpectPublished("3342-3"); }

TEST(EbuTech3342OverAMinute, Case4GatesTheQuietestEnds) { ExpectPublished("3342-4"); }

}  // namespace
}  // namespace ebu
