#include <gtest/gtest.h>

#include "qn/qn.h"

// The macros that such a library's headers bring along.
#define TRUE 1
#define FALSE 0
#define GENERIC_READ (0x80000000L)

void* OpenByOtherLibrary();
unsigned LastErrorOfOtherLibrary();

namespace {

TEST(Clash, EachLibraryReachesItsOwnFunctions) {
  EXPECT_EQ(OpenByOtherLibrary(), reinterpret_cast<void*>(4711));
  EXPECT_EQ(LastErrorOfOtherLibrary(), 4711u);
  const HANDLE missing = CreateFileW(W("\\no\\such"), 0x80000000, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(missing, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  WAVEFORMATEX* const none = QnGetFileWfx(W("\\no\\such.wav"), nullptr, nullptr);
  EXPECT_EQ(none, nullptr);
}

}  // namespace
