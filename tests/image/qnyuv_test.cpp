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
  int step[4], first[4];
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

constexpr BYTE kFiller = 0xA5;

// The row that is first by number, and the step to the next.
struct Rows {
  LONG first, stride;

  LONG At(LONG row) const { return first + row * stride; }
};

// Of exactly the bytes of its rows, which are random, and of the filler between them.
struct Memory {
  std::vector<BYTE> bytes;
  std::vector<LONG> filler;

  Rows Add(LONG rowBytes, LONG rows, LONG padding, bool up) {
    const LONG stride = rowBytes + padding, start = static_cast<LONG>(bytes.size());
    const LONG last = start + (rows - 1) * stride;
    bytes.resize(last + rowBytes, kFiller);
    bytes.shrink_to_fit();
    uint64_t random = qntest::Random()();
    for (LONG row = start; row <= last; row += stride) {
      for (LONG i = row; i < row + rowBytes; ++i)
        bytes[i] = static_cast<BYTE>((random = random * 6364136223846793005 + 1) >> 56);
      for (LONG i = row + rowBytes; i < row + stride && row < last; ++i) filler.push_back(i);
    }
    return {up ? last : start, up ? -stride : stride};
  }
  bool IsFillerKept() const {
    return std::ranges::all_of(filler, [this](LONG i) { return bytes[i] == kFiller; });
  }
};

// A frame the way a host lays it out, or with rows of their least bytes and some padding.
struct Frame {
  const Layout& layout;
  BITMAPINFOHEADER header;
  tQNYUVOFFSETS at = {};
  Memory memory = {};
  LONG first = 0;

  Frame(const Layout& kind, LONG width, LONG height, LONG padding = -1, bool up = false)
      : layout(kind), header{40, width, height, 1, 0, FourCC(kind.fourcc), 0, 0, 0, 0, 0} {
    const DWORD all = QnYUVImageBytesAndOffsets(&header, &at);
    if (padding < 0) {
      memory.Add(all, 1, 0, false);
      return;
    }
    const auto add = [&](int component, LONG columns, LONG rows, DWORD* stride) {
      const LONG samples = columns * layout.form.step[component] * (layout.bits > 8 ? 2 : 1);
      const Rows found = memory.Add(IsV210() ? (width + 5) / 6 * 16 : samples, rows, padding + component, up);
      *stride = found.stride;
      return found.first - first;
    };
    const LONG across = width / layout.columns, down = height / layout.rows;
    first = add(0, width, height, &at.yStride);
    if (at.uOffset) at.uOffset = add(1, across, down, &at.uStride);
    if (at.vOffset) at.vOffset = add(2, across, down, &at.vStride);
    if (at.alphaOffset) at.alphaOffset = add(3, width, height, &at.alphaStride);
  }

  BYTE* Bits() { return memory.bytes.data() + first; }
  bool IsPacked() const { return layout.form.step[0] == 2; }
  bool IsV210() const { return &layout.form == &kV210; }
  // The bit where a sample is: component 0 is Y, 1 U, 2 V, 3 alpha; x and y count its own columns and rows.
  LONG Bit(int component, LONG x, LONG y) const {
    const LONG plane = IsPacked() ? 0 : component != 2 ? component : &layout.form == &kPlanes ? 2 : 1;
    const DWORD offset[] = {0, at.uOffset, at.vOffset, at.alphaOffset};
    const DWORD stride[] = {at.yStride, at.uStride, at.vStride, at.alphaStride};
    const LONG row = first + offset[plane] + y * static_cast<LONG>(stride[plane]);
    const LONG nth = layout.form.step[component] * x + layout.form.first[component];
    return 8 * row +
           (IsV210() ? nth / 3 * 32 + nth % 3 * 10 : nth * (layout.bits > 8 ? 16 : 8) + layout.lowest);
  }
  int Get(int component, LONG x, LONG y) const {
    const LONG lowest = Bit(component, x, y), highest = lowest + layout.bits - 1;
    int value = 0;
    for (LONG i = highest / 8; i >= lowest / 8; --i) value = value << 8 | memory.bytes[i];
    return value >> lowest % 8 & ((1 << layout.bits) - 1);
  }
  double Get8(int component, LONG x, LONG y) const {
    return std::ldexp(Get(component, x, y), 8 - layout.bits);
  }
};

// The pixels of a frame; the header may tell of some more columns and rows.
struct Bitmap {
  BITMAPINFOHEADER header;
  LONG pixel, stride;  // which is 0 where the header says the same
  Memory memory;
  Rows rows;

  Bitmap(int type, LONG width, LONG height, LONG padding = 0, bool up = false, LONG more = 0)
      : pixel(type == QNPIXEL_RGBAFLOAT ? 16 : 4),
        rows(memory.Add(pixel * width, std::abs(height), padding, up)) {
    header = {40, width + more, height < 0 ? height - more : height + more, 1, 32, QNBI_DEEP, 0, 0, 0, 0, 0};
    if (pixel == 16) header.biBitCount = 128;
    if (type == QNPIXEL_RGB32) header.biCompression = BI_RGB;
    stride = rows.stride == pixel * header.biWidth ? 0 : rows.stride;
    constexpr float kSpecial[] = {NAN, -NAN, 1e30f, -1e30f, 17, -17, INFINITY, -16};
    for (LONG i = 0; pixel == 16 && i < std::abs(height) * width * 4; ++i) {
      BYTE* const at = &memory.bytes[rows.At(i / 4 / width)] + i % (4 * width) * 4;
      const float value = at[1] == 0 ? kSpecial[at[0] % 8] : static_cast<float>(at[0]) / 240 - 0.03f;
      std::memcpy(at, &value, 4);
    }
  }
  BYTE* First() { return &memory.bytes[rows.first]; }
  // In 0 to 255, by number of the row. Floats that are no number count as 0, those far from it as 16.
  double Get(int component, LONG x, LONG row) const {
    const BYTE* const at = &memory.bytes[rows.At(row)] + x * pixel;
    if (pixel == 4) return at[component];
    float value;
    std::memcpy(&value, at + 4 * component, 4);
    return std::isnan(value) ? 0 : std::clamp(value, -16.0f, 16.0f) * 255.0;
  }
};

HRESULT ToRgb(Frame& frame, Bitmap& bitmap, DWORD matrix, double range) {
  const tQNYUVCOLOR colour = {0, matrix};
  return QnYUV_YUVToRGB(&bitmap.header, range, bitmap.First(), bitmap.stride, &frame.header, frame.Bits(),
                        &frame.at, &colour);
}
HRESULT ToYuv(Frame& frame, Bitmap& bitmap, DWORD matrix, double range, LONG selector = 0) {
  const tQNYUVCOLOR colour = {0, matrix};
  return QnYUV_RGBToYUV(&frame.header, frame.Bits(), &frame.at, &colour, &bitmap.header, bitmap.First(),
                        range, bitmap.stride, selector);
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

// Runs without what a host may turn off, and with each instruction set; all must leave the same bytes.
void RunAllWays(const std::function<void()>& run, Memory& target) {
  const std::vector<BYTE> before = target.bytes;
  std::vector<BYTE> first;
  const int64_t supported = hwy::SupportedTargets() | HWY_STATIC_TARGET;
  for (const int64_t name :
       {int64_t{0}, int64_t{HWY_AVX3_DL}, int64_t{HWY_AVX2}, int64_t{HWY_STATIC_TARGET}}) {
    if (name && !(supported & name)) continue;
    (name ? QnAllowCPUSupport : QnDisallowCPUSupport)(QNCPU_SSE2);
    hwy::SetSupportedTargetsForTest(name);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    target.bytes = before;
    run();
    if (first.empty()) first = target.bytes;
    EXPECT_TRUE(first == target.bytes && target.IsFillerKept()) << hwy::TargetName(name);
  }
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

constexpr DWORD kSelectors[] = {QNYUV_601, QNYUV_709, QNYUV_2020, 0};

const Model& ModelOf(LONG matrix, LONG width) {
  return kModels[matrix < 3 ? matrix : width == 716 ? 0 : 1];
}

void CheckToRgb(Frame& frame, Bitmap& bitmap, LONG matrix, double range) {
  const auto& [layout, header, at, memory, first] = frame;
  const LONG width = header.biWidth, lines = header.biHeight;
  RunAllWays([&] { EXPECT_EQ(ToRgb(frame, bitmap, kSelectors[matrix], range), S_OK); }, bitmap.memory);
  const double* const back = ModelOf(matrix, width).back;
  const double offset = range == 0 ? 0 : 16, gain = range == 0 ? 1 : 1.1643835;
  const double chromaGain = range == 0 ? 0.9776786 : 1.1383928;
  for (LONG y = 0; y < lines; ++y) {
    const LONG line = bitmap.header.biHeight < 0 ? y : lines - 1 - y;
    for (LONG x = 0; x < width; ++x) {
      // A last column has chroma of its own in v210 alone.
      const LONG pair = std::min(x / layout.columns, (width + frame.IsV210()) / layout.columns - 1);
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
  auto& [layout, header, at, memory, first] = frame;
  const LONG width = header.biWidth, lines = header.biHeight;
  RunAllWays([&] { EXPECT_EQ(ToYuv(frame, bitmap, kSelectors[matrix], range, selector), S_OK); }, memory);
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
  for (LONG i = 0; i < lines / down * ((width + frame.IsV210()) / across) * 2; ++i) {
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
    const auto any = [](size_t most) { return static_cast<LONG>(qntest::Random()() % (most + 1)); };
    Frame frame(layout, width, std::abs(height), any(9) - 2, any(1));
    const int type = kTypes[i / 8 % 3];
    const LONG more = any(3), padding = any(1) ? any(9) : more * (type == QNPIXEL_RGBAFLOAT ? 16 : 4);
    Bitmap bitmap(type, width, height, padding, any(1), more), source = bitmap;
    if (bitmap.pixel == 4 && any(1)) {  // as other types have
      constexpr WORD kBits[] = {7, 8, 16, 24, 64};
      bitmap.header.biBitCount = kBits[any(4)];
      bitmap.stride = bitmap.rows.stride;
    }
    CheckToRgb(frame, bitmap, any(3), any(1) * 0.25);
    CheckToYuv(frame, source, any(3), any(1) * 0.25, any(3));
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
    bitmap.memory.bytes = {patch.blue, patch.green, patch.red, 0};
    ToYuv(frame, bitmap, kSelectors[patch.matrix], 1);
    const int wanted[] = {patch.y, patch.u, patch.v};
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(frame.Get(i, 0, 0), wanted[i], 1);
    bitmap.memory.bytes.assign(4, 7);
    ToRgb(frame, bitmap, kSelectors[patch.matrix], 1);
    EXPECT_EQ(bitmap.memory.bytes, (std::vector<BYTE>{patch.blue, patch.green, patch.red, 255}));
  }
}

// There and back of random colours that fill what shares chroma: the layout, and the most that a component
// may be off with the full range and with that of a studio, by any matrix.
TEST(Yuv, RoundTrips) {
  constexpr int kErrors[][3] = {{0, 7, 2}, {1, 7, 2}, {3, 7, 2}, {5, 5, 0}, {6, 5, 0}, {9, 5, 0}, {15, 5, 0}};
  Bitmap bitmap(QNPIXEL_RGB32, 512, 128), back = bitmap;
  for (LONG i = 0; i < 512 * 128; ++i) {
    const LONG block = i & ~513;
    for (LONG k = 0; k < 3; ++k)
      bitmap.First()[4 * i + k] = block < 16 ? block >> (k + 1) & 1 ? 255 : 0 : bitmap.First()[4 * block + k];
  }
  for (int i = 0; i < 7 * 2 * 3; ++i) {
    const auto& most = kErrors[i / 6];
    const int range = i / 3 % 2;
    Frame frame(kLayouts[most[0]], 512, 128);
    ToYuv(frame, bitmap, kSelectors[i % 3], range);
    ToRgb(frame, back, kSelectors[i % 3], range);
    int error = 0;
    for (size_t k = 0; k < back.memory.bytes.size(); ++k) {
      if (k % 4 != 3) error = std::max(error, std::abs(back.memory.bytes[k] - bitmap.memory.bytes[k]));
    }
    EXPECT_LE(error, most[1 + range]) << kLayouts[most[0]].fourcc << range << i % 3;
  }
}

int Fixed(double value) {
  return static_cast<int>(std::lround(value * 4096));
}
int Clip(int value, int least, int most) {
  return std::clamp(value >> 12, least, most);
}

// All pairs of chroma and all luma, and all pairs of red and green and all blue, by both variants, the way a
// host chooses them, with rows of exact size that end within a vector.
TEST(Yuv, UyvyPairFollowsItsEquations) {
  for (int round = 0; round < 3 * 9; ++round) {
    const int matrix = round % 3, turn = round / 3, pixel = 3 + turn % 2;
    const bool up = turn % 3 == 2;
    const LONG width = 514 - 2 * turn, rows = 65536 * 2 / width + 1, padding = turn % 3 * 7;
    const auto level = [=](int i) { return (7 * i + i / 256 + 31 * turn) & 255; };
    const Model& model = kModels[matrix];
    Memory rgb, to;
    const Rows pixels = rgb.Add(pixel * width, rows, padding, up);
    std::vector<BYTE> uyvy(2 * width * rows);
    for (int i = 0; i < width / 2 * rows; ++i) {
      const int pair[] = {i & 255, level(i), i >> 8, 255 - level(i)};
      std::copy_n(pair, 4, uyvy.begin() + 4 * i);
    }
    const auto toRgb = pixel == 3 ? QnUYVY2RGB : QnUYVY2RGBA;
    BYTE* const first = &rgb.bytes[pixels.first];
    RunAllWays([&] { EXPECT_EQ(toRgb(first, uyvy.data(), pixels.stride, width, rows, matrix + 1), S_OK); },
               rgb);
    int byU[] = {Fixed(model.fixed[0]), Fixed(model.fixed[2]), 0};
    int byV[] = {0, Fixed(model.fixed[1]), Fixed(model.fixed[3])};
    int wrong = 0;
    for (int i = 0; i < width * rows * pixel; ++i) {
      const int at = i / pixel, k = i % pixel, pair = at / 2;
      const int u = (pair & 255) - 128, v = (pair >> 8 & 255) - 128;
      const int luma = at % 2 ? 255 - level(pair) : level(pair);
      wrong += rgb.bytes[pixels.At(at / width) + i % (width * pixel)] !=
               (k == 3 ? 255 : Clip(u * byU[k] + v * byV[k] + luma * 4096 + 2048, 0, 255));
    }
    const Rows target = to.Add(2 * width, rows, 14 - padding, !up);
    const auto rgbOf = [=](int i) { return std::array{level(i), i >> 8 & 255, i & 255}; };
    for (int i = 0; i < width * rows; ++i)
      std::ranges::copy(rgbOf(i), &rgb.bytes[pixels.At(i / width)] + i % width * pixel);
    const auto toUyvy = pixel == 3 ? QnRGB2UYVY : QnRGBA2UYVY;
    BYTE* const start = &to.bytes[target.first];
    RunAllWays(
        [&] { EXPECT_EQ(toUyvy(start, first, target.stride, pixels.stride, width, rows, matrix + 1), S_OK); },
        to);
    int factors[3][3];
    for (int k = 0; k < 9; ++k)
      factors[k / 3][k % 3] = Fixed(model.forward[k / 3][2 - k % 3] * (k < 3 ? 1 : 0.5));
    for (int i = 0; i < width * rows; ++i) {
      const auto one = rgbOf(i), two = rgbOf(i ^ 1);
      int sums[] = {128 * 4096 + 2048, 2048};
      for (size_t k = 0; k < 3; ++k) {
        sums[0] += factors[1 + i % 2][k] * (one[k] + two[k]);
        sums[1] += factors[0][k] * one[k];
      }
      const BYTE* const found = &to.bytes[target.At(i / width)] + i % width * 2;
      for (int k = 0; k < 2; ++k) wrong += found[k] != Clip(sums[k], 1, 254);
    }
    EXPECT_EQ(wrong, 0) << round;
  }
}

TEST(Yuv, ChooseMatrixBySize) {
  // Selector, width, height and the selector that it is the same as, for the pair and for all others.
  constexpr LONG kCases[][4] = {{0, 720, 719, 1}, {0, 720, 720, 2}, {0, 704, 2, 1}, {0, 703, 576, 2},
                                {0, 722, 2, 2},   {0, 721, 2, 2},   {0, 702, 2, 2}, {9, 720, 2, 1}};
  for (const auto& [selector, width, height, same] : kCases) {
    Frame frame(kLayouts[0], width, height);
    Bitmap bitmap(QNPIXEL_RGB32, width, height), other = bitmap;
    EXPECT_EQ(ToRgb(frame, bitmap, selector, 0), S_OK);
    EXPECT_EQ(ToRgb(frame, other, kSelectors[same - 1], 0), S_OK);
    EXPECT_TRUE(bitmap.memory.bytes == other.memory.bytes) << width << "x" << height;
    const HRESULT status = width % 2 ? E_INVALIDARG : S_OK;
    EXPECT_EQ(QnUYVY2RGBA(bitmap.First(), frame.Bits(), width * 4, width, height, selector), status);
    EXPECT_EQ(QnUYVY2RGBA(other.First(), frame.Bits(), width * 4, width, height, same), status);
    EXPECT_TRUE(bitmap.memory.bytes == other.memory.bytes) << width << "x" << height;
  }
}

TEST(Yuv, UyvyPairObeysAndRefuses) {
  std::vector<BYTE> uyvy(16, 30), rgb(24);
  BYTE* const to = rgb.data();
  const BYTE* const from = uyvy.data();
  EXPECT_EQ(QnUYVY2RGB(nullptr, from, 12, 4, 2, 1), E_POINTER);
  EXPECT_EQ(QnRGB2UYVY(to, nullptr, 0, 0, 3, 0, 1), E_POINTER);
  // Any class override turns the vectors on, the first of which asks what the processor has.
  for (const DWORD sets : {0x10, 0}) {
    QnOnlyAllowCPUSupport(sets);
    QnSetCPUClassBySupport();
    hwy::GetChosenTarget().DeInit();
    EXPECT_EQ(QnUYVY2RGB(to, from, 12, 4, 2, 1), S_OK);
    EXPECT_EQ(hwy::GetChosenTarget().IsInitialized(), sets != 0);
  }
  QnAllowCPUSupport(~DWORD{0});
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
  LONG selector = 0;
  Frame* one = &frame;
  const auto expect = [&](auto* place, auto value, HRESULT toYuv, HRESULT toRgb) {
    const auto saved = std::exchange(*place, value);
    EXPECT_EQ(ToYuv(*one, bitmap, 0, 0, selector), toYuv) << value;
    EXPECT_EQ(ToRgb(*one, bitmap, 0, 0), toRgb) << value;
    *place = saved;
  };
  expect(&bitmap.stride, 0, S_OK, S_OK);
  for (const char* name : {"NV16", "y416", "v216", "Y41B", "IYUV", "QNDB"})
    expect(&frame.header.biCompression, FourCC(name), E_FAIL, E_FAIL);
  for (const LONG bad : {-1, 4}) expect(&selector, bad, E_FAIL, S_OK);
  for (const LONG bad : {0, 1, 7, 1 << 30}) {
    expect(&frame.header.biWidth, bad, E_INVALIDARG, E_INVALIDARG);
    expect(&frame.header.biHeight, bad, E_INVALIDARG, E_INVALIDARG);
  }
  for (DWORD* const each : {&frame.at.yStride, &frame.at.uStride, &frame.at.vStride})
    expect(each, 2u, E_INVALIDARG, E_INVALIDARG);
  // What is packed in pairs, in sixes and not at all.
  for (const int index : {8, 16, 17, 15, 5}) {
    Frame other(kLayouts[index], 6, 4);
    one = &other;
    const HRESULT odd = index == 15 || index == 5 ? S_OK : E_INVALIDARG;
    expect(&other.header.biWidth, 5, odd, odd);
    expect(&other.at.alphaStride, 11u, index == 5 ? E_INVALIDARG : S_OK, S_OK);
    expect(&other.at.yStride, 11u, E_INVALIDARG, E_INVALIDARG);
  }
  one = &frame;
  for (const LONG bad : {-23, 23}) expect(&bitmap.stride, bad, E_INVALIDARG, E_INVALIDARG);
  // Pixels of 3 bytes get 4 where a row has room.
  bitmap.header.biBitCount = 24;
  expect(&bitmap.stride, 24, E_FAIL, S_OK);
  expect(&bitmap.stride, 0, E_FAIL, E_INVALIDARG);
}

TEST(Yuv, FindsTheBitsBehindTheHeader) {
  Frame frame(kLayouts[0], 1, 3);
  const tQNYUVCOLOR colour = {0, QNYUV_2020};
  for (const LONG stride : {0, 4, -4}) {
    Bitmap bitmap(QNPIXEL_RGB32, 1, 3, 0, stride < 0);
    std::vector<BYTE> dib(40 + 12);
    std::memcpy(dib.data(), &bitmap.header, 40);
    const auto* const header = reinterpret_cast<BITMAPINFOHEADER*>(dib.data());
    bitmap.stride = stride;
    EXPECT_EQ(ToRgb(frame, bitmap, QNYUV_2020, 0), S_OK);
    EXPECT_EQ(QnYUV_YUVToRGB(header, 0, nullptr, stride, &frame.header, frame.Bits(), &frame.at, &colour),
              S_OK);
    EXPECT_TRUE(std::equal(dib.begin() + 40, dib.end(), bitmap.memory.bytes.begin())) << stride;
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
    for (const auto& [x, y, width, height, room] : kRectangles) {
      const bool up = qntest::Random()() % 2;
      Frame source(kLayouts[from], 14, 10, 3, !up), target(layout, room, 10, 0, up);
      target.memory.bytes.assign(target.memory.bytes.size(), 0);
      ASSERT_EQ(copy(&target.header, target.Bits(), &target.at, &source.header, source.Bits(), &source.at, x,
                     y, width, height),
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
    Frame source(kLayouts[from], 14, 10);
    const auto status = [&, call = copy](LONG x, LONG y, LONG width, LONG height, const void* bits) {
      BYTE sink[1024];
      return call(&source.header, sink, &source.at, &source.header, bits, &source.at, x, y, width, height);
    };
    EXPECT_EQ(status(0, 0, 0, 1, nullptr), E_POINTER);
    constexpr LONG kBad[][4] = {{-1, 0, 0, 1}, {0, -1, 0, 1}, {15, 0, 0, 1},       {0, 0, -1, 1},
                                {0, 0, 0, -1}, {0, 1, 0, 10}, {0, 1, 0, INT32_MAX}};
    for (const auto& [x, y, width, height] : kBad) {
      EXPECT_EQ(status(x, y, width, height, source.Bits()), E_INVALIDARG);
    }
  }
}

}  // namespace
