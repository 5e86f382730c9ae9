// Descriptions, allocation, bits found behind the header, texts and palettes.
#include <gtest/gtest.h>
#include <sys/mman.h>

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

// Image bytes of what is refused.
constexpr int64_t kTooLarge = -1, kBad = -2;

TEST(QnDib, Descriptions) {
  const RGBQUAD palette[3] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
  // Type, width, height, whether there is a palette, its count; biClrUsed, bits, header and image bytes. What
  // is too large to describe is too large to allocate.
  const int64_t rows[][9] = {{16, 33, 2, 0, 0, 1, 1, 44, 16},
                             {17, 32, 2, 0, -5, 1, 1, 44, 8},
                             {24, 5, -3, 0, 0, 255, 8, 1060, 24},
                             {24, 5, 3, 1, 3, 3, 8, 52, 24},
                             {24, 5, 3, 1, -1, 0, 8, 40, 24},
                             {26, 3, 1, 1, 3, 3, 16, 52, 8},
                             {29, 0, 7, 0, 0, 0, 32, 40, 0},
                             {69, 1920, 2, 0, 0, 0, 24, 40, 11520},
                             {29, 32768, 32767, 0, 0, 0, 32, 40, 4294836224},
                             {29, 32768, 32768, 0, 0, 0, 0, 0, kTooLarge},
                             {32, INT32_MAX, INT32_MIN, 0, 0, 0, 0, 0, kTooLarge},
                             {32, 1 << 30, 1 << 30, 0, 0, 0, 0, 0, kTooLarge},  // 2^64 bytes
                             {80, 60000, 60000, 0, 0, 0, 0, 0, kTooLarge},
                             {29, 1, 1, 0, INT32_MAX, 0, 0, 0, kTooLarge},
                             {29, -1, 1, 0, 0, 0, 0, 0, kBad},
                             {81, 1, 1, 0, 0, 0, 0, 0, kBad}};
  for (const auto& row : rows) {
    const auto type = static_cast<int>(row[0]), count = static_cast<int>(row[4]);
    const auto width = static_cast<LONG>(row[1]), height = static_cast<LONG>(row[2]);
    const RGBQUAD* const colours = row[3] ? palette : nullptr;
    const bool good = row[8] >= 0;
    Info made = {}, again = {};
    DWORD headerBytes = 0, imageBytes = ~0u, sizeOnly = ~0u;
    EXPECT_EQ(QnDibInfo(&headerBytes, &imageBytes, &made.info, type, width, height, colours, count),
              good ? S_OK : E_INVALIDARG);
    EXPECT_TRUE(headerBytes == row[7] && imageBytes == static_cast<DWORD>(good ? row[8] : -1)) << type;
    QnVideo_InitBitmapInfo(&again.info, type, width, height, colours, count, &sizeOnly);
    EXPECT_TRUE(std::memcmp(&again, &made, sizeof(made)) == 0 && sizeOnly == imageBytes) << type;
    if (!good) {
      BITMAPINFO* dib = &made.info;
      EXPECT_EQ(QnDibAlloc(&dib, type, width, height, colours, count, 0),
                row[8] == kBad ? E_INVALIDARG : E_OUTOFMEMORY);
      EXPECT_EQ(dib, &made.info);
      continue;
    }
    BITMAPINFOHEADER expected = {
        40, width, height, 1, static_cast<WORD>(row[6]), 0, imageBytes, 0, 0, static_cast<DWORD>(row[5]), 0};
    QnPixelTypeToBitAttribs(type, &expected.biCompression, nullptr);
    EXPECT_EQ(std::memcmp(&made.info.bmiHeader, &expected, sizeof(expected)), 0) << type;
    const DWORD masks[3] = {0xF800, 0x07E0, 0x001F};
    const void* const behind = type == 26 ? static_cast<const void*>(masks) : palette;
    EXPECT_TRUE(row[5] != 3 || std::memcmp(made.info.bmiColors, behind, 12) == 0) << type;
  }
  EXPECT_EQ(QnDibInfo(nullptr, nullptr, nullptr, 29, 1, 1, nullptr, 0), E_INVALIDARG);
}

// Null bits lie behind the table of each type; a negative stride starts at the last row.
TEST(QnDib, Allocation) {
  const QNRGBAFLOAT white = {1, 1, 1, 1};
  BITMAPINFO* dib = nullptr;
  for (int type = 16; type < 36; ++type) {
    ASSERT_EQ(QnDibAlloc(&dib, type, 5, 3, nullptr, 0, type == 20 ? 0x1235 : QNDIBALLOC_ZERO), 0);
    EXPECT_EQ(std::string(qn::t_dibTag) == "QnDA:1234", type == 20);
    EXPECT_TRUE(qn::g_dibs.bitmaps == 1 && qn::g_dibs.bytes == dib->bmiHeader.biSizeImage);
    Info info;
    DWORD headerBytes, imageBytes;
    QnDibInfo(&headerBytes, &imageBytes, &info.info, type, 5, 3, nullptr, 0);
    EXPECT_EQ(GlobalSize(GlobalHandle(dib)), headerBytes + imageBytes);
    // These have their number of bits whatever the header says.
    if (type == QNPIXEL_A46B || type == QNPIXEL_F32I) dib->bmiHeader.biBitCount = 0;
    const BYTE* const bits = reinterpret_cast<BYTE*>(dib) + headerBytes;
    const auto isZero = [&](DWORD first, DWORD last) {
      return std::all_of(bits + first, bits + last, [](BYTE each) { return each == 0; });
    };
    EXPECT_TRUE(isZero(0, imageBytes));
    const DWORD stride = imageBytes / 3;
    const RECT middle = {-1, 1, 9, 2}, first = {0, 0, 5, 1};
    EXPECT_EQ(QnDibFillRect(&dib->bmiHeader, nullptr, &middle, 0, &white), 0);
    EXPECT_TRUE(isZero(0, stride) && isZero(2 * stride, imageBytes) &&
                (type < 25 || !isZero(stride, 2 * stride)))
        << type;
    EXPECT_EQ(QnDibFillRect(&dib->bmiHeader, nullptr, &first, -static_cast<LONG>(stride), &white), 0);
    EXPECT_EQ(std::memcmp(bits + stride, bits + 2 * stride, stride), 0);
    EXPECT_EQ(QnDibFree(dib, 0), 0);
  }
  EXPECT_TRUE(qn::g_dibs.bitmaps == 0 && qn::g_dibs.bytes == 0);
  EXPECT_EQ(QnDibFree(nullptr, 0), 0);
  // A table without colours lies before the bits all the same; other memory may begin with a page.
  const RGBQUAD none[1] = {};
  ASSERT_EQ(QnDibAlloc(&dib, 24, 4, 4, none, 0, 0), 0);
  EXPECT_EQ(QnDibFillRect(&dib->bmiHeader, nullptr, nullptr, 0, &white), 0);
  EXPECT_EQ(QnDibFree(dib, 0), 0);
  void* const page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  EXPECT_EQ(QnDibFree(static_cast<BITMAPINFO*>(page), -1), 0);
  munmap(page, 4096);
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
  const BITMAPINFOHEADER header = {40, 720, -576, 1, 24, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(QnVideo_GetAttribsTextEx(&header, 7, text, 32), 0);
  EXPECT_EQ(std::u16string(text), u"720x-576x24");
  EXPECT_EQ(QnVideo_GetAttribsText(&header, text, 3), 0);
  EXPECT_EQ(std::u16string(text), u"72");
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
