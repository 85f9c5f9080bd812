#include "tool/OutputAssembly.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace harvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(OutputAssembly, HandsOutWhatEveryChannelHasComeTo) {
  OutputAssembly assembly({0, 0}, 10);
  std::vector<std::int16_t> frames;
  const std::int16_t first[] = {1, 2, 3};
  assembly.Take(0, first, 1, 3);
  EXPECT_EQ(assembly.Hand(&frames), 0U);
  EXPECT_THAT(frames, IsEmpty());
  const std::int16_t second[] = {10, 0, 20};
  assembly.Take(1, second, 2, 2);
  EXPECT_EQ(assembly.Hand(&frames), 2U);
  EXPECT_THAT(frames, ElementsAre(1, 10, 2, 20));
  assembly.Take(1, second, 2, 1);
  EXPECT_EQ(assembly.Hand(&frames), 1U);
  EXPECT_THAT(frames, ElementsAre(3, 10));
}

TEST(OutputAssembly, DropsTheStartOfALateChannelAndWhatComesPastTheLength) {
  OutputAssembly assembly({2, 0}, 3);
  const std::int16_t late[] = {0, 0, 1, 2, 3};
  const std::int16_t prompt[] = {10, 20, 30, 99, 99};
  std::vector<std::int16_t> all;
  std::vector<std::int16_t> frames;
  for (int i = 0; i < 5; ++i) {
    assembly.Take(0, late + i, 1, 1);
    assembly.Take(1, prompt + i, 1, 1);
    assembly.Hand(&frames);
    all.insert(all.end(), frames.begin(), frames.end());
  }
  EXPECT_THAT(all, ElementsAre(1, 10, 2, 20, 3, 30));
}

}  // namespace
}  // namespace harvane
