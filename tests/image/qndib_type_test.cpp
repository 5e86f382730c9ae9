// Pixel types and the layouts of YUV frames against their tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"

namespace {

using Masks = std::array<unsigned, 3>;

struct MaskedHeader {
  BITMAPINFOHEADER header;
  Masks masks;
};

void ExpectType(DWORD compression, int bits, const Masks& masks, int type) {
  MaskedHeader made = {{40, 6, -4, 1, static_cast<WORD>(bits), compression, 0, 0, 0, 0, 0}, masks};
  EXPECT_EQ(QnGetPixelType(&made.header), type) << compression << " " << bits;
  const bool plain =
      compression == 0 || compression == 3 || compression == QNBI_GRAY || compression == QNBI_DEEP;
  EXPECT_EQ(QnVideo_IsCompressed(&made.header), !plain || type == 0) << compression << " " << bits;
}

// Each type's compression, bits, and those of red, green, blue and alpha.
constexpr DWORD kRgb = BI_RGB, kMasks = BI_BITFIELDS, kGray = QNBI_GRAY, kDeep = QNBI_DEEP;
constexpr DWORD kRows[][6] = {
    {kRgb, 1, 0, 0, 0, 1},       {kGray, 1, 0, 0, 0, 1},          {kGray, 2, 0, 0, 0, 2},
    {kGray, 4, 0, 0, 0, 4},      {kGray, 8, 0, 0, 0, 8},          {kGray, 16, 0, 0, 0, 16},
    {kGray, 32, 0, 0, 0, 32},    {kRgb, 4, 8, 8, 8, 0},           {kRgb, 8, 8, 8, 8, 0},
    {kRgb, 16, 5, 5, 5, 1},      {kMasks, 16, 5, 6, 5, 0},        {kRgb, 24, 8, 8, 8, 0},
    {kRgb, 32, 8, 8, 8, 8},      {kDeep, 32, 8, 8, 8, 8},         {kMasks, 32, 10, 10, 10, 2},
    {kDeep, 64, 16, 16, 16, 16}, {kDeep, 128, 32, 32, 32, 32},    {QNBI_A46B, 64, 16, 16, 16, 16},
    {kRgb, 32, 10, 10, 10, 2},   {QNBI_F32I, 128, 32, 32, 32, 32}};

TEST(PixelType, OfHeaders) {
  for (const DWORD compression : {BI_RGB, BI_BITFIELDS, QNBI_GRAY, QNBI_DEEP, QNBI_RGBA}) {
    for (int bits = 0; bits <= 256; ++bits) {
      int type = 0;
      for (int i = 19; i >= 0 && compression != BI_BITFIELDS; --i) {  // which needs its masks
        const bool same = kRows[i][0] == (compression == QNBI_RGBA ? BI_RGB : compression);
        if (same && static_cast<int>(kRows[i][1]) == bits) type = 16 + i;
      }
      ExpectType(compression, bits, {}, compression == QNBI_DEEP && bits == 24 ? 27 : type);
    }
  }
  ExpectType(BI_BITFIELDS, 16, {31, 31 << 5, 31 << 10}, 25);
  ExpectType(BI_BITFIELDS, 16, {31, 63 << 10, 31u << 21}, 26);
  ExpectType(BI_BITFIELDS, 32, {0xFF000000, 0xFF00, 0xFF}, 28);
  ExpectType(BI_BITFIELDS, 32, {31, 31, 31}, 0);
  ExpectType(BI_BITFIELDS, 64, {65535, 65535, 65535}, 0);
  ExpectType(QNBI_A46B, 7, {}, 33);
  ExpectType(QnMakeFourCC('N', 'V', '1', '2'), 99, {}, 75);
  ExpectType(QnMakeFourCC('n', 'v', '1', '2'), 12, {}, 0);
  EXPECT_TRUE(QnGetPixelType(nullptr) == 0 && QnVideo_IsCompressed(nullptr));
}

TEST(PixelType, Attributes) {
  for (int type = -1; type < 100; ++type) {
    const bool known = type >= 16 && type <= 35, yuv = type >= 64 && type <= 86 && type != 81;
    constexpr DWORD kNone[6] = {0, 0, 9, 9, 9, 9};
    const auto& row = known ? kRows[type - 16] : kNone;
    const auto rowBits = static_cast<int>(row[1]);
    BYTE channels[] = {9, 9, 9, 9};
    EXPECT_EQ(QnGetPixelBitsPerChannel(type, channels), rowBits) << type;
    EXPECT_TRUE(std::equal(channels, channels + 4, row + 2)) << type;
    unsigned compression = 0;
    Masks masks = {7, 7, 7};
    const int bits = QnPixelTypeToBitAttribs(type, &compression, masks.data());
    EXPECT_TRUE(yuv ? bits != 0 : bits == rowBits && compression == row[0]) << type;
    EXPECT_EQ(masks, type == 26     ? (Masks{0xF800, 0x07E0, 0x001F})
                     : type == 30   ? (Masks{0x3FF00000, 0xFFC00, 0x3FF})
                     : known || yuv ? Masks{}
                                    : (Masks{7, 7, 7}))
        << type;
    if (type == 30 || yuv) ExpectType(compression, bits, masks, type);
  }
}

// Type, depth, storage, and the plan of a frame of 6 x 4: stride, U and V (offset and stride), bytes.
TEST(PixelType, Yuv) {
  const std::string names =
      "UYVYYUYVY41BI420v210P010PL10P210P216Y210P410NV12YV12YV16A410v216y416P012P212P412YV24NV16";
  const DWORD rows[][9] = {{64, 16, 16, 12, 0, 0, 0, 0, 48},      {65, 16, 16, 12, 0, 0, 0, 0, 48},
                           {66, 12, 12, 6, 24, 1, 30, 1, 36},     {67, 12, 12, 6, 24, 3, 30, 3, 36},
                           {68, 20, 20, 128, 0, 0, 0, 0, 512},    {69, 15, 24, 12, 48, 12, 0, 0, 72},
                           {70, 15, 24, 12, 48, 12, 0, 0, 72},    {71, 20, 32, 12, 48, 12, 0, 0, 96},
                           {72, 20, 32, 12, 48, 12, 0, 0, 96},    {73, 20, 32, 24, 0, 0, 0, 0, 96},
                           {74, 30, 48, 12, 48, 12, 96, 12, 144}, {75, 12, 12, 6, 24, 6, 0, 0, 36},
                           {76, 12, 12, 6, 30, 3, 24, 3, 36},     {77, 16, 16, 6, 36, 3, 24, 3, 48},
                           {78, 46, 64, 12, 48, 12, 96, 12, 192}, {79, 32, 32, 24, 0, 0, 0, 0, 96},
                           {80, 64, 64, 48, 0, 0, 0, 0, 192},     {82, 18, 24, 12, 48, 12, 0, 0, 72},
                           {83, 24, 32, 12, 48, 12, 0, 0, 96},    {84, 36, 48, 12, 48, 12, 96, 12, 144},
                           {85, 24, 24, 6, 48, 6, 24, 6, 72},     {86, 16, 16, 6, 24, 6, 0, 0, 48}};
  for (size_t i = 0; i < std::size(rows); ++i) {
    const auto& row = rows[i];
    const auto type = static_cast<int>(row[0]);
    BITMAPINFOHEADER header = {40, 6, -4, 1, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(QnPixelTypeToBitAttribs(type, &header.biCompression, nullptr), static_cast<int>(row[1]))
        << type;
    EXPECT_EQ(std::memcmp(&header.biCompression, names.data() + 4 * i, 4), 0) << type;
    EXPECT_EQ(QnPixelTypeToBitsPerPixelYUV(type), static_cast<int>(row[2])) << type;
    tQNYUVOFFSETS found = {};
    EXPECT_EQ(QnYUVImageBytesAndOffsets(&header, &found), row[8]) << type;
    EXPECT_EQ(std::memcmp(&found, row + 3, 5 * sizeof(DWORD)), 0) << type;
    EXPECT_EQ(found.alphaOffset, type == 78 ? 144u : 0u);
    header.biWidth = INT32_MAX;
    header.biHeight = INT32_MIN;
    EXPECT_EQ(QnYUVImageBytesAndOffsets(&header, nullptr), 0u) << type;
  }
  EXPECT_EQ(QnPixelTypeToBitsPerPixelYUV(29) + QnPixelTypeToBitsPerPixelYUV(81), 0);
}

TEST(PixelType, Masks) {
  for (int i = 0; i < 81 * 73; ++i) {
    const int first = i % 81 - 40, count = i / 81 - 2;
    unsigned mask = 0;
    for (int bit = std::max(first, 0); bit < std::min(first + count, 32); ++bit) mask |= 1u << bit;
    EXPECT_EQ(QnCreateBitMask(first, count), mask) << first << " " << count;
  }
  EXPECT_EQ(QnCreateBitMask(INT32_MAX, INT32_MAX), 0u);
  EXPECT_EQ(QnCountBits(0xF00F8001), 10);
}

}  // namespace
