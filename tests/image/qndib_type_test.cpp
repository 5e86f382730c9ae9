// Pixel types and the layouts of YUV frames against their tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"

namespace {

DWORD FourCC(const std::string& text) {
  return QnMakeFourCC(text[0], text[1], text[2], text[3]);
}

struct MaskedHeader {
  BITMAPINFOHEADER header;
  std::array<unsigned, 3> masks;
};

MaskedHeader Header(DWORD compression, int bits, std::array<unsigned, 3> masks = {}) {
  MaskedHeader made = {};
  made.header.biSize = sizeof(made.header);
  made.header.biCompression = compression;
  made.header.biBitCount = static_cast<WORD>(bits);
  made.masks = masks;
  return made;
}

TEST(PixelType, OfHeaders) {
  const std::array<unsigned, 3> none = {}, low555 = {31, 31 << 5, 31 << 10},
                                high565 = {31, 63 << 10, 31u << 21}, bytes = {0xFF000000, 0xFF00, 0xFF},
                                deep = {0x3FF, 0x3FF00000, 0xFFC00};
  struct Row {
    DWORD compression;
    int bits;
    std::array<unsigned, 3> masks;
    int type;
    bool compressed;
  };
  std::vector<Row> rows = {
      {3, 16, low555, 25, false},
      {3, 16, high565, 26, false},
      {3, 32, bytes, 28, false},
      {3, 32, deep, 30, false},
      {3, 24, bytes, 0, true},
      {3, 32, low555, 0, true},
      {3, 16, none, 0, true},
      {3, 64, {0xFFFF, 0xFFFF, 0xFFFF}, 0, true},
      {FourCC("A46B"), 7, none, 33, true},
      {FourCC("F32I"), 0, none, 35, true},
      {FourCC("NV12"), 99, none, 75, true},
      {FourCC("nv12"), 12, none, 0, true},
      {1, 8, none, 0, true},
  };
  // The types of plain compressions by their bits; every other count has none.
  const std::pair<std::vector<DWORD>, std::vector<std::pair<int, int>>> plain[] = {
      {{0, FourCC("RGBA")}, {{1, 16}, {4, 23}, {8, 24}, {16, 25}, {24, 27}, {32, 28}}},
      {{FourCC("QNGS")}, {{1, 17}, {2, 18}, {4, 19}, {8, 20}, {16, 21}, {32, 22}}},
      {{FourCC("QNDB")}, {{24, 27}, {32, 29}, {64, 31}, {128, 32}}},
  };
  for (const auto& [compressions, types] : plain) {
    for (const DWORD compression : compressions) {
      for (int bits = 0; bits <= 256; ++bits) {
        const auto found =
            std::find_if(types.begin(), types.end(), [bits](auto& each) { return each.first == bits; });
        const int type = found == types.end() ? 0 : found->second;
        rows.push_back({compression, bits, none, type, type == 0 || compression == FourCC("RGBA")});
      }
    }
  }
  for (const Row& row : rows) {
    const MaskedHeader made = Header(row.compression, row.bits, row.masks);
    EXPECT_EQ(QnGetPixelType(&made.header), row.type) << row.compression << " " << row.bits;
    EXPECT_EQ(QnVideo_IsCompressed(&made.header), row.compressed) << row.compression << " " << row.bits;
  }
  EXPECT_EQ(QnGetPixelType(nullptr), 0);
  EXPECT_EQ(QnVideo_IsCompressed(nullptr), 1);
}

// Each type's bits and components, and that its header leads back to it.
TEST(PixelType, Attributes) {
  struct Row {
    int bits;
    std::array<BYTE, 4> channels;
  };
  const Row rows[] = {
      {1, {0, 0, 0, 1}},       {1, {0, 0, 0, 1}},      {2, {0, 0, 0, 2}},     {4, {0, 0, 0, 4}},
      {8, {0, 0, 0, 8}},       {16, {0, 0, 0, 16}},    {32, {0, 0, 0, 32}},   {4, {8, 8, 8, 0}},
      {8, {8, 8, 8, 0}},       {16, {5, 5, 5, 1}},     {16, {5, 6, 5, 0}},    {24, {8, 8, 8, 0}},
      {32, {8, 8, 8, 8}},      {32, {8, 8, 8, 8}},     {32, {10, 10, 10, 2}}, {64, {16, 16, 16, 16}},
      {128, {32, 32, 32, 32}}, {64, {16, 16, 16, 16}}, {32, {10, 10, 10, 2}}, {128, {32, 32, 32, 32}}};
  for (int type = -1; type < 100; ++type) {
    const bool known = type >= 16 && type <= 35;
    std::array<BYTE, 4> channels = {9, 9, 9, 9};
    EXPECT_EQ(QnGetPixelBitsPerChannel(type, channels.data()), known ? rows[type - 16].bits : 0) << type;
    EXPECT_EQ(channels, known ? rows[type - 16].channels : (std::array<BYTE, 4>{9, 9, 9, 9})) << type;

    unsigned compression = 0;
    std::array<unsigned, 3> masks = {7, 7, 7};
    const int bits = QnPixelTypeToBitAttribs(type, &compression, masks.data());
    const MaskedHeader made = Header(compression, bits, masks);
    EXPECT_TRUE(!known || bits == rows[type - 16].bits) << type;
    EXPECT_EQ(bits != 0, known || (type >= 64 && type <= 86 && type != 81)) << type;
    EXPECT_TRUE(bits == 0 || type == 34 || QnGetPixelType(&made.header) == type) << type;
    EXPECT_TRUE(bits == 0 || compression == 3 || masks == (std::array<unsigned, 3>{})) << type;
  }
  unsigned masks[3];
  QnPixelTypeToBitAttribs(26, nullptr, masks);
  EXPECT_EQ((std::array{masks[0], masks[1], masks[2]}), (std::array{0xF800u, 0x07E0u, 0x001Fu}));
}

// Depth, storage, and the plan of a frame of 6 x 4: stride, U and V (offset and stride), bytes.
TEST(PixelType, Yuv) {
  struct Row {
    int type;
    const char* fourcc;
    int depth;
    int storage;
    std::array<DWORD, 5> planes;
    DWORD bytes;
  };
  const Row rows[] = {
      {64, "UYVY", 16, 16, {12, 0, 0, 0, 0}, 48},      {65, "YUYV", 16, 16, {12, 0, 0, 0, 0}, 48},
      {66, "Y41B", 12, 12, {6, 24, 1, 30, 1}, 36},     {67, "I420", 12, 12, {6, 24, 3, 30, 3}, 36},
      {68, "v210", 20, 20, {128, 0, 0, 0, 0}, 512},    {69, "P010", 15, 24, {12, 48, 12, 0, 0}, 72},
      {70, "PL10", 15, 24, {12, 48, 12, 0, 0}, 72},    {71, "P210", 20, 32, {12, 48, 12, 0, 0}, 96},
      {72, "P216", 20, 32, {12, 48, 12, 0, 0}, 96},    {73, "Y210", 20, 32, {24, 0, 0, 0, 0}, 96},
      {74, "P410", 30, 48, {12, 48, 12, 96, 12}, 144}, {75, "NV12", 12, 12, {6, 24, 6, 0, 0}, 36},
      {76, "YV12", 12, 12, {6, 30, 3, 24, 3}, 36},     {77, "YV16", 16, 16, {6, 36, 3, 24, 3}, 48},
      {78, "A410", 46, 64, {12, 48, 12, 96, 12}, 192}, {79, "v216", 32, 32, {24, 0, 0, 0, 0}, 96},
      {80, "y416", 64, 64, {48, 0, 0, 0, 0}, 192},     {82, "P012", 18, 24, {12, 48, 12, 0, 0}, 72},
      {83, "P212", 24, 32, {12, 48, 12, 0, 0}, 96},    {84, "P412", 36, 48, {12, 48, 12, 96, 12}, 144},
      {85, "YV24", 24, 24, {6, 48, 6, 24, 6}, 72},     {86, "NV16", 16, 16, {6, 24, 6, 0, 0}, 48},
  };
  for (const Row& row : rows) {
    unsigned compression = 0;
    EXPECT_EQ(QnPixelTypeToBitAttribs(row.type, &compression, nullptr), row.depth) << row.fourcc;
    EXPECT_EQ(compression, FourCC(row.fourcc));
    EXPECT_EQ(QnPixelTypeToBitsPerPixelYUV(row.type), row.storage) << row.fourcc;
    BITMAPINFOHEADER header = Header(compression, 0).header;
    header.biWidth = 6;
    header.biHeight = -4;
    tQNYUVOFFSETS found = {};
    EXPECT_EQ(QnYUVImageBytesAndOffsets(&header, &found), row.bytes) << row.fourcc;
    EXPECT_EQ((std::array{found.yStride, found.uOffset, found.uStride, found.vOffset, found.vStride}),
              row.planes)
        << row.fourcc;
    EXPECT_EQ(found.alphaOffset, row.type == 78 ? 144u : 0u);
    header.biWidth = 0x7FFFFFFF;
    header.biHeight = INT32_MIN;
    EXPECT_EQ(QnYUVImageBytesAndOffsets(&header, nullptr), 0u) << row.fourcc;
  }
  EXPECT_EQ(QnPixelTypeToBitsPerPixelYUV(29), 0);
  EXPECT_EQ(QnPixelTypeToBitsPerPixelYUV(81), 0);
}

TEST(PixelType, Masks) {
  for (int first = -40; first <= 40; ++first) {
    for (int count = -2; count <= 70; ++count) {
      unsigned mask = 0;
      for (int bit = std::max(first, 0); bit < std::min(first + count, 32); ++bit) mask |= 1u << bit;
      EXPECT_EQ(QnCreateBitMask(first, count), mask) << first << " " << count;
    }
  }
  EXPECT_EQ(QnCreateBitMask(INT32_MAX, INT32_MAX), 0u);
  EXPECT_EQ(QnCountBits(0xF00F8001), 10);
}

}  // namespace
