#include "qn/platform/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

bool AllBytesAre(const char* bytes, ptrdiff_t count, char value) {
  return std::count(bytes, bytes + count, value) == count;
}

TEST(GlobalMemory, FixedAndMovableBlocks) {
  for (const UINT flags : {GPTR, GHND}) {
    const HGLOBAL block = GlobalAlloc(flags, 1000);
    ASSERT_NE(block, nullptr);
    auto* bytes = static_cast<char*>(GlobalLock(block));
    EXPECT_EQ(bytes == block, flags == GPTR) << "the handle of a fixed block is its address";
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % 16, 0u);
    EXPECT_TRUE(AllBytesAre(bytes, 1000, 0));
    EXPECT_EQ(GlobalHandle(bytes), block);
    EXPECT_EQ(GlobalSize(block), 1000u);
    std::memset(bytes, 7, 1000);

    EXPECT_EQ(GlobalReAlloc(block, 2000, GMEM_ZEROINIT), nullptr) << "a pinned block may not move";
    const HGLOBAL grown = GlobalReAlloc(block, 100'000, GMEM_MOVEABLE | GMEM_ZEROINIT);
    ASSERT_NE(grown, nullptr);
    EXPECT_TRUE(flags == GPTR || grown == block);
    bytes = static_cast<char*>(GlobalLock(grown));
    EXPECT_TRUE(AllBytesAre(bytes, 1000, 7));
    EXPECT_TRUE(AllBytesAre(bytes + 1000, 99'000, 0));
    EXPECT_EQ(GlobalReAlloc(grown, 10, 0), grown) << "shrinking needs no move";
    EXPECT_EQ(GlobalSize(grown), 10u);
    EXPECT_EQ(GlobalFree(grown), nullptr);
  }
}

TEST(GlobalMemory, LocksAreCountedAndForeignPointersRefused) {
  const HGLOBAL block = GlobalAlloc(GHND, 16);
  GlobalLock(block);
  GlobalLock(block);
  EXPECT_TRUE(GlobalUnlock(block));
  EXPECT_FALSE(GlobalUnlock(block));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_NE(GlobalReAlloc(block, 64, 0), nullptr) << "an unlocked block moves without being told so";
  GlobalFree(block);

  alignas(16) char foreign[128] = {};
  EXPECT_EQ(GlobalLock(foreign + 64), nullptr);
  EXPECT_EQ(GlobalHandle(foreign + 64), nullptr);
  EXPECT_EQ(GlobalAlloc(GHND, SIZE_MAX), nullptr);
}

TEST(IsBadReadPtr, TellsUnreadableMemory) {
  const char readable[3] = {};
  EXPECT_FALSE(IsBadReadPtr(readable, 3));
  EXPECT_TRUE(IsBadReadPtr(nullptr, 1));
  EXPECT_TRUE(IsBadReadPtr(readable, SIZE_MAX));
}

}  // namespace
