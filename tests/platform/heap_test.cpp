#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "qn/platform/memory.h"
#include "tests/support/support.h"

namespace {

// Blocks of all sizes come, move and go at random; none may touch another, and content survives.
TEST(PrivateHeap, RandomUseKeepsEveryBlocksContent) {
  struct Block {
    uint8_t* bytes;
    size_t size;
    uint8_t fill;
  };
  auto& random = qntest::Random();
  const HANDLE heap = HeapCreate(HEAP_NO_SERIALIZE, 4096, 0);
  ASSERT_NE(heap, nullptr);
  std::vector<Block> blocks;
  const auto intact = [](const Block& block, size_t size) {
    return std::count(block.bytes, block.bytes + size, block.fill) == static_cast<ptrdiff_t>(size);
  };
  const auto randomSize = [&] { return random() % (random() % 8 == 0 ? 5000 : 200); };
  for (int round = 0; round < 20'000; ++round) {
    if (blocks.size() < 50 || random() % 2 == 0) {
      Block block = {nullptr, randomSize(), static_cast<uint8_t>(random() % 255 + 1)};
      block.bytes = static_cast<uint8_t*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, block.size));
      ASSERT_NE(block.bytes, nullptr);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(block.bytes) % 16, 0u);
      ASSERT_EQ(std::count(block.bytes, block.bytes + block.size, 0), static_cast<ptrdiff_t>(block.size));
      std::memset(block.bytes, block.fill, block.size);
      blocks.push_back(block);
      continue;
    }
    Block& block = blocks[random() % blocks.size()];
    ASSERT_EQ(HeapSize(heap, 0, block.bytes), block.size);
    if (random() % 2) {
      const size_t size = randomSize();
      block.bytes = static_cast<uint8_t*>(HeapReAlloc(heap, 0, block.bytes, size));
      ASSERT_NE(block.bytes, nullptr);
      ASSERT_TRUE(intact(block, std::min(size, block.size)));
      block.size = size;
      std::memset(block.bytes, block.fill, block.size);
    } else {
      ASSERT_TRUE(intact(block, block.size));
      ASSERT_TRUE(HeapFree(heap, 0, block.bytes));
      block = blocks.back();
      blocks.pop_back();
    }
  }
  for (const Block& block : blocks) ASSERT_TRUE(intact(block, block.size));
  EXPECT_TRUE(HeapDestroy(heap)) << "blocks in use go with the heap";
}

}  // namespace
