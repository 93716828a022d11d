#include "core/cow_List.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

using List = cow_List<std::int64_t>;

List Counting(int count) {
  List list;
  for (int i = 0; i < count; ++i)
    list.Append(i);
  return list;
}

std::vector<std::int64_t> Content(List const& list) {
  std::vector<std::int64_t> content;
  for (int i = 0; i < list.Count(); ++i)
    content.push_back(list.ConstGet(i));
  return content;
}

TEST(List, BlockSizeFollowsTheExpectedCount) {
  List const none;
  EXPECT_EQ(none.BlockShift(), 4);
  EXPECT_EQ(none.BlockTableSize(), 0);
  // 1000 = 1.95 * 2^9: blocks of 2^6, 15 of them and 16 to spare.
  List const thousand(1000);
  EXPECT_EQ(thousand.BlockShift(), 6);
  EXPECT_EQ(thousand.BlockTableSize(), 31);
  EXPECT_EQ(thousand.Count(), 0);
  EXPECT_EQ(List(5).BlockShift(), 4);
  EXPECT_EQ(List(5).BlockTableSize(), 26); // 1.25 * 2^3 = 10 blocks, whatever their size
}

TEST(List, TableIsKeptAtGroupsOfSixteenSlots) {
  List list;
  list.Append(0);
  EXPECT_EQ(list.BlockTableSize(), 16);
  for (int i = 1; i <= 256; ++i)
    list.Append(i);
  EXPECT_EQ(list.Count(), 257);
  EXPECT_EQ(list.BlockTableSize(), 32);
  list.Resize(256);
  EXPECT_EQ(list.BlockTableSize(), 16);
  list.Resize(0);
  EXPECT_EQ(list.BlockTableSize(), 0);
  EXPECT_EQ(list.Count(), 0);
}

TEST(List, ResizingToNothingForgetsTheLargeBlocks) {
  List list(100000);
  EXPECT_GT(list.BlockShift(), 4);
  list.Append(1);
  list.Resize(0);
  EXPECT_EQ(list.BlockShift(), 4);
  list.Append(2);
  EXPECT_EQ(Content(list), std::vector<std::int64_t>{2});
}

TEST(List, CopiesShareUntilOneOfThemChanges) {
  List a = Counting(40), b(a);
  EXPECT_EQ(&a.ConstGet(20), &b.ConstGet(20));

  b.Append(100); // into the block that both share
  a.Append(200);
  b.Get(0) = -1;

  EXPECT_EQ(a.ConstGet(40), 200);
  EXPECT_EQ(b.ConstGet(40), 100);
  EXPECT_EQ(a.ConstGet(0), 0);
  EXPECT_EQ(&a.ConstGet(20), &b.ConstGet(20)) << "blocks that nobody wrote to stay shared";
}

TEST(List, DroppingTheFrontMovesElementZero) {
  List list = Counting(100);
  list.DropFront(20);
  EXPECT_EQ(list.First(), 20);
  EXPECT_EQ(list.ConstGet(0), 20);
  EXPECT_EQ(list.RunFrom(0).size(), 12u); // to the end of the second block
  EXPECT_EQ(list.RunFrom(12).size(), 16u);
  EXPECT_EQ(list.RunFrom(76).size(), 4u);
  list.Append(100);
  EXPECT_EQ(list.ConstGet(80), 100);
  list.DropFront(81);
  EXPECT_EQ(list.First(), 0);
  EXPECT_EQ(list.BlockTableSize(), 0);
}

TEST(List, BehavesAsAVectorUnderRandomUse) {
  std::mt19937 random(3);
  std::vector<List> lists(3);
  std::vector<std::vector<std::int64_t>> vectors(3);
  for (int step = 0; step < 20000; ++step) {
    std::size_t const k = random() % 3;
    int const count = lists[k].Count();
    switch (random() % 8) {
    case 0: {
      std::size_t const from = random() % 3;
      lists[k] = lists[from];
      vectors[k] = vectors[from];
      break;
    }
    case 1:
      if (count > 0) {
        int const n = static_cast<int>(random() % static_cast<unsigned>(count));
        lists[k].Resize(n);
        vectors[k].resize(n);
      }
      break;
    case 2:
      if (count > 40) {
        lists[k].DropFront(30);
        vectors[k].erase(vectors[k].begin(), vectors[k].begin() + 30);
      }
      break;
    case 3:
      if (count > 0) {
        int const i = static_cast<int>(random() % static_cast<unsigned>(count));
        lists[k].Get(i) = step;
        vectors[k][i] = step;
      }
      break;
    default:
      for (auto n = random() % 30; n > 0; --n) {
        lists[k].Append(step);
        vectors[k].push_back(step);
      }
    }
    if (step % 100 == 0) {
      for (std::size_t l = 0; l < 3; ++l)
        ASSERT_EQ(Content(lists[l]), vectors[l]) << "step " << step;
    }
  }
}

TEST(ListDeathTest, AnIndexOutsideEndsTheProcess) {
  List const list = Counting(3);
  EXPECT_DEATH(static_cast<void>(list.ConstGet(3)), "index 3 is outside a list of 3 records");
  EXPECT_DEATH(static_cast<void>(list.ConstGet(-1)), "index -1");
}

} // namespace
