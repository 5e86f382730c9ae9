// Conversion of YUV frames beside libyuv and swscale, as programs that exchange frames with ours use them.
// They compute in fixed point and swscale places shared chroma elsewhere, so the picture's colours change
// slowly.
#include <gtest/gtest.h>
#include <libyuv.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace {

constexpr int kSize = 256, kStride = 4 * kSize;
constexpr tQNYUVCOLOR kColour = {0, QNYUV_601};

struct Frame {
  BITMAPINFOHEADER header = {40, kSize, kSize, 1, 0, 0, 0, 0, 0, 0, 0};
  tQNYUVOFFSETS at = {};
  std::vector<BYTE> bits;

  explicit Frame(const char* code) {
    header.biCompression = QnMakeFourCC(code[0], code[1], code[2], code[3]);
    bits.resize(QnYUVImageBytesAndOffsets(&header, &at));
  }
  BYTE* Y() { return bits.data(); }
  BYTE* U() { return bits.data() + at.uOffset; }
  BYTE* V() { return bits.data() + at.vOffset; }
  int Row() const { return static_cast<int>(at.yStride); }
  int ChromaRow() const { return static_cast<int>(at.uStride); }
};

using Peer = std::function<void(Frame&, BYTE* rgb)>;

Peer Swscale(AVPixelFormat format, bool toRgb) {
  return [=](Frame& frame, BYTE* rgb) {
    constexpr int kFlags =
        SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT;
    const AVPixelFormat from = toRgb ? format : AV_PIX_FMT_BGRA, to = toRgb ? AV_PIX_FMT_BGRA : format;
    SwsContext* const context =
        sws_getContext(kSize, kSize, from, kSize, kSize, to, kFlags, nullptr, nullptr, nullptr);
    ASSERT_TRUE(context);
    const int planes = av_pix_fmt_count_planes(format);
    BYTE* yuv[4] = {frame.Y(), planes > 1 ? frame.U() : nullptr, planes > 2 ? frame.V() : nullptr, nullptr};
    const int yuvStride[4] = {frame.Row(), frame.ChromaRow(), frame.ChromaRow(), 0};
    BYTE* pixels[4] = {rgb, nullptr, nullptr, nullptr};
    const int stride[4] = {kStride, 0, 0, 0};
    sws_scale(context, toRgb ? yuv : pixels, toRgb ? yuvStride : stride, 0, kSize, toRgb ? pixels : yuv,
              toRgb ? stride : yuvStride);
    sws_freeContext(context);
  };
}

template <auto convert>
void FromThreePlanes(Frame& f, BYTE* rgb) {
  convert(f.Y(), f.Row(), f.U(), f.ChromaRow(), f.V(), f.ChromaRow(), rgb, kStride, kSize, kSize);
}
template <auto convert>
void ToThreePlanes(Frame& f, BYTE* rgb) {
  convert(rgb, kStride, f.Y(), f.Row(), f.U(), f.ChromaRow(), f.V(), f.ChromaRow(), kSize, kSize);
}
template <auto convert>
void FromOnePlane(Frame& f, BYTE* rgb) {
  convert(f.Y(), f.Row(), rgb, kStride, kSize, kSize);
}
template <auto convert>
void ToOnePlane(Frame& f, BYTE* rgb) {
  convert(rgb, kStride, f.Y(), f.Row(), kSize, kSize);
}
void FromNV12(Frame& f, BYTE* rgb) {
  libyuv::NV12ToARGB(f.Y(), f.Row(), f.U(), f.ChromaRow(), rgb, kStride, kSize, kSize);
}
void ToNV12(Frame& f, BYTE* rgb) {
  libyuv::ARGBToNV12(rgb, kStride, f.Y(), f.Row(), f.U(), f.ChromaRow(), kSize, kSize);
}

// The most that two samples are apart, in codes of 8 bits.
double Apart(const std::vector<BYTE>& one, const std::vector<BYTE>& two, size_t bytes) {
  int most = 0;
  for (size_t i = 0; i + bytes <= one.size(); i += bytes) {
    const auto sample = [=](const std::vector<BYTE>& from) {
      return bytes == 1 ? from[i] : from[i] | from[i + 1] << 8;
    };
    most = std::max(most, std::abs(sample(one) - sample(two)));
  }
  return bytes == 1 ? most : most / 256.0;
}

TEST(YuvPeers, AgreeWithinTheirTolerance) {
  struct Row {
    const char* fourcc;
    Peer toRgb, toYuv;  // null for what the peer lacks
    double mostRgb = 2, mostYuv = 2;
    size_t bytes = 1;
  };
  const auto swscale = [](const char* fourcc, AVPixelFormat format, size_t bytes = 1) {
    const bool lacks = format == AV_PIX_FMT_Y210LE;
    return Row{fourcc, Swscale(format, true), lacks ? nullptr : Swscale(format, false),
               3,      bytes == 1 ? 1 : 0.25, bytes};
  };
  const Row kRows[] = {
      {"YV24", FromThreePlanes<libyuv::I444ToARGB>, ToThreePlanes<libyuv::ARGBToI444>},
      {"YV16", FromThreePlanes<libyuv::I422ToARGB>, ToThreePlanes<libyuv::ARGBToI422>},
      {"YV12", FromThreePlanes<libyuv::I420ToARGB>, ToThreePlanes<libyuv::ARGBToI420>},
      {"I420", FromThreePlanes<libyuv::I420ToARGB>, ToThreePlanes<libyuv::ARGBToI420>},
      {"NV12", FromNV12, ToNV12},
      {"UYVY", FromOnePlane<libyuv::UYVYToARGB>, ToOnePlane<libyuv::ARGBToUYVY>},
      {"YUYV", FromOnePlane<libyuv::YUY2ToARGB>, ToOnePlane<libyuv::ARGBToYUY2>},
      swscale("YV24", AV_PIX_FMT_YUV444P),
      swscale("YV16", AV_PIX_FMT_YUV422P),
      swscale("I420", AV_PIX_FMT_YUV420P),
      swscale("NV12", AV_PIX_FMT_NV12),
      swscale("UYVY", AV_PIX_FMT_UYVY422),
      swscale("YUYV", AV_PIX_FMT_YUYV422),
      swscale("P010", AV_PIX_FMT_P010LE, 2),
      swscale("P210", AV_PIX_FMT_P210LE, 2),
      swscale("P216", AV_PIX_FMT_P216LE, 2),
      swscale("Y210", AV_PIX_FMT_Y210LE, 2),
  };
  const BITMAPINFOHEADER header = {40, kSize, -kSize, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  std::vector<BYTE> picture(size_t{kStride} * kSize);
  for (size_t i = 0; i < picture.size(); i += 4) {
    const size_t x = i / 4 % kSize, y = i / kStride;
    const size_t pixel[] = {255 - (x + y) / 2, y, x, 255};
    std::copy_n(pixel, 4, picture.begin() + static_cast<ptrdiff_t>(i));
  }
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.fourcc) + " " + std::to_string(&row - kRows));
    Frame ours(row.fourcc), theirs(row.fourcc);
    ASSERT_EQ(QnYUV_RGBToYUV(&ours.header, ours.Y(), &ours.at, &kColour, &header, picture.data(), 1, 0, 0),
              S_OK);
    std::vector<BYTE> rgb(picture.size()), others(picture.size());
    ASSERT_EQ(QnYUV_YUVToRGB(&header, 1, rgb.data(), 0, &ours.header, ours.Y(), &ours.at, &kColour), S_OK);
    row.toRgb(ours, others.data());
    EXPECT_LE(Apart(rgb, others, 1), row.mostRgb);
    if (!row.toYuv) continue;
    row.toYuv(theirs, picture.data());
    EXPECT_LE(Apart(ours.bits, theirs.bits, row.bytes), row.mostYuv);
  }
}

}  // namespace
