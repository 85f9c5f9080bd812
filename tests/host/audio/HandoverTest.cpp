#include "host/Handover.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace harvane {
namespace {

using Ring = Handover<std::vector<int>>;

class HandoverTest : public testing::TestWithParam<Ring::Waking> {};

TEST_P(HandoverTest, BlocksComeInTheOrderInWhichTheyWereFilled) {
  constexpr int kBlocks = 5000;
  for (const std::size_t count : {2, 3, 8}) {
    Ring ring(count, GetParam());
    std::thread filler([&ring] {
      for (int i = 0; i < kBlocks; ++i) {
        ring.ForFilling()->assign(1, i);
        ring.Filled();
      }
      ring.End();
    });
    int next = 0;
    while (const std::vector<int>* const block = ring.ForUse()) {
      EXPECT_EQ(*block, std::vector<int>{next});
      ++next;
      ring.Used();
    }
    filler.join();
    EXPECT_EQ(next, kBlocks);
    EXPECT_EQ(ring.ForUse(), nullptr);
  }
}

TEST_P(HandoverTest, StopEndsTheWaitingOfTheUser) {
  Ring ring(4, GetParam());
  std::thread user([&ring] { EXPECT_EQ(ring.ForUse(), nullptr); });
  ring.Stop();
  user.join();
}

TEST_P(HandoverTest, StopEndsTheWaitingOfTheFiller) {
  Ring ring(4, GetParam());
  std::thread filler([&ring] {
    int filled = 0;
    while (ring.ForFilling() != nullptr) {
      ring.Filled();
      ++filled;
    }
    EXPECT_LE(filled, 4);
  });
  ring.Stop();
  filler.join();
}

TEST_P(HandoverTest, BlocksKeepTheirMemory) {
  Ring ring(2, GetParam());
  ring.ForFilling()->assign(100, 1);
  const int* const memory = ring.ForFilling()->data();
  ring.Filled();
  ring.ForFilling();
  ring.Filled();
  ring.Used();
  ring.Used();
  EXPECT_EQ(ring.ForFilling()->data(), memory);
}

INSTANTIATE_TEST_SUITE_P(Wakings, HandoverTest,
                         testing::Values(Ring::Waking::kEager, Ring::Waking::kLazy),
                         [](const auto& info) {
                           return info.param == Ring::Waking::kEager ? "Eager" : "Lazy";
                         });

}  // namespace
}  // namespace harvane
