// Frames of 1920x1080 to RGB with alpha and back, beside libyuv and swscale doing the nearest equal work:
// both in fixed point, swscale by its defaults and with all of its accuracy. Ours runs on one processor and
// on two; peers on one. Names: yuv/<to_rgb or to_yuv>/<layout>/<who>, yuv/<pair>/<who>.
#include <benchmark/benchmark.h>
#include <libyuv.h>
#include <sched.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "qn/qn.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace {

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kRgbStride = kWidth * 4;

struct Buffers {
  BITMAPINFOHEADER rgbHeader = {40, kWidth, kHeight, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  BITMAPINFOHEADER yuvHeader = {40, kWidth, kHeight, 1, 0, 0, 0, 0, 0, 0, 0};
  tQNYUVOFFSETS at = {};
  std::vector<BYTE> yuv, rgb;

  explicit Buffers(const std::string& fourcc) {
    yuvHeader.biCompression = QnMakeFourCC(fourcc[0], fourcc[1], fourcc[2], fourcc[3]);
    yuv.resize(QnYUVImageBytesAndOffsets(&yuvHeader, &at));
    rgb.resize(size_t{kRgbStride} * kHeight);
    std::mt19937 random(1);
    for (auto* bytes : {&yuv, &rgb}) std::generate(bytes->begin(), bytes->end(), random);
  }
  BYTE* U() { return yuv.data() + at.uOffset; }
  BYTE* V() { return yuv.data() + at.vOffset; }
  int YStride() const { return static_cast<int>(at.yStride); }
  int UStride() const { return static_cast<int>(at.uStride); }
};

// The processors that the thread may use, for as long as it stands.
class Processors {
 public:
  explicit Processors(size_t count) {
    sched_getaffinity(0, sizeof(saved_), &saved_);
    cpu_set_t few;
    CPU_ZERO(&few);
    for (int i = 0; i < CPU_SETSIZE && static_cast<size_t>(CPU_COUNT(&few)) < count; ++i) {
      if (CPU_ISSET(i, &saved_)) CPU_SET(i, &few);
    }
    sched_setaffinity(0, sizeof(few), &few);
  }
  ~Processors() { sched_setaffinity(0, sizeof(saved_), &saved_); }

 private:
  cpu_set_t saved_;
};

using Work = std::function<void(Buffers&)>;

void Register(const std::string& name, const std::string& fourcc, size_t processors, const Work& work) {
  benchmark::RegisterBenchmark(("yuv/" + name).c_str(), [=](benchmark::State& state) {
    Buffers buffers(fourcc);
    const Processors some(processors);
    for (auto _ : state) {
      work(buffers);
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
  })->UseRealTime();
}

constexpr tQNYUVCOLOR kColour = {0, QNYUV_709};

void OursToRgb(Buffers& b) {
  QnYUV_YUVToRGB(&b.rgbHeader, 1.0, b.rgb.data(), 0, &b.yuvHeader, b.yuv.data(), &b.at, &kColour);
}
void OursToYuv(Buffers& b) {
  QnYUV_RGBToYUV(&b.yuvHeader, b.yuv.data(), &b.at, &kColour, &b.rgbHeader, b.rgb.data(), 1.0, 0, 0);
}

Work Swscale(AVPixelFormat format, bool toRgb, int flags) {
  SwsContext* const context =
      sws_getContext(kWidth, kHeight, toRgb ? format : AV_PIX_FMT_BGRA, kWidth, kHeight,
                     toRgb ? AV_PIX_FMT_BGRA : format, flags, nullptr, nullptr, nullptr);
  return [=](Buffers& b) {
    const BYTE* yuv[4] = {b.yuv.data(), b.U(), b.V(), nullptr};
    if (av_pix_fmt_count_planes(format) < 3) yuv[2] = nullptr;
    if (av_pix_fmt_count_planes(format) < 2) yuv[1] = nullptr;
    const int yuvStride[4] = {b.YStride(), b.UStride(), static_cast<int>(b.at.vStride), 0};
    // From the last row up, as ours.
    const BYTE* rgb[4] = {b.rgb.data() + size_t{kRgbStride} * (kHeight - 1), nullptr, nullptr, nullptr};
    const int rgbStride[4] = {-kRgbStride, 0, 0, 0};
    sws_scale(context, toRgb ? yuv : rgb, toRgb ? yuvStride : rgbStride, 0, kHeight,
              const_cast<BYTE* const*>(toRgb ? rgb : yuv), toRgb ? rgbStride : yuvStride);
  };
}

struct Case {
  std::string fourcc;
  AVPixelFormat format;
  Work libyuvToRgb;
  Work libyuvToYuv;
};

// A negative height turns the rows around.
const Case kCases[] = {
    {"I420", AV_PIX_FMT_YUV420P,
     [](Buffers& b) {
       libyuv::I420ToARGB(b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.V(), b.UStride(), b.rgb.data(),
                          kRgbStride, kWidth, -kHeight);
     },
     [](Buffers& b) {
       libyuv::ARGBToI420(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.V(),
                          b.UStride(), kWidth, -kHeight);
     }},
    {"NV12", AV_PIX_FMT_NV12,
     [](Buffers& b) {
       libyuv::NV12ToARGB(b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.rgb.data(), kRgbStride, kWidth,
                          -kHeight);
     },
     [](Buffers& b) {
       libyuv::ARGBToNV12(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), b.U(), b.UStride(), kWidth,
                          -kHeight);
     }},
    {"YV16", AV_PIX_FMT_YUV422P,
     [](Buffers& b) {
       libyuv::I422ToARGB(b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.V(), b.UStride(), b.rgb.data(),
                          kRgbStride, kWidth, -kHeight);
     },
     [](Buffers& b) {
       libyuv::ARGBToI422(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.V(),
                          b.UStride(), kWidth, -kHeight);
     }},
    {"YV24", AV_PIX_FMT_YUV444P,
     [](Buffers& b) {
       libyuv::I444ToARGB(b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.V(), b.UStride(), b.rgb.data(),
                          kRgbStride, kWidth, -kHeight);
     },
     [](Buffers& b) {
       libyuv::ARGBToI444(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), b.U(), b.UStride(), b.V(),
                          b.UStride(), kWidth, -kHeight);
     }},
    {"UYVY", AV_PIX_FMT_UYVY422,
     [](Buffers& b) {
       libyuv::UYVYToARGB(b.yuv.data(), b.YStride(), b.rgb.data(), kRgbStride, kWidth, -kHeight);
     },
     [](Buffers& b) {
       libyuv::ARGBToUYVY(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), kWidth, -kHeight);
     }},
    {"YUYV", AV_PIX_FMT_YUYV422,
     [](Buffers& b) {
       libyuv::YUY2ToARGB(b.yuv.data(), b.YStride(), b.rgb.data(), kRgbStride, kWidth, -kHeight);
     },
     [](Buffers& b) {
       libyuv::ARGBToYUY2(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), kWidth, -kHeight);
     }},
    {"P010", AV_PIX_FMT_P010LE, nullptr, nullptr},
    {"P210", AV_PIX_FMT_P210LE, nullptr, nullptr},
    {"P216", AV_PIX_FMT_P216LE, nullptr, nullptr},
    {"Y210", AV_PIX_FMT_Y210LE, nullptr, nullptr},
    {"P410", AV_PIX_FMT_NONE, nullptr, nullptr},
    {"v210", AV_PIX_FMT_NONE, nullptr, nullptr},
};

const bool registered = [] {
  for (const Case& each : kCases) {
    for (const bool toRgb : {true, false}) {
      const std::string name = (toRgb ? "to_rgb/" : "to_yuv/") + each.fourcc + "/";
      Register(name + "ours", each.fourcc, 1, toRgb ? OursToRgb : OursToYuv);
      Register(name + "ours_two_processors", each.fourcc, 2, toRgb ? OursToRgb : OursToYuv);
      const Work& libyuv = toRgb ? each.libyuvToRgb : each.libyuvToYuv;
      if (libyuv) Register(name + "libyuv", each.fourcc, 1, libyuv);
      if (each.format == AV_PIX_FMT_NONE ||
          !(toRgb ? sws_isSupportedInput : sws_isSupportedOutput)(each.format)) {
        continue;
      }
      constexpr int kAccurate = SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
      Register(name + "swscale", each.fourcc, 1, Swscale(each.format, toRgb, SWS_BICUBIC));
      Register(name + "swscale_accurate", each.fourcc, 1,
               Swscale(each.format, toRgb, SWS_BICUBIC | kAccurate));
    }
  }
  Register("UYVY_to_RGBA/ours", "UYVY", 1, [](Buffers& b) {
    QnUYVY2RGBA(b.rgb.data(), b.yuv.data(), kRgbStride, kWidth, kHeight, QNUYVY_601);
  });
  Register("UYVY_to_RGBA/libyuv", "UYVY", 1, [](Buffers& b) {
    libyuv::UYVYToARGB(b.yuv.data(), b.YStride(), b.rgb.data(), kRgbStride, kWidth, kHeight);
  });
  Register("RGBA_to_UYVY/ours", "UYVY", 1, [](Buffers& b) {
    QnRGBA2UYVY(b.yuv.data(), b.rgb.data(), b.YStride(), kRgbStride, kWidth, kHeight, QNUYVY_601);
  });
  Register("RGBA_to_UYVY/libyuv", "UYVY", 1, [](Buffers& b) {
    libyuv::ARGBToUYVY(b.rgb.data(), kRgbStride, b.yuv.data(), b.YStride(), kWidth, kHeight);
  });
  return true;
}();

}  // namespace
