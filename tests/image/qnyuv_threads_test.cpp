// Threads that share the rows of a frame, for the thread sanitizer too: any number of them leaves the same
// bytes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cfenv>
#include <thread>
#include <vector>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"
#include "qn/platform/rows_internal.h"

namespace {

constexpr LONG kWidth = 50, kHeight = 37;

// A bitmap made of a frame, and after it the frame made of that.
std::vector<BYTE> Convert() {
  const BITMAPINFOHEADER rgb = {40, kWidth, kHeight, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  const BITMAPINFOHEADER yuv = {40, kWidth, kHeight, 1, 12, QnMakeFourCC('N', 'V', '1', '2'), 0, 0, 0, 0, 0};
  constexpr size_t kBitmap = 4 * kWidth * kHeight;
  tQNYUVOFFSETS offsets;
  const tQNYUVCOLOR colour = {};
  std::vector<BYTE> bytes(kBitmap + QnYUVImageBytesAndOffsets(&yuv, &offsets));
  BYTE* const frame = bytes.data() + kBitmap;
  for (size_t i = kBitmap; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(i * i / 7);
  EXPECT_EQ(QnYUV_YUVToRGB(&rgb, 1, bytes.data(), 0, &yuv, frame, &offsets, &colour), S_OK);
  EXPECT_EQ(QnYUV_RGBToYUV(&yuv, frame, &offsets, &colour, &rgb, bytes.data(), 1, 0, 0), S_OK);
  return bytes;
}

TEST(YuvThreads, AnyNumberLeavesTheSameBytes) {
  qn::g_rowThreads = 1;
  const std::vector<BYTE> first = Convert();
  for (const size_t threads : {2, 5, 64, 0}) {
    qn::g_rowThreads = threads;
    for (int round = 0; round < 20; ++round) ASSERT_EQ(Convert(), first) << threads;
  }
}

TEST(YuvThreads, HelpInTheModesOfTheCaller) {
  qn::g_rowThreads = 2;
  for (const int rounding : {FE_UPWARD, FE_TOWARDZERO, FE_TONEAREST}) {
    std::fesetround(rounding);
    const auto caller = std::this_thread::get_id();
    std::atomic<bool> isHelped = false;
    while (!isHelped) {
      qn::ForRows(64, 1, [&](size_t, size_t) {
        EXPECT_EQ(std::fegetround(), rounding);
        if (std::this_thread::get_id() != caller) isHelped = true;
      });
    }
  }
}

TEST(YuvThreads, ServeSeveralCallersAndForksAtOnce) {
  qn::g_rowThreads = 1;
  const std::vector<BYTE> first = Convert();
  qn::g_rowThreads = 3;
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      for (int round = 0; round < 200; ++round) ASSERT_EQ(Convert(), first);
    });
  }
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)  // whose forks may not start threads
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(Convert() == first ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
#endif
  for (std::thread& caller : callers) caller.join();
}

}  // namespace
