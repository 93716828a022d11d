#include "core/mem_Allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

struct Block {
  unsigned char* bytes;
  std::size_t size;
  unsigned char mark;
};

bool HoldsItsMark(Block const& block) {
  return std::all_of(block.bytes, block.bytes + block.size, [&](unsigned char b) { return b == block.mark; });
}

TEST(Allocator, BlocksNeverOverlapUnderRandomUse) {
  std::mt19937 random(7);
  std::vector<Block> live;
  for (int step = 0; step < 60000; ++step) {
    bool const grow = live.size() < 5000 && random() % 8 < (step < 40000 ? 5u : 3u);
    if (grow) {
      std::size_t const size = random() % 1100;
      auto* const bytes = static_cast<unsigned char*>(random() % 2 ? mem_OperatorNewTinyThrow(size)
                                                                   : mem_OperatorNewThrow(size));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % 16, 0u);
      auto const mark = static_cast<unsigned char>(random());
      std::memset(bytes, mark, size);
      live.push_back({bytes, size, mark});
    } else if (!live.empty()) {
      std::swap(live[random() % live.size()], live.back());
      ASSERT_TRUE(HoldsItsMark(live.back()));
      mem_Free(live.back().bytes);
      live.pop_back();
    }
  }
  for (Block const& block : live) {
    ASSERT_TRUE(HoldsItsMark(block));
    mem_Free(block.bytes);
  }
}

TEST(Allocator, EmptiedSlabsServeOtherSizes) {
  // More than a slab's worth of one size, freed in order and in reverse, then another size over the same
  // memory.
  for (bool const reverse : {false, true}) {
    std::vector<void*> cells(30000);
    for (void*& cell : cells)
      cell = mem_OperatorNewTinyThrow(272);
    if (reverse) std::reverse(cells.begin(), cells.end());
    for (void* cell : cells)
      mem_Free(cell);
    std::vector<void*> larger(20000);
    for (void*& cell : larger)
      std::memset(cell = mem_OperatorNewTinyThrow(1024), 0x5A, 1024);
    for (void* cell : larger) {
      ASSERT_EQ(static_cast<unsigned char*>(cell)[1023], 0x5A);
      mem_Free(cell);
    }
  }
}

TEST(Allocator, LargeArraysAreAlignedAndKeepTheirContentWhenResized) {
  std::size_t const size = std::size_t{9} << 20;
  auto* bytes = static_cast<unsigned char*>(mem_OperatorNewThrowBuiltin(size));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % (2u << 20), 0u);
  for (std::size_t k = 0; k < size; ++k)
    bytes[k] = static_cast<unsigned char>(k * 31);

  for (std::size_t const newSize : {size * 3, size / 2, std::size_t{100}, size}) {
    std::size_t const kept = std::min(newSize, std::size_t{100});
    bytes = static_cast<unsigned char*>(mem_ReallocThrowBuiltin(bytes, newSize));
    for (std::size_t k = 0; k < kept; ++k)
      ASSERT_EQ(bytes[k], static_cast<unsigned char>(k * 31));
    if (newSize > kept) bytes[newSize - 1] = 1;
  }
  mem_Free(bytes);
}

TEST(Allocator, RequestsThatCannotBeMetThrowAndSaySo) {
  EXPECT_EQ(mem_ArrayBytes(-1, 8), SIZE_MAX);
  EXPECT_EQ(mem_ArrayBytes(INT64_MAX, 8), SIZE_MAX);
  EXPECT_EQ(mem_ArrayBytes(3, 8), 24u);
  EXPECT_THROW(mem_NewArray<double>(-5), mem_OutOfMemory);
  void* const block = mem_OperatorNewThrowBuiltin(64);
  EXPECT_THROW(mem_ReallocThrowBuiltin(block, SIZE_MAX / 2), mem_OutOfMemory);
  mem_Free(block);
  try {
    mem_OperatorNewThrow(std::size_t{1} << 62);
    FAIL() << "no error";
  } catch (mem_OutOfMemory const& e) {
    EXPECT_STREQ(e.what(), "out of memory: 4611686018427387904 bytes wanted");
  }
}

TEST(Allocator, EmptyRequestsGiveBlocksOfTheirOwn) {
  void* const a = mem_OperatorNewTinyThrow(0);
  void* const b = mem_OperatorNewTinyThrow(0);
  void* const c = mem_OperatorNewThrowBuiltin(0);
  EXPECT_NE(a, b);
  EXPECT_NE(c, nullptr);
  for (void* block : {a, b, c, static_cast<void*>(nullptr)})
    mem_Free(block);
}

} // namespace
