// Descriptions, allocation, bits found behind the header, texts and palettes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "qn/image/qndib.h"
#include "qn/image/qndib_internal.h"
#include "qn/platform/memory.h"

namespace {

struct Info {
  BITMAPINFO info;
  std::array<RGBQUAD, 300> more;
};

TEST(QnDib, Descriptions) {
  const RGBQUAD palette[3] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
  struct Row {
    int type;
    LONG width;
    LONG height;
    const RGBQUAD* palette;
    int entries;
    HRESULT status;
    DWORD colours;
    DWORD headerBytes;
    DWORD imageBytes;
    WORD bits;
  };
  const Row rows[] = {
      {16, 33, 2, nullptr, 0, 0, 1, 44, 16, 1},
      {17, 32, 2, nullptr, -5, 0, 1, 44, 8, 1},
      {24, 5, -3, nullptr, 0, 0, 255, 1060, 24, 8},
      {24, 5, 3, palette, 3, 0, 3, 52, 24, 8},
      {24, 5, 3, palette, -1, 0, 0, 40, 24, 8},
      {23, 9, 1, nullptr, 2, 0, 2, 48, 8, 4},
      {20, 4, 1, nullptr, 0, 0, 255, 1060, 4, 8},
      {25, 3, 1, nullptr, 0, 0, 0, 40, 8, 16},
      {26, 3, 1, palette, 3, 0, 3, 52, 8, 16},
      {30, 1, 1, nullptr, 0, 0, 0, 52, 4, 32},
      {32, 7, 11, nullptr, 0, 0, 0, 40, 1232, 128},
      {29, 0, 7, nullptr, 0, 0, 0, 40, 0, 32},
      {69, 16, 8, nullptr, 0, 0, 0, 40, 384, 24},
      {68, 1920, 2, nullptr, 0, 0, 0, 40, 10240, 20},
      {29, 32768, 32767, nullptr, 0, 0, 0, 40, 0xFFFE0000, 32},
      {29, 32768, 32768, nullptr, 0, E_INVALIDARG, 0, 0, 0, 0},
      {32, INT32_MAX, INT32_MIN, nullptr, 0, E_INVALIDARG, 0, 0, 0, 0},
      {80, 60000, 60000, nullptr, 0, E_INVALIDARG, 0, 0, 0, 0},
      {29, 1, 1, nullptr, INT32_MAX, E_INVALIDARG, 0, 0, 0, 0},
      {29, -1, 1, nullptr, 0, E_INVALIDARG, 0, 0, 0, 0},
      {0, 1, 1, nullptr, 0, E_INVALIDARG, 0, 0, 0, 0},
      {81, 1, 1, nullptr, 0, E_INVALIDARG, 0, 0, 0, 0},
  };
  for (const Row& row : rows) {
    Info made = {};
    DWORD headerBytes = 0, imageBytes = 0, sizeOnly = 0;
    EXPECT_EQ(QnDibInfo(&headerBytes, &imageBytes, &made.info, row.type, row.width, row.height, row.palette,
                        row.entries),
              row.status);
    EXPECT_EQ(headerBytes, row.headerBytes) << row.type;
    EXPECT_EQ(imageBytes, row.imageBytes) << row.type;
    if (FAILED(row.status)) continue;
    BITMAPINFOHEADER expected = {40, row.width, row.height,  1, row.bits, 0, row.imageBytes,
                                 0,  0,         row.colours, 0};
    QnPixelTypeToBitAttribs(row.type, &expected.biCompression, nullptr);
    EXPECT_EQ(std::memcmp(&made.info.bmiHeader, &expected, sizeof(expected)), 0) << row.type;
    const DWORD masks[3] = {0xF800, 0x07E0, 0x001F};
    EXPECT_TRUE(row.type != 26 || std::memcmp(made.info.bmiColors, masks, 12) == 0);
    EXPECT_TRUE(row.type != 24 || row.entries != 3 || std::memcmp(made.info.bmiColors, palette, 12) == 0);
    Info again = {};
    EXPECT_EQ(QnVideo_InitBitmapInfo(&again.info, row.type, row.width, row.height, row.palette, row.entries,
                                     &sizeOnly),
              0);
    EXPECT_EQ(std::memcmp(&again, &made, sizeof(made)), 0);
    EXPECT_EQ(sizeOnly, row.imageBytes);
  }
  EXPECT_EQ(QnDibInfo(nullptr, nullptr, nullptr, 29, 1, 1, nullptr, 0), E_INVALIDARG);
}

// Null bits lie behind the table of each type; a negative stride starts at the last row.
TEST(QnDib, Allocation) {
  for (int type = 16; type < 34; ++type) {
    BITMAPINFO* dib = nullptr;
    ASSERT_EQ(QnDibAlloc(&dib, type, 5, 3, nullptr, 0, QNDIBALLOC_ZERO), 0);
    EXPECT_EQ(qn::g_dibs.bitmaps, 1);
    EXPECT_EQ(qn::g_dibs.bytes, dib->bmiHeader.biSizeImage);
    EXPECT_EQ(std::strncmp(qn::t_dibTag, "QnDA:", 5), 0);
    Info info;
    DWORD headerBytes, imageBytes;
    QnDibInfo(&headerBytes, &imageBytes, &info.info, type, 5, 3, nullptr, 0);
    EXPECT_EQ(GlobalSize(GlobalHandle(dib)), headerBytes + imageBytes);
    BYTE* const bits = reinterpret_cast<BYTE*>(dib) + headerBytes;
    const auto isZero = [](BYTE each) { return each == 0; };
    EXPECT_TRUE(std::all_of(bits, bits + imageBytes, isZero));
    const auto stride = static_cast<LONG>(imageBytes / 3);
    const QNRGBAFLOAT white = {1, 1, 1, 1};
    const RECT middle = {-1, 1, 9, 2}, first = {0, 0, 5, 1};
    EXPECT_EQ(QnDibFillRect(&dib->bmiHeader, nullptr, &middle, 0, &white), 0);
    EXPECT_TRUE(QnGetPixelBitsPerChannel(type, nullptr) <= 8 || !isZero(bits[stride + 2])) << type;
    EXPECT_TRUE(std::all_of(bits, bits + stride, isZero) &&
                std::all_of(bits + 2 * stride, bits + imageBytes, isZero));
    EXPECT_EQ(QnDibFillRect(&dib->bmiHeader, nullptr, &first, -stride, &white), 0);
    EXPECT_EQ(std::memcmp(bits + stride, bits + 2 * stride, static_cast<size_t>(stride)), 0);
    EXPECT_EQ(QnDibFree(dib, 0), 0);
  }
  EXPECT_EQ(qn::g_dibs.bitmaps, 0);
  EXPECT_EQ(qn::g_dibs.bytes, 0);
  BITMAPINFO* dib = nullptr;
  ASSERT_EQ(QnDibAlloc(&dib, 29, 1, 1, nullptr, 0, 0x1234), 0);
  EXPECT_STREQ(qn::t_dibTag, "QnDA:1234");
  EXPECT_EQ(QnDibFree(dib, 0), 0);
  EXPECT_EQ(QnDibFree(nullptr, 0), 0);
  EXPECT_EQ(QnDibAlloc(&dib, 36, 1, 1, nullptr, 0, 0), E_INVALIDARG);
}

TEST(QnDib, Texts) {
  const std::pair<DWORD, std::u16string> rows[] = {{0, u"RGB"},           {3, u"RGB (bitfields)"},
                                                   {0x42444E51, u"RGBA"}, {0x53474E51, u"Grayscale"},
                                                   {0x3231564E, u"NV12"}, {0x01255325, u"%S%."}};
  WCHAR text[32];
  for (const auto& [compression, expected] : rows) {
    EXPECT_EQ(QnVideo_GetFormatText(compression, text, 32), 0);
    EXPECT_EQ(text, expected);
  }
  BITMAPINFOHEADER header = {};
  header.biWidth = 720;
  header.biHeight = -576;
  header.biBitCount = 24;
  EXPECT_EQ(QnVideo_GetAttribsTextEx(&header, 7, text, 32), 0);
  EXPECT_EQ(std::u16string(text), u"720x-576x24");
  EXPECT_EQ(QnVideo_GetAttribsText(&header, text, 4), 0);
  EXPECT_EQ(std::u16string(text), u"720");
  EXPECT_EQ(QnVideo_GetAttribsText(&header, nullptr, 0), E_INVALIDARG);
}

TEST(QnDib, Palettes) {
  BYTE bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  QnVideo_PaletteRGBAFromEntry(reinterpret_cast<RGBQUAD*>(bytes), reinterpret_cast<PALETTEENTRY*>(bytes), 1);
  EXPECT_EQ(std::vector<BYTE>(bytes, bytes + 8), (std::vector<BYTE>{3, 2, 1, 0, 5, 6, 7, 8}));
  QnVideo_PaletteEntryFromRGBA(reinterpret_cast<PALETTEENTRY*>(bytes), reinterpret_cast<RGBQUAD*>(bytes), 2);
  EXPECT_EQ(std::vector<BYTE>(bytes, bytes + 8), (std::vector<BYTE>{1, 2, 3, 0, 7, 6, 5, 0}));
}

}  // namespace
