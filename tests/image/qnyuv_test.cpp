// Conversion of YUV frames, held against a model in doubles that reads and writes single samples.
#include "qn/image/qnyuv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hwy/highway.h"
#include "qn/image/qndib.h"
#include "qn/kernel/qncpu.h"
#include "tests/support/support.h"

namespace {

// How samples follow each other: the step from one to the next, and the first one, of Y, U, V and alpha.
struct Form {
  size_t step[4], first[4];
};
constexpr Form kPlanes = {{1, 1, 1, 1}, {}}, kTurns = {{1, 2, 2}, {0, 0, 1}}, kUYVY = {{2, 4, 4}, {1, 0, 2}},
               kYUYV = {{2, 4, 4}, {0, 1, 3}}, kV210 = kUYVY;

// Bits of a sample and those below it in its word, and how many columns and rows share chroma.
struct Layout {
  const char* fourcc;
  const Form& form;
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
  BITMAPINFOHEADER header;
  tQNYUVOFFSETS at = {};
  std::unique_ptr<BYTE[]> bits;
  size_t bytes;

  Frame(const Layout& kind, LONG width, LONG height)
      : layout(kind), header{40, width, height, 1, 0, FourCC(kind.fourcc), 0, 0, 0, 0, 0} {
    bytes = QnYUVImageBytesAndOffsets(&header, &at);
    bits = std::make_unique<BYTE[]>(bytes);
    for (size_t i = 0; i < bytes; ++i) bits[i] = static_cast<BYTE>(qntest::Random()());
  }

  bool IsPacked() const { return layout.form.step[0] == 2; }
  // The bit where a sample is: component 0 is Y, 1 U, 2 V, 3 alpha; x and y count its own columns and rows.
  size_t Bit(int component, size_t x, size_t y) const {
    const size_t v = &layout.form == &kPlanes ? 2 : 1, word = layout.bits > 8 ? 16 : 8;
    const size_t plane = IsPacked() ? 0 : component == 2 ? v : static_cast<size_t>(component);
    const size_t offset[] = {0, at.uOffset, at.vOffset, at.alphaOffset};
    const size_t stride[] = {at.yStride, at.uStride, at.vStride, at.alphaStride};
    const size_t row = 8 * (offset[plane] + y * stride[plane]);
    const size_t nth = layout.form.step[component] * x + layout.form.first[component];
    return row + (&layout.form == &kV210 ? nth / 3 * 32 + nth % 3 * 10
                                         : nth * word + static_cast<size_t>(layout.lowest));
  }
  int Get(int component, LONG x, LONG y) const {
    const size_t first = Bit(component, static_cast<size_t>(x), static_cast<size_t>(y));
    const size_t last = first + static_cast<size_t>(layout.bits) - 1;
    int value = 0;
    for (size_t i = last / 8 + 1; i-- > first / 8;) value = value << 8 | bits[i];
    return value >> first % 8 & ((1 << layout.bits) - 1);
  }
  double Get8(int component, LONG x, LONG y) const {
    return std::ldexp(Get(component, x, y), 8 - layout.bits);
  }
};

struct Bitmap {
  BITMAPINFOHEADER header;
  LONG pixel;
  std::vector<BYTE> bits;

  Bitmap(int type, LONG width, LONG height) : pixel(type == QNPIXEL_RGBAFLOAT ? 16 : 4) {
    header = {40, width, height, 1, static_cast<WORD>(8 * pixel), QNBI_DEEP, 0, 0, 0, 0, 0};
    if (type == QNPIXEL_RGB32) header.biCompression = BI_RGB;
    bits.resize(static_cast<size_t>(pixel * width * std::abs(height)));
    for (BYTE& each : bits) each = static_cast<BYTE>(qntest::Random()());
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
  double Get(int component, LONG x, LONG line) const {
    const BYTE* const at = &bits[static_cast<size_t>((line * header.biWidth + x) * pixel)];
    if (pixel == 4) return at[component];
    float value;
    std::memcpy(&value, at + 4 * component, 4);
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

// Runs with each instruction set; all must leave the same bytes.
void RunAllWays(const std::function<void()>& run, const void* bytes, size_t count) {
  std::vector<BYTE> first;
  const int64_t supported = hwy::SupportedTargets() | HWY_STATIC_TARGET;
  for (const int64_t target : {HWY_AVX3_DL, HWY_AVX2, HWY_STATIC_TARGET}) {
    if (!(supported & target)) continue;
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    run();
    const auto* const now = static_cast<const BYTE*>(bytes);
    if (first.empty()) first.assign(now, now + count);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), now)) << hwy::TargetName(target);
  }
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

constexpr DWORD kSelectors[] = {QNYUV_601, QNYUV_709, QNYUV_2020, 0};

const Model& ModelOf(LONG matrix, LONG width) {
  return kModels[matrix < 3 ? matrix : width == 716 ? 0 : 1];
}

void CheckToRgb(const Frame& frame, Bitmap& bitmap, LONG matrix, double range, bool up) {
  const auto& [layout, header, at, bits, bytes] = frame;
  const LONG width = header.biWidth, lines = header.biHeight;
  const LONG stride = bitmap.pixel * (up ? -width : width);
  RunAllWays([&] { EXPECT_EQ(ToRgb(frame, bitmap, kSelectors[matrix], range, stride), S_OK); },
             bitmap.bits.data(), bitmap.bits.size());
  const double* const back = ModelOf(matrix, width).back;
  const double offset = range == 0 ? 0 : 16, gain = range == 0 ? 1 : 1.1643835;
  const double chromaGain = range == 0 ? 0.9776786 : 1.1383928;
  for (LONG y = 0; y < lines; ++y) {
    const LONG line = (bitmap.header.biHeight < 0) != up ? y : lines - 1 - y;
    for (LONG x = 0; x < width; ++x) {
      const bool whole = &layout.form == &kV210;  // a last column has chroma of its own in v210 alone
      const LONG pair = std::min(x / layout.columns, (width + whole) / layout.columns - 1);
      const LONG below = std::min(y / layout.rows, lines / layout.rows - 1);
      const double luma = (frame.Get8(0, x, y) - offset) * gain;
      const double u = (frame.Get8(1, pair, below) - 128) * chromaGain;
      const double v = (frame.Get8(2, pair, below) - 128) * chromaGain;
      const double wanted[] = {luma + u * back[0], luma + v * back[1] + u * back[2], luma + v * back[3], 255};
      for (int i = 0; i < 4; ++i) {
        ASSERT_NEAR(bitmap.Get(i, x, line), std::clamp(wanted[i], 0.0, 255.0),
                    bitmap.pixel == 4 ? 0.5001 : 1e-4)
            << x << " " << y;
      }
    }
  }
}

void CheckToYuv(Frame& frame, Bitmap& bitmap, LONG matrix, double range, LONG selector) {
  const auto& [layout, header, at, bits, bytes] = frame;
  const LONG width = header.biWidth, lines = header.biHeight;
  RunAllWays([&] { EXPECT_EQ(ToYuv(frame, bitmap, kSelectors[matrix], range, selector), S_OK); }, bits.get(),
             bytes);
  const auto get = [&](int component, LONG x, LONG y) {
    return bitmap.Get(component, x, bitmap.header.biHeight < 0 ? y : lines - 1 - y);
  };
  const auto weigh = [&](int component, LONG x, LONG y) {
    const double* const by = ModelOf(matrix, width).forward[component];
    return (by[0] * get(2, x, y) + by[1] * get(1, x, y) + by[2] * get(0, x, y)) *
           (range == 0 ? 1 : 219.0 / 255);
  };
  const auto check = [&, &kind = layout](int component, LONG x, LONG y, double wanted) {
    const double unit = std::ldexp(1, 8 - kind.bits);
    ASSERT_NEAR(frame.Get8(component, x, y), std::clamp(wanted, 0.0, 256 - unit), 0.5001 * unit + 2e-4)
        << component << " " << x << " " << y;
  };
  for (LONG y = 0; y < lines; ++y) {
    for (LONG x = 0; x < width; ++x) {
      check(0, x, y, weigh(0, x, y) + (range == 0 ? 0 : 16));
      if (at.alphaOffset == 0) continue;
      const double alpha = bitmap.header.biCompression == BI_RGB ? 255 : std::clamp(get(3, x, y), 0.0, 255.0);
      ASSERT_NEAR(frame.Get(3, x, y), alpha * 1023 / 255, 0.5001);
    }
  }
  const LONG across = layout.columns, down = layout.rows;
  for (LONG i = 0; i < lines / down * ((width + (&layout.form == &kV210)) / across) * 2; ++i) {
    const LONG x = i / 2 / (lines / down), y = i / 2 % (lines / down);
    double sum = 0;
    for (LONG each = 0; each < across * down; ++each) {
      const LONG column = x * across + (selector & QNYUV_CHROMA_LEFT ? 0 : each % across);
      const LONG line = y * down + (selector & QNYUV_CHROMA_UPPER ? 0 : each / across);
      sum += weigh(1 + i % 2, std::min(column, width - 1), line);
    }
    check(1 + i % 2, x, y, 128 + sum / (across * down));
  }
}

TEST(Yuv, FollowsItsEquations) {
  constexpr LONG kWidths[] = {2, 3, 31, 34, 65, 194, 716, 1}, kHeights[] = {2, 5, -3};
  constexpr int kTypes[] = {QNPIXEL_RGB32, QNPIXEL_RGBA32, QNPIXEL_RGBAFLOAT};
  for (size_t i = 0; i < std::size(kLayouts) * 24; ++i) {
    const Layout& layout = kLayouts[i / 24];
    const LONG width = kWidths[i % 8], height = kHeights[qntest::Random()() % 3];
    const bool whole = layout.form.step[0] == 1 || &layout.form == &kV210;
    if ((!whole && width % 2) || (&layout.form != &kV210 && width < layout.columns)) continue;
    SCOPED_TRACE(std::string(layout.fourcc) + " " + std::to_string(width) + "x" + std::to_string(height));
    Frame frame(layout, width, std::abs(height));
    Bitmap bitmap(kTypes[i / 8 % 3], width, height), source = bitmap;
    const auto any = static_cast<LONG>(qntest::Random()() % 32);
    CheckToRgb(frame, bitmap, any % 4, any & 4 ? 1.0 : 0.0, any & 8);
    CheckToYuv(frame, source, any % 4, any & 4 ? 1.0 : 0.0, any / 8);
  }
}

// Bars of 100 per cent in studio range: the codes of 10 bits that broadcasters publish, by matrix.
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
    const int wanted[] = {patch.y, patch.u, patch.v};
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(frame.Get(i, 0, 0), wanted[i], 1);
    bitmap.bits.assign(4, 7);
    ToRgb(frame, bitmap, kSelectors[patch.matrix], 1);
    EXPECT_EQ(bitmap.bits, (std::vector<BYTE>{patch.blue, patch.green, patch.red, 255}));
  }
}

// There and back of random colours: the layout, the range, and the most that a component may be off.
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

int Fixed(double value) {
  return static_cast<int>(std::lround(value * 4096));
}
int Clip(int value, int least, int most) {
  return std::clamp(value >> 12, least, most);
}

// All pairs of chroma and all luma, and all pairs of red and green and all blue, by both variants, the way a
// host chooses them, with rows of exact size.
TEST(Yuv, UyvyPairFollowsItsEquations) {
  std::vector<BYTE> uyvy(4 * 65536), rgb(8 * 65536);
  for (int round = 0; round < 2 * 3 * 9; ++round) {
    (round % 2 ? QnAllowCPUSupport : QnDisallowCPUSupport)(QNCPU_SSE2);
    const int matrix = round / 2 % 3, turn = round / 6, pixel = 3 + turn % 2;
    const auto level = [=](int i) { return (7 * i + i / 256 + 31 * turn) & 255; };
    const Model& model = kModels[matrix];
    for (int i = 0; i < 65536; ++i) {
      const int pair[] = {i & 255, level(i), i >> 8, 255 - level(i)};
      std::copy_n(pair, 4, uyvy.begin() + 4 * i);
    }
    const auto toRgb = pixel == 3 ? QnUYVY2RGB : QnUYVY2RGBA;
    ASSERT_EQ(toRgb(rgb.data(), uyvy.data(), 512 * pixel, 512, 256, matrix + 1), S_OK);
    int byU[] = {Fixed(model.fixed[0]), Fixed(model.fixed[2]), 0};
    int byV[] = {0, Fixed(model.fixed[1]), Fixed(model.fixed[3])};
    int wrong = 0;
    for (int i = 0; i < 131072 * pixel; ++i) {
      const int at = i / pixel, k = i % pixel;
      const int u = (at / 2 & 255) - 128, v = at / 512 - 128, y = level(at / 2), luma = at % 2 ? 255 - y : y;
      wrong += rgb[static_cast<size_t>(i)] !=
               (k == 3 ? 255 : Clip(u * byU[k] + v * byV[k] + luma * 4096 + 2048, 0, 255));
    }
    const auto rgbOf = [=](int i) { return std::array{level(i), i >> 8, i & 255}; };
    for (int i = 0; i < 65536; ++i) std::ranges::copy(rgbOf(i), rgb.begin() + i * pixel);
    const auto toUyvy = pixel == 3 ? QnRGB2UYVY : QnRGBA2UYVY;
    ASSERT_EQ(toUyvy(uyvy.data(), rgb.data(), 512, 256 * pixel, 256, 256, matrix + 1), S_OK);
    int factors[3][3];
    for (int k = 0; k < 9; ++k)
      factors[k / 3][k % 3] = Fixed(model.forward[k / 3][2 - k % 3] * (k < 3 ? 1 : 0.5));
    for (int i = 0; i < 65536; ++i) {
      const auto one = rgbOf(i), two = rgbOf(i ^ 1);
      int sums[] = {128 * 4096 + 2048, 2048};
      for (size_t k = 0; k < 3; ++k) {
        sums[0] += factors[1 + i % 2][k] * (one[k] + two[k]);
        sums[1] += factors[0][k] * one[k];
      }
      for (int k = 0; k < 2; ++k) wrong += uyvy[static_cast<size_t>(2 * i + k)] != Clip(sums[k], 1, 254);
    }
    EXPECT_EQ(wrong, 0) << round;
  }
}

TEST(Yuv, UyvyPairChoosesMatrixAndRefuses) {
  const std::vector<BYTE> uyvy(1440 * 2, 30);
  std::vector<BYTE> rgb(1440 * 4), other(rgb.size());
  BYTE* const to = rgb.data();
  const BYTE* const from = uyvy.data();
  // Selector, width and the selector that it is the same as.
  constexpr LONG kCases[][3] = {{0, 720, 1}, {0, 704, 1}, {0, 722, 2}, {0, 702, 2}, {9, 720, 1}};
  for (const auto& [selector, width, same] : kCases) {
    EXPECT_EQ(QnUYVY2RGBA(to, from, width * 4, width, 1, selector), S_OK);
    EXPECT_EQ(QnUYVY2RGBA(other.data(), from, width * 4, width, 1, same), S_OK);
    EXPECT_EQ(rgb, other) << width;
  }
  EXPECT_EQ(QnUYVY2RGB(to + 12, from, -12, 4, 2, 1), S_OK);  // from the last row up
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
  EXPECT_EQ(QnYUV_YUVToRGB(&bitmap.header, 0, nullptr, 0, &frame.header, nullptr, &frame.at, &colour),
            E_POINTER);
  EXPECT_EQ(QnYUV_RGBToYUV(&frame.header, &frame, nullptr, &colour, &bitmap.header, nullptr, 0, 0, 0),
            E_POINTER);
  // With some value for a while both ways give a status.
  LONG stride = 0, selector = 0;
  const auto expect = [&](auto* place, auto value, HRESULT toYuv, HRESULT toRgb) {
    const auto saved = std::exchange(*place, value);
    EXPECT_EQ(ToYuv(frame, bitmap, 0, 0, selector, stride), toYuv) << value;
    EXPECT_EQ(ToRgb(frame, bitmap, 0, 0, stride), toRgb) << value;
    *place = saved;
  };
  expect(&stride, 0, S_OK, S_OK);
  for (const char* name : {"NV16", "y416", "v216", "Y41B", "IYUV", "QNDB"})
    expect(&frame.header.biCompression, FourCC(name), E_FAIL, E_FAIL);
  for (const LONG bad : {-1, 4}) expect(&selector, bad, E_FAIL, S_OK);
  for (const LONG bad : {0, 1, 7, 1 << 30}) {
    expect(&frame.header.biWidth, bad, E_INVALIDARG, E_INVALIDARG);
    expect(&frame.header.biHeight, bad, E_INVALIDARG, E_INVALIDARG);
  }
  for (DWORD* const each : {&frame.at.yStride, &frame.at.uStride, &frame.at.vStride})
    expect(each, 2u, E_INVALIDARG, E_INVALIDARG);
  Frame packed(kLayouts[16], 6, 4);
  packed.at.yStride = 11;
  EXPECT_EQ(ToRgb(packed, bitmap, 0, 0), E_INVALIDARG);
  for (const LONG bad : {-23, 23}) expect(&stride, bad, E_INVALIDARG, E_INVALIDARG);
  // Pixels of 3 bytes get 4 where a row has room.
  bitmap.header.biBitCount = 24;
  expect(&stride, 24, E_FAIL, S_OK);
  expect(&stride, 0, E_FAIL, E_INVALIDARG);
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
      const LONG start = &layout.form == &kYUYV ? x & ~1 : x;
      const LONG all = std::min({14 - start, width ? width : 14, room});
      for (int component = 0; component < 3; ++component) {
        const LONG across = component ? 2 : 1, down = component ? layout.rows : 1;
        const LONG columns = &layout.form == &kYUYV ? all / 2 * 2 : all;
        for (LONG row = 0; row < 10 / down; ++row) {
          for (LONG column = 0; column < room / across; ++column) {
            const bool inside = row < height / down && column < columns / across;
            EXPECT_EQ(target.Get(component, column, row),
                      inside ? source.Get(component, start / across + column, y / down + row) : 0)
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
    constexpr LONG kBad[][4] = {{-1, 0, 0, 1}, {0, -1, 0, 1}, {15, 0, 0, 1},       {0, 0, -1, 1},
                                {0, 0, 0, -1}, {0, 1, 0, 10}, {0, 1, 0, INT32_MAX}};
    for (const auto& [x, y, width, height] : kBad) {
      EXPECT_EQ(status(x, y, width, height, source.bits.get()), E_INVALIDARG);
    }
  }
}

}  // namespace
