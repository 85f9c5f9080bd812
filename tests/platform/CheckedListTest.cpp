#include "platform/CheckedList.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace harvane {
namespace {

constexpr const char* kStop = "list index out of range";

TEST(CheckedList, StartsEmpty) {
  const CheckedList<int> list;
  EXPECT_EQ(list.Size(), 0u);
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_TRUE(list.begin() == list.end());
}

TEST(CheckedList, KeepsTheOrderOfAppending) {
  CheckedList<int> list;
  for (const int value : {5, 3, 4}) list.Append(value);
  EXPECT_EQ(std::vector<int>(list.begin(), list.end()), (std::vector<int>{5, 3, 4}));
  EXPECT_FALSE(list.IsEmpty());
  EXPECT_EQ(list.Size(), 3u);
}

TEST(CheckedList, EntriesMayBeWrittenThroughTheIndex) {
  CheckedList<int> list = {1, 2};
  list[1] = 7;
  const CheckedList<int>& constant = list;
  EXPECT_EQ(constant[0], 1);
  EXPECT_EQ(constant[1], 7);
}

TEST(CheckedList, DataIsTheEntriesInOneRow) {
  const CheckedList<float> list = {1.0f, 2.0f};
  EXPECT_EQ(list.Data()[1], 2.0f);
  EXPECT_EQ(list.Data(), &list[0]);
}

TEST(CheckedList, CopyIsIndependent) {
  CheckedList<int> list = {1};
  CheckedList<int> copy = list;
  copy[0] = 2;
  copy.Append(3);
  EXPECT_EQ(list[0], 1);
  EXPECT_EQ(list.Size(), 1u);
}

TEST(CheckedList, TakesEntriesThatOnlyMove) {
  CheckedList<std::unique_ptr<int>> list;
  list.Append(std::make_unique<int>(4));
  EXPECT_EQ(*list[0], 4);
}

TEST(CheckedList, RoomLetsTheNextExtendStayWhereTheListIs) {
  for (const std::size_t count : {0U, 1U, 7U, 1000U}) {
    CheckedList<int> list = {5, 6};
    list.MakeRoom(count);
    ASSERT_EQ(std::vector<int>(list.begin(), list.end()), (std::vector<int>{5, 6}));
    const int* const before = list.Data();
    list.Extend(count);
    EXPECT_EQ(list.Data(), before) << count;
    EXPECT_EQ(list.Size(), 2 + count);
  }
}

TEST(CheckedList, RoomGrowsInLeaps) {
  CheckedList<int> list;
  int moves = 0;
  for (int i = 0; i < 10000; ++i) {
    const int* const before = list.Data();
    list.MakeRoom(1);
    if (list.Data() != before) ++moves;
    list.Append(i);
  }
  EXPECT_LE(moves, 20);
}

TEST(CheckedList, ClearEmptiesAndKeepsTheMemory) {
  CheckedList<int> list;
  list.Reserve(100);
  for (int i = 0; i < 100; ++i) list.Append(i);
  const int* const memory = list.Data();
  list.Clear();
  EXPECT_TRUE(list.IsEmpty());
  for (int i = 0; i < 100; ++i) list.Append(i);
  EXPECT_EQ(list.Data(), memory);
}

TEST(CheckedListDeathTest, EmptyListStops) {
  CheckedList<int> list;
  EXPECT_DEATH(list[0], kStop);
}

TEST(CheckedListDeathTest, IndexAtTheSizeStops) {
  const CheckedList<int> list = {1, 2};
  EXPECT_DEATH(list[2], kStop);
}

TEST(CheckedListDeathTest, NegativeIndexStops) {
  CheckedList<int> list = {1, 2};
  const int index = -1;
  EXPECT_DEATH(list[static_cast<std::size_t>(index)], kStop);
}

TEST(CheckedListDeathTest, WritingPastTheEndStops) {
  CheckedList<int> list = {1, 2};
  EXPECT_DEATH(list[2] = 1, kStop);
}

TEST(CheckedListDeathTest, IndexOfAClearedListStops) {
  CheckedList<int> list = {1, 2};
  list.Clear();
  EXPECT_DEATH(list[0], kStop);
}

TEST(CheckedListDeathTest, NoHandlerCatchesTheStop) {
  CheckedList<int> list;
  EXPECT_DEATH(
      {
        try {
          list[0] = 1;
        } catch (...) {
        }
      },
      kStop);
}

TEST(CheckedFlags, KeepsTheOrderOfAppending) {
  CheckedFlags flags;
  for (int i = 0; i < 20; ++i) flags.Append(i % 3 == 0);
  ASSERT_EQ(flags.Size(), 20u);
  for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(flags[i], i % 3 == 0) << i;
}

TEST(CheckedFlags, ClearEmpties) {
  CheckedFlags flags;
  flags.Append(true);
  flags.Clear();
  EXPECT_EQ(flags.Size(), 0u);
}

TEST(CheckedFlagsDeathTest, EmptyListStops) {
  const CheckedFlags flags;
  EXPECT_DEATH(flags[0], kStop);
}

TEST(CheckedFlagsDeathTest, IndexAtTheSizeStopsInsideTheLastByteToo) {
  CheckedFlags flags;
  flags.Append(true);
  EXPECT_TRUE(flags[0]);
  EXPECT_DEATH(flags[1], kStop);
}

TEST(CheckedFlagsDeathTest, NegativeIndexStops) {
  CheckedFlags flags;
  flags.Append(true);
  const int index = -1;
  EXPECT_DEATH(flags[static_cast<std::size_t>(index)], kStop);
}

}  // namespace
}  // namespace harvane
