// Threads that share the rows of a frame, for the thread sanitizer too: any number of them leaves the same
// bytes.
#include <gtest/gtest.h>

#include <vector>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"
#include "qn/platform/rows_internal.h"

namespace {

TEST(YuvThreads, AnyNumberLeavesTheSameBytes) {
  constexpr LONG kWidth = 50, kHeight = 37;
  const BITMAPINFOHEADER rgb = {40, kWidth, kHeight, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  const BITMAPINFOHEADER yuv = {40, kWidth, kHeight, 1, 12, QnMakeFourCC('N', 'V', '1', '2'), 0, 0, 0, 0, 0};
  tQNYUVOFFSETS offsets;
  const tQNYUVCOLOR colour = {};
  std::vector<BYTE> frame(QnYUVImageBytesAndOffsets(&yuv, &offsets)), firstFrame, firstBitmap;
  for (const size_t threads : {1, 2, 5, 64, 0}) {
    qn::g_rowThreads = threads;
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<BYTE>(i * i / 7);
    std::vector<BYTE> bitmap(4 * kWidth * kHeight);
    EXPECT_EQ(QnYUV_YUVToRGB(&rgb, 1, bitmap.data(), 0, &yuv, frame.data(), &offsets, &colour), S_OK);
    EXPECT_EQ(QnYUV_RGBToYUV(&yuv, frame.data(), &offsets, &colour, &rgb, bitmap.data(), 1, 0, 0), S_OK);
    if (threads == 1) firstFrame = frame, firstBitmap = bitmap;
    EXPECT_TRUE(frame == firstFrame && bitmap == firstBitmap) << threads;
  }
}

}  // namespace
