// Conversion of YUV frames, held against a model in doubles that reads and writes single samples.
#include "qn/image/qnyuv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hwy/highway.h"
#include "qn/image/qndib.h"
#include "qn/kernel/qncpu.h"
#include "qn/platform/rows_internal.h"
#include "tests/support/support.h"

namespace {

enum Form { kPlanes, kTurns, kUYVY, kYUYV, kV210 };

// Bits of a sample and those below it in its word, and how many columns and rows share chroma.
struct Layout {
  const char* fourcc;
  Form form;
  int bits, lowest, columns, rows;
};
constexpr Layout kLayouts[] = {
    {"YV24", kPlanes, 8, 0, 1, 1},  {"YV16", kPlanes, 8, 0, 2, 1},  {"YV12", kPlanes, 8, 0, 2, 2},
    {"NV12", kTurns, 8, 0, 2, 2},   {"I420", kPlanes, 8, 0, 2, 2},  {"A410", kPlanes, 10, 6, 1, 1},
    {"P412", kPlanes, 12, 4, 1, 1}, {"P410", kPlanes, 10, 6, 1, 1}, {"Y210", kYUYV, 10, 6, 2, 1},
    {"P216", kTurns, 16, 0, 2, 1},  {"P212", kTurns, 12, 4, 2, 1},  {"P210", kTurns, 10, 6, 2, 1},
    {"PL10", kTurns, 10, 0, 2, 2},  {"P012", kTurns, 12, 4, 2, 2},  {"P010", kTurns, 10, 6, 2, 2},
    {"v210", kV210, 10, 0, 2, 1},   {"YUYV", kYUYV, 8, 0, 2, 1},    {"UYVY", kUYVY, 8, 0, 2, 1}};

DWORD FourCC(const char* text) {
  return QnMakeFourCC(text[0], text[1], text[2], text[3]);
}

// A frame of exactly its bytes, of random ones.
struct Frame {
  const Layout& layout;
  BITMAPINFOHEADER header = {40, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
  tQNYUVOFFSETS at = {};
  std::unique_ptr<BYTE[]> bits;
  size_t bytes;

  Frame(const Layout& kind, LONG width, LONG height) : layout(kind) {
    header.biWidth = width;
    header.biHeight = height;
    header.biCompression = FourCC(kind.fourcc);
    bytes = QnYUVImageBytesAndOffsets(&header, &at);
    bits = std::make_unique<BYTE[]>(bytes);
    for (size_t i = 0; i < bytes; ++i) bits[i] = static_cast<BYTE>(qntest::Random()());
  }

  // The bit where a sample is: component 0 is Y, 1 U, 2 V, 3 alpha; x and y count its own columns and rows.
  size_t Bit(int component, size_t x, size_t y) const {
    const size_t unit = layout.bits > 8 ? 2 : 1;
    const size_t row = y * at.yStride;
    const size_t chroma = component == 2;
    const auto low = static_cast<size_t>(layout.lowest);
    if (layout.form == kV210) {
      const size_t nth = component == 0 ? 2 * x + 1 : 4 * x + 2 * chroma;
      return 8 * (row + nth / 3 * 4) + nth % 3 * 10;
    }
    if (layout.form == kUYVY || layout.form == kYUYV) {
      const size_t first = (layout.form == kUYVY) == (component == 0);
      return 8 * (row + unit * ((component == 0 ? 2 * x : 4 * x + 2 * chroma) + first)) + low;
    }
    if (component == 0) return 8 * (row + unit * x) + low;
    if (layout.form == kTurns) return 8 * (at.uOffset + y * at.uStride + unit * (2 * x + chroma)) + low;
    const size_t offset[] = {0, at.uOffset, at.vOffset, at.alphaOffset};
    const size_t stride[] = {0, at.uStride, at.vStride, at.alphaStride};
    return 8 * (offset[component] + y * stride[component] + unit * x) + low;
  }
  int Get(int component, size_t x, size_t y) const {
    const size_t bit = Bit(component, x, y);
    int value = 0;
    for (int i = 0; i < layout.bits; ++i) {
      const size_t each = bit + static_cast<size_t>(i);
      value |= (bits[each / 8] >> each % 8 & 1) << i;
    }
    return value;
  }
  double Get8(int component, size_t x, size_t y) const {
    return std::ldexp(Get(component, x, y), 8 - layout.bits);
  }
  // The column or row of the chroma of a pixel.
  static size_t Shared(size_t at, int sharing, LONG size) {
    return std::min(at / static_cast<size_t>(sharing), static_cast<size_t>(size / sharing - 1));
  }
};

struct Bitmap {
  BITMAPINFOHEADER header = {40, 0, 0, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  size_t pixel;
  std::vector<BYTE> bits;

  Bitmap(int type, LONG width, LONG height) : pixel(type == QNPIXEL_RGBAFLOAT ? 16 : 4) {
    header.biWidth = width;
    header.biHeight = height;
    if (type != QNPIXEL_RGB32) header.biCompression = QNBI_DEEP;
    header.biBitCount = static_cast<WORD>(8 * pixel);
    bits.resize(pixel * static_cast<size_t>(width * std::abs(height)));
    for (size_t i = 0; i < bits.size(); ++i) bits[i] = static_cast<BYTE>(qntest::Random()());
    for (size_t i = 0; pixel == 16 && i < bits.size(); i += 4) {
      const float value = static_cast<float>(bits[i]) / 240 - 0.03f;
      std::memcpy(&bits[i], &value, 4);
    }
  }
  // The row that is first by number.
  BYTE* First(LONG stride) {
    return bits.data() + (stride < 0 ? -stride * (std::abs(header.biHeight) - 1) : 0);
  }
  // In 0 to 255.
  double Get(size_t component, size_t x, size_t line, LONG width) const {
    const size_t at = (line * static_cast<size_t>(width) + x) * pixel;
    if (pixel == 4) return bits[at + component];
    float value;
    std::memcpy(&value, &bits[at + 4 * component], 4);
    return value * 255.0;
  }
};

HRESULT ToRgb(const Frame& frame, Bitmap& bitmap, DWORD matrix, double range, LONG stride = 0) {
  const tQNYUVCOLOR colour = {0, matrix};
  return QnYUV_YUVToRGB(&bitmap.header, range, bitmap.First(stride), stride, &frame.header, frame.bits.get(),
                        &frame.at, &colour);
}
HRESULT ToYuv(Frame& frame, Bitmap& bitmap, DWORD matrix, double range, LONG selector = 0, LONG stride = 0) {
  const tQNYUVCOLOR colour = {0, matrix};
  return QnYUV_RGBToYUV(&frame.header, frame.bits.get(), &frame.at, &colour, &bitmap.header,
                        bitmap.First(stride), range, stride, selector);
}

// Luma, U and V by red, green and blue; then blue by U, green by V and U, red by V: in floats, and in fixed
// point with a chroma of less swing.
struct Model {
  double forward[3][3], back[4], fixed[4];
};
constexpr Model kModels[] = {
    {{{0.299, 0.587, 0.114}, {-0.172552, -0.338864, 0.511416}, {0.511416, -0.428259, -0.083156}},
     {1.772, -0.7141, -0.3441, 1.402},
     {1.732446, -0.69816, -0.336419, 1.370705}},
    {{{0.2126, 0.7152, 0.0722}, {-0.117216, -0.394199, 0.511416}, {0.511416, -0.46457, -0.046846}},
     {1.8556, -0.4681, -0.1873, 1.5748},
     {1.81418, -0.457651, -0.183119, 1.539648}},
    {{{0.2627, 0.678, 0.0593}, {-0.142787, -0.368628, 0.511416}, {0.511416, -0.470298, -0.041118}},
     {1.8814, -0.5714, -0.1646, 1.4746},
     {1.839404, -0.558646, -0.160926, 1.441685}}};

// Runs with each instruction set, and on one thread and several; all must leave the same bytes.
void RunAllWays(const std::function<void()>& run, const void* bytes, size_t count) {
  std::vector<BYTE> first;
  const int64_t supported = hwy::SupportedTargets() | HWY_STATIC_TARGET;
  for (const int64_t target : {HWY_AVX3_DL, HWY_AVX2, HWY_STATIC_TARGET}) {
    if (!(supported & target)) continue;
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    for (const size_t threads : {1, 3}) {
      qn::g_rowThreads = threads;
      run();
      const auto* const now = static_cast<const BYTE*>(bytes);
      if (first.empty()) first.assign(now, now + count);
      EXPECT_TRUE(std::equal(first.begin(), first.end(), now)) << hwy::TargetName(target);
    }
  }
  qn::g_rowThreads = 0;
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

void ForAllFrames(
    const std::function<void(const Layout&, LONG, LONG, int type, int matrix, double range)>& run) {
  constexpr int kTypes[] = {QNPIXEL_RGB32, QNPIXEL_RGBA32, QNPIXEL_RGBAFLOAT};
  int turn = 0;
  for (const Layout& layout : kLayouts) {
    const bool even = layout.form == kUYVY || layout.form == kYUYV;
    for (const LONG width : {2, 3, 31, 34, 65, 194, 716, 1}) {
      if ((even && width % 2) || (width == 1 && layout.columns == 2 && layout.form != kV210)) continue;
      for (const LONG height : {2, 5, -3}) {
        ++turn;
        SCOPED_TRACE(std::string(layout.fourcc) + " " + std::to_string(width) + "x" + std::to_string(height));
        run(layout, width, height, kTypes[turn % 3], turn / 3 % 4, turn % 2 ? 0.0 : 1.0);
      }
    }
  }
}
constexpr DWORD kSelectors[] = {QNYUV_601, QNYUV_709, QNYUV_2020, 0};
int MatrixOf(int choice, LONG width) {
  return choice < 3 ? choice : width == 716 ? 0 : 1;
}

TEST(Yuv, ToRgbFollowsItsEquations) {
  ForAllFrames([](const Layout& layout, LONG width, LONG height, int type, int matrix, double range) {
    const Frame frame(layout, width, std::abs(height));
    Bitmap bitmap(type, width, height);
    const bool up = matrix == 1;  // by a stride below 0
    const LONG stride = static_cast<LONG>(bitmap.pixel) * (up ? -width : width);
    RunAllWays([&] { EXPECT_EQ(ToRgb(frame, bitmap, kSelectors[matrix], range, stride), S_OK); },
               bitmap.bits.data(), bitmap.bits.size());
    const Model& model = kModels[MatrixOf(matrix, width)];
    const double offset = range == 0 ? 0 : 16, gain = range == 0 ? 1 : 1.1643835;
    const double chromaGain = range == 0 ? 0.9776786 : 1.1383928;
    const auto lines = static_cast<size_t>(std::abs(height));
    for (size_t y = 0; y < lines; ++y) {
      const size_t line = (height < 0) != up ? y : lines - 1 - y;
      for (size_t x = 0; x < static_cast<size_t>(width); ++x) {
        const size_t pair = layout.form == kV210 ? x / 2 : Frame::Shared(x, layout.columns, width);
        const size_t below = Frame::Shared(y, layout.rows, static_cast<LONG>(lines));
        const double luma = (frame.Get8(0, x, y) - offset) * gain;
        const double u = (frame.Get8(1, pair, below) - 128) * chromaGain;
        const double v = (frame.Get8(2, pair, below) - 128) * chromaGain;
        const double wanted[] = {luma + u * model.back[0], luma + v * model.back[1] + u * model.back[2],
                                 luma + v * model.back[3]};
        for (size_t i = 0; i < 3; ++i) {
          const double clipped = std::clamp(wanted[i], 0.0, 255.0);
          ASSERT_NEAR(bitmap.Get(i, x, line, width), clipped, bitmap.pixel == 4 ? 0.5001 : 1e-4)
              << x << " " << y;
        }
        ASSERT_EQ(bitmap.Get(3, x, line, width), 255);
      }
    }
  });
}

TEST(Yuv, ToYuvFollowsItsEquations) {
  ForAllFrames([](const Layout& layout, LONG width, LONG height, int type, int matrix, double range) {
    Frame frame(layout, width, std::abs(height));
    Bitmap bitmap(type, width, height);
    const LONG selector = (width + height) & 3;
    RunAllWays([&] { EXPECT_EQ(ToYuv(frame, bitmap, kSelectors[matrix], range, selector), S_OK); },
               frame.bits.get(), frame.bytes);
    const Model& model = kModels[MatrixOf(matrix, width)];
    const double gain = range == 0 ? 1 : 219.0 / 255;
    const auto lines = static_cast<size_t>(std::abs(height));
    const auto columns = static_cast<size_t>(width);
    const auto get = [&](size_t component, size_t x, size_t y) {
      return bitmap.Get(component, x, height < 0 ? y : lines - 1 - y, width);
    };
    const auto weigh = [&](int by, size_t x, size_t y) {
      const double* const row = model.forward[by];
      return (row[0] * get(2, x, y) + row[1] * get(1, x, y) + row[2] * get(0, x, y)) * gain;
    };
    const auto check = [&](int component, size_t x, size_t y, double wanted) {
      const double most = 256 - std::ldexp(1, 8 - layout.bits);
      const double near = std::ldexp(0.5001, 8 - layout.bits) + 2e-4;
      ASSERT_NEAR(frame.Get8(component, x, y), std::clamp(wanted, 0.0, most), near)
          << component << " " << x << " " << y;
    };
    for (size_t y = 0; y < lines; ++y) {
      for (size_t x = 0; x < columns; ++x) {
        check(0, x, y, weigh(0, x, y) + (range == 0 ? 0 : 16));
        if (std::string(layout.fourcc) != "A410") continue;
        const double alpha = type == QNPIXEL_RGB32 ? 255 : std::clamp(get(3, x, y), 0.0, 255.0);
        ASSERT_NEAR(frame.Get(3, x, y), alpha * 1023 / 255, 0.5001);
      }
    }
    // A last column has chroma of its own in v210 alone.
    const auto across = static_cast<size_t>(layout.columns), down = static_cast<size_t>(layout.rows);
    for (size_t y = 0; y < lines / down; ++y) {
      for (size_t x = 0; x < (layout.form == kV210 ? (columns + 1) / 2 : columns / across); ++x) {
        for (int component = 1; component < 3; ++component) {
          double sum = 0;
          for (size_t i = 0; i < across * down; ++i) {
            const size_t column = x * across + (selector & QNYUV_CHROMA_LEFT ? 0 : i % across);
            const size_t line = y * down + (selector & QNYUV_CHROMA_UPPER ? 0 : i / across);
            sum += weigh(component, std::min(column, columns - 1), line);
          }
          check(component, x, y, 128 + sum / static_cast<double>(across * down));
        }
      }
    }
  });
}

// Colour bars of full saturation in studio range, as broadcast standards publish them, in 10 bits.
TEST(Yuv, MeetsPublishedPatches) {
  struct Patch {
    BYTE blue, green, red;
    int matrix, y, u, v;
  };
  constexpr Patch kPatches[] = {
      {255, 255, 255, 1, 940, 512, 512}, {0, 255, 255, 1, 877, 64, 553},  {255, 255, 0, 1, 754, 615, 64},
      {0, 255, 0, 1, 690, 167, 105},     {255, 0, 255, 1, 314, 857, 919}, {0, 0, 255, 1, 250, 409, 960},
      {255, 0, 0, 1, 127, 960, 471},     {0, 0, 0, 1, 64, 512, 512},      {0, 255, 255, 0, 840, 64, 585},
      {255, 255, 0, 0, 678, 663, 64},    {0, 255, 0, 0, 578, 215, 137},   {255, 0, 255, 0, 426, 809, 887},
      {0, 0, 255, 0, 326, 361, 960},     {255, 0, 0, 0, 164, 960, 439}};
  for (const Patch& patch : kPatches) {
    Frame frame(kLayouts[15], 1, 1);
    Bitmap bitmap(QNPIXEL_RGB32, 1, 1);
    bitmap.bits = {patch.blue, patch.green, patch.red, 0};
    ToYuv(frame, bitmap, kSelectors[patch.matrix], 1);
    EXPECT_NEAR(frame.Get(0, 0, 0), patch.y, 1);
    EXPECT_NEAR(frame.Get(1, 0, 0), patch.u, 1);
    EXPECT_NEAR(frame.Get(2, 0, 0), patch.v, 1);
    bitmap.bits.assign(4, 7);
    ToRgb(frame, bitmap, kSelectors[patch.matrix], 1);
    EXPECT_EQ(bitmap.bits, (std::vector<BYTE>{patch.blue, patch.green, patch.red, 255}));
  }
}

// The largest error of a colour there and back. Full range clips the chroma of the purest blue and red.
TEST(Yuv, RoundTrips) {
  constexpr int kErrors[][3] = {{0, 0, 5}, {0, 1, 2}, {5, 0, 5}, {5, 1, 0}, {6, 0, 5}, {6, 1, 0}};
  for (const auto& [index, range, most] : kErrors) {
    Frame frame(kLayouts[index], 512, 128);
    Bitmap bitmap(QNPIXEL_RGB32, 512, 128), back(QNPIXEL_RGB32, 512, 128);
    ToYuv(frame, bitmap, QNYUV_709, range);
    ToRgb(frame, back, QNYUV_709, range);
    int error = 0;
    for (size_t i = 0; i < back.bits.size(); ++i) {
      if (i % 4 != 3) error = std::max(error, std::abs(back.bits[i] - bitmap.bits[i]));
    }
    EXPECT_LE(error, most) << kLayouts[index].fourcc << range;
  }
}

// Both variants of the pair, the way a host chooses them, with rows of exact size.
void RunPair(const std::function<void()>& run) {
  QnDisallowCPUSupport(QNCPU_SSE2);
  run();
  QnAllowCPUSupport(QNCPU_SSE2);
  run();
}
int Fixed(double value) {
  return static_cast<int>(std::lround(value * 4096));
}
int Clip(int value, int least, int most) {
  return std::clamp(value >> 12, least, most);
}

TEST(Yuv, UyvyPairTakesEveryValueToRgb) {
  for (int matrix = 0; matrix < 3; ++matrix) {
    const double* const by = kModels[matrix].fixed;
    const int blue = Fixed(by[0]), greenV = Fixed(by[1]), greenU = Fixed(by[2]), red = Fixed(by[3]);
    std::vector<BYTE> uyvy(4 * 65536), rgb(8 * 65536);
    for (int y = 0; y < 128; ++y) {
      for (int i = 0; i < 65536; ++i) {
        const int pair[] = {i & 255, y, i >> 8, 255 - y};
        std::copy_n(pair, 4, uyvy.begin() + 4 * i);
      }
      RunPair([&] {
        const LONG pixel = 3 + y % 2;
        const auto convert = pixel == 3 ? QnUYVY2RGB : QnUYVY2RGBA;
        ASSERT_EQ(convert(rgb.data(), uyvy.data(), 512 * pixel, 512, 256, matrix + 1), S_OK);
        int wrong = 0;
        for (int i = 0; i < 131072; ++i) {
          const int u = (i / 2 & 255) - 128, v = i / 512 - 128, luma = (i % 2 ? 255 - y : y) * 4096 + 2048;
          const BYTE* const now = &rgb[static_cast<size_t>(i * pixel)];
          wrong += now[0] != Clip(u * blue + luma, 0, 255);
          wrong += now[1] != Clip(v * greenV + u * greenU + luma, 0, 255);
          wrong += now[2] != Clip(v * red + luma, 0, 255) || (pixel == 4 && now[3] != 255);
        }
        EXPECT_EQ(wrong, 0) << matrix << " " << y;
      });
    }
  }
}

TEST(Yuv, UyvyPairTakesEveryValueFromRgb) {
  for (int matrix = 0; matrix < 3; ++matrix) {
    const auto& by = kModels[matrix].forward;
    std::vector<BYTE> uyvy(2 * 65536), rgb(4 * 65536);
    for (int blue = 0; blue < 256; ++blue) {
      const int pixel = 3 + blue % 2;
      const auto rgbOf = [&](int i) { return std::array{blue ^ (i % 2 * 127), i >> 8, i & 255}; };
      for (int i = 0; i < 65536; ++i) std::ranges::copy(rgbOf(i), rgb.begin() + i * pixel);
      RunPair([&] {
        const auto convert = pixel == 3 ? QnRGB2UYVY : QnRGBA2UYVY;
        ASSERT_EQ(convert(uyvy.data(), rgb.data(), 512, 256 * pixel, 256, 256, matrix + 1), S_OK);
        int wrong = 0;
        for (int i = 0; i < 65536; ++i) {
          const auto one = rgbOf(i), two = rgbOf(i ^ 1);
          int sums[2] = {2048, 128 * 4096 + 2048};
          for (int k = 0; k < 3; ++k) {
            sums[0] += Fixed(by[0][k]) * one[static_cast<size_t>(2 - k)];
            sums[1] += Fixed(by[1 + i % 2][k] * 0.5) *
                       (one[static_cast<size_t>(2 - k)] + two[static_cast<size_t>(2 - k)]);
          }
          wrong += uyvy[static_cast<size_t>(2 * i + 1)] != Clip(sums[0], 1, 254);
          wrong += uyvy[static_cast<size_t>(2 * i)] != Clip(sums[1], 1, 254);
        }
        EXPECT_EQ(wrong, 0) << matrix << " " << blue;
      });
    }
  }
}

TEST(Yuv, UyvyPairChoosesMatrixAndRefuses) {
  const std::vector<BYTE> uyvy(1440 * 2, 30);
  std::vector<BYTE> rgb(1440 * 4), other(rgb.size());
  // Selector, width, height and the selector that it is the same as.
  constexpr LONG kCases[][4] = {
      {0, 720, 2, 1}, {0, 704, 2, 1}, {0, 722, 1, 2}, {0, 702, 1, 2}, {9, 720, 2, 1}};
  for (const auto& [selector, width, height, same] : kCases) {
    EXPECT_EQ(QnUYVY2RGBA(rgb.data(), uyvy.data(), width * 4, width, 1, selector), S_OK);
    EXPECT_EQ(QnUYVY2RGBA(other.data(), uyvy.data(), width * 4, width, 1, same), S_OK);
    EXPECT_EQ(rgb, other) << width;
  }
  // From the last row up; the class override chooses the vector variant too.
  EXPECT_EQ(QnUYVY2RGB(rgb.data() + 12, uyvy.data(), -12, 4, 2, 1), S_OK);
  BYTE* const to = rgb.data();
  const BYTE* const from = uyvy.data();
  EXPECT_EQ(QnUYVY2RGB(nullptr, from, 12, 4, 2, 1), E_POINTER);
  EXPECT_EQ(QnRGB2UYVY(to, nullptr, 0, 0, 3, 0, 1), E_POINTER);
  constexpr LONG kBad[][3] = {{12, 3, 2}, {12, 0, 2}, {12, 4, 0}, {11, 4, 2}, {-11, 4, 2}, {0, 4, 2}};
  for (const auto& [stride, width, height] : kBad) {
    EXPECT_EQ(QnUYVY2RGB(to, from, stride, width, height, 1), E_INVALIDARG);
    EXPECT_EQ(QnUYVY2RGBA(to, from, stride * 4 / 3, width, height, 1), E_INVALIDARG);
    EXPECT_EQ(QnRGB2UYVY(to, from, 8, stride, width, height, 1), E_INVALIDARG);
    EXPECT_EQ(QnRGBA2UYVY(to, from, stride * 2 / 3, 16, width, height, 1), E_INVALIDARG);
  }
}

TEST(Yuv, Refuses) {
  const tQNYUVCOLOR colour = {};
  Frame frame(kLayouts[4], 6, 4);
  Bitmap bitmap(QNPIXEL_RGB32, 6, 4);
  LONG stride = 0, selector = 0;
  const auto both = [&] {
    const HRESULT status = ToYuv(frame, bitmap, 0, 0, selector, stride);
    return std::pair(status, ToRgb(frame, bitmap, 0, 0, stride));
  };
  const auto same = [](HRESULT status) { return std::pair(status, status); };
  EXPECT_EQ(both(), same(S_OK));
  EXPECT_EQ(QnYUV_YUVToRGB(&bitmap.header, 0, nullptr, 0, &frame.header, nullptr, &frame.at, &colour),
            E_POINTER);
  EXPECT_EQ(
      QnYUV_RGBToYUV(&frame.header, frame.bits.get(), nullptr, &colour, &bitmap.header, nullptr, 0, 0, 0),
      E_POINTER);
  for (const char* name : {"NV16", "y416", "v216", "Y41B", "IYUV", "QNDB"}) {
    frame.header.biCompression = FourCC(name);
    EXPECT_EQ(both(), same(E_FAIL)) << name;
  }
  frame.header.biCompression = FourCC("I420");
  for (selector = -1; selector < 6; selector += 5) EXPECT_EQ(both().first, E_FAIL);
  selector = 0;
  for (LONG* const value : {&frame.header.biWidth, &frame.header.biHeight}) {
    for (const LONG bad : {0, 1, 7, 1 << 30}) {
      const LONG saved = std::exchange(*value, bad);
      EXPECT_EQ(both(), same(E_INVALIDARG)) << bad;
      *value = saved;
    }
  }
  for (DWORD* const value : {&frame.at.yStride, &frame.at.uStride, &frame.at.vStride}) {
    const DWORD saved = std::exchange(*value, 2);
    EXPECT_EQ(both(), same(E_INVALIDARG));
    *value = saved;
  }
  for (stride = -23; stride < 24; stride += 46) EXPECT_EQ(both(), same(E_INVALIDARG));
  // Pixels of 3 bytes get 4 where a row has room.
  bitmap.header.biBitCount = 24;
  stride = 24;
  EXPECT_EQ(both(), std::pair(E_FAIL, S_OK));
  stride = 0;
  EXPECT_EQ(both().second, E_INVALIDARG);
}

TEST(Yuv, FindsTheBitsBehindTheHeader) {
  const Frame frame(kLayouts[0], 1, 3);
  Bitmap bitmap(QNPIXEL_RGB32, 1, 3);
  std::vector<BYTE> dib(40 + 12);
  std::memcpy(dib.data(), &bitmap.header, 40);
  const auto* const header = reinterpret_cast<BITMAPINFOHEADER*>(dib.data());
  const tQNYUVCOLOR colour = {0, QNYUV_2020};
  for (const LONG stride : {0, 4, -4}) {
    EXPECT_EQ(ToRgb(frame, bitmap, QNYUV_2020, 0, stride), S_OK);
    EXPECT_EQ(QnYUV_YUVToRGB(header, 0, nullptr, stride, &frame.header, frame.bits.get(), &frame.at, &colour),
              S_OK);
    EXPECT_TRUE(std::equal(bitmap.bits.begin(), bitmap.bits.end(), dib.begin() + 40)) << stride;
  }
}

TEST(Yuv, CopiesRectangles) {
  struct Copy {
    decltype(&QnYUV_I420_To_I420_SubRect) copy;
    int from, to;
  };
  constexpr Copy kCopies[] = {{QnYUV_I420_To_I420_SubRect, 4, 4},   {QnYUV_YV12_To_I420, 2, 4},
                              {QnYUV_NV12_To_I420, 3, 4},           {QnYUV_NV12_To_I420_SubRect, 3, 4},
                              {QnYUV_I420_To_NV12, 4, 3},           {QnYUV_YV16_To_YUYV_SubRect, 1, 16},
                              {QnYUV_P010_To_P010_SubRect, 14, 14}, {QnYUV_P216_To_P216_SubRect, 9, 9},
                              {QnYUV_Y210_To_Y210_SubRect, 8, 8}};
  // x, y, width, height, and the width of the target.
  constexpr LONG kRectangles[][5] = {{0, 0, 0, 10, 14},  {4, 2, 6, 4, 14}, {3, 1, 5, 5, 14},
                                     {2, 0, 90, 10, 14}, {2, 0, 0, 10, 6}, {14, 0, 0, 10, 6},
                                     {5, 3, 1, 1, 2},    {0, 10, 0, 0, 14}};
  for (const auto& [copy, from, to] : kCopies) {
    const Layout& layout = kLayouts[to];
    const Frame source(kLayouts[from], 14, 10);
    for (const auto& [x, y, width, height, room] : kRectangles) {
      Frame target(layout, room, 10);
      std::memset(target.bits.get(), 0, target.bytes);
      ASSERT_EQ(copy(&target.header, target.bits.get(), &target.at, &source.header, source.bits.get(),
                     &source.at, x, y, width, height),
                S_OK);
      const LONG start = layout.form == kYUYV ? x & ~1 : x;
      const LONG all = std::min({14 - start, width ? width : 14, room});
      for (int component = 0; component < 3; ++component) {
        const LONG across = component ? 2 : 1, down = component ? layout.rows : 1;
        const LONG columns = layout.form == kYUYV ? all / 2 * 2 : all;
        for (LONG row = 0; row < 10 / down; ++row) {
          for (LONG column = 0; column < room / across; ++column) {
            const bool inside = row < height / down && column < columns / across;
            const auto at = [&](LONG base, LONG each, LONG share) {
              return static_cast<size_t>(base / share + each);
            };
            EXPECT_EQ(target.Get(component, at(0, column, 1), at(0, row, 1)),
                      inside ? source.Get(component, at(start, column, across), at(y, row, down)) : 0)
                << layout.fourcc << x << " " << component << " " << column << " " << row;
          }
        }
      }
    }
    const auto status = [&, call = copy](LONG x, LONG y, LONG width, LONG height, const void* bits) {
      BYTE sink[1024];
      return call(&source.header, sink, &source.at, &source.header, bits, &source.at, x, y, width, height);
    };
    EXPECT_EQ(status(0, 0, 0, 1, nullptr), E_POINTER);
    for (const auto& [x, y, width, height] : {std::array{-1, 0, 0, 1},
                                              {0, -1, 0, 1},
                                              {15, 0, 0, 1},
                                              {0, 0, -1, 1},
                                              {0, 0, 0, -1},
                                              {0, 1, 0, 10},
                                              {0, 1, 0, INT32_MAX}}) {
      EXPECT_EQ(status(x, y, width, height, source.bits.get()), E_INVALIDARG);
    }
  }
}

}  // namespace
