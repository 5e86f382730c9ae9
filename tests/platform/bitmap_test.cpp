#include <gtest/gtest.h>

#include <climits>

#include "qn/platform/wingdi.h"
#include "tests/support/chunks.h"

namespace {

using namespace qntest;
using Pixels = std::vector<uint32_t>;

// A header and what follows it in memory.
struct Dib : BITMAPINFOHEADER {
  Dib(int width, int height, int bitCount, DWORD compression = BI_RGB, size_t bytes = 0)
      : BITMAPINFOHEADER{40, width, height, 1, WORD(bitCount), compression, DWORD(bytes), 0, 0, 0, 0} {}
  BITMAPINFO* Info() { return reinterpret_cast<BITMAPINFO*>(this); }
  HBITMAP Create(const Bytes& bits) {
    return CreateDIBitmap(nullptr, this, CBM_INIT, bits.data(), Info(), 0);
  }
  uint32_t rest[280] = {};
};

// The picture from the top row down; ends the bitmap.
Pixels PixelsOf(HBITMAP bitmap) {
  Dib form(0, 0, 0);
  EXPECT_TRUE(GetDIBits(nullptr, bitmap, 0, 0, nullptr, form.Info(), 0));
  Pixels pixels(form.biSizeImage / 4, 7);
  form.biHeight = -form.biHeight;
  EXPECT_EQ(GetDIBits(nullptr, bitmap, 0, UINT_MAX, pixels.data(), form.Info(), 0), -form.biHeight);
  EXPECT_EQ(DeleteObject(bitmap) + DeleteObject(bitmap), 1) << "a handle ends once";
  return pixels;
}

// A channel in 8 bits, of which 255 is 1: its bits repeated for ever as a binary fraction.
uint32_t Channel(uint32_t pixel, uint32_t mask) {
  const uint32_t one = mask & -mask;
  return mask ? std::min(255u, (pixel & mask) / one * 256 / (mask / one)) : 0;
}

TEST(Bitmap, ReadsEveryDepth) {
  const Pixels k15 = {0x7C00, 0x3E0, 0x1F}, k16 = {0xF800, 0x7E0, 0x1F}, kFew = {0xF, 0x8000, 0};
  const Pixels k24 = {0xFF0000, 0xFF00, 0xFF}, k30 = {0x3FF, 0xFFC00, 0x3FF00000};
  // Bits a pixel, bytes of the header, colours given, masks.
  const std::tuple<int, DWORD, DWORD, Pixels> forms[] = {
      {1, 40, 0, k24},   {1, 40, 1, k24},       {4, 40, 0, k24},  {4, 124, 11, k24}, {8, 40, 0, k24},
      {8, 64, 200, k24}, {8, 40, INT_MAX, k24}, {16, 40, 0, k15}, {16, 40, 0, k16},  {16, 52, 0, kFew},
      {24, 40, 0, k24},  {32, 40, 7, k24},      {32, 108, 0, k30}};
  for (const auto& [bitCount, headerSize, colours, masks] : forms) {
    for (int width = 1; width <= 35; ++width) {
      const int rows = 3, stride = (width * bitCount + 31) / 32 * 4, height = width % 2 ? rows : -rows;
      Dib dib(width, height, bitCount, masks == k24 || masks == k15 ? BI_RGB : BI_BITFIELDS);
      std::tie(dib.biSize, dib.biClrUsed) = std::tie(headerSize, colours);
      for (uint32_t& word : dib.rest) word = uint32_t(Random()());
      if (bitCount > 8) std::copy(masks.begin(), masks.end(), dib.rest);
      Bytes bits(size_t(stride * rows));
      for (uint8_t& byte : bits) byte = uint8_t(Random()());
      Pixels expected;
      for (int i = 0; i < width * rows; ++i) {
        const int y = height < 0 ? i / width : rows - 1 - i / width;
        uint32_t pixel = 0;
        for (int bit = 0; bit < bitCount; ++bit) {
          const int place = (y * stride * 8 + i % width * bitCount + bit) ^ (bitCount < 8 ? 7 : 0);
          pixel |= (bits[size_t(place / 8)] >> place % 8 & 1u) << (bitCount < 8 ? bitCount - 1 - bit : bit);
        }
        const auto entry = bitCount <= 8 ? (headerSize - 40) / 4 + pixel : 0;
        if (bitCount <= 8) pixel = pixel <= colours - 1 ? dib.rest[entry] : 0;  // 0 colours are all
        expected.push_back(0);
        for (const uint32_t mask : masks) expected.back() = expected.back() << 8 | Channel(pixel, mask);
      }
      ASSERT_EQ(PixelsOf(dib.Create(bits)), expected) << bitCount << ' ' << width << ' ' << headerSize;
    }
  }
}

// Pictures of 4 x 2, pixel by pixel from the top.
TEST(Bitmap, RunsOfCompressedBits) {
  for (const auto& [bitCount, stream, picture] :
       {std::tuple(8, "02 01 02 02 00 00 03 03 00 01 01 04", "33301122"),
        {8, "00 03 01 02 03 00 01 04 00 00 09 05 01 06", "55551234"},  // an odd run; one beyond the row
        {8, "00 02 03 01 01 07 00 02 FF 00 01 01 00 02 00 FF 01 01", "00070000"},  // moves
        {8, "04 01 00 00 00 03 05 06", "00001111"},                                // cut within a run
        {8, "04 01 00 00 04 02 00 00 04 03", "22221111"},                          // rows beyond
        {8, "00 03 05 06 07", "00005670"},                                         // cut before the padding
        {4, "03 12 01 34 00 00 00 04 56 78", "56781213"},
        {4, "00 05 12 34 00 00 00 00 00 03 56 70 01 80", "56781234"}}) {
    const Bytes bits = Hex(stream);
    Dib dib(4, 2, bitCount, bitCount == 8 ? BI_RLE8 : BI_RLE4, bits.size());
    for (uint32_t i = 0; i < 10; ++i) dib.rest[i] = i;
    std::string seen;
    for (const uint32_t pixel : PixelsOf(dib.Create(bits))) seen += char('0' + pixel);
    EXPECT_EQ(seen, picture) << stream;
  }
}

TEST(Bitmap, GivesRowsInTheFormAsked) {
  const HBITMAP bitmap = Dib(1, 3, 24).Create(Hex("01 02 03 00 04 05 06 00 07 08 09 00"));
  // Height, bits a pixel, the first row of two, and the first byte of each that must come.
  const int forms[][5] = {{3, 32, 0, 1, 4}, {3, 32, 1, 4, 7}, {-3, 24, 1, 4, 1}, {3, 24, 2, 7, 0},
                          {3, 32, 4, 0, 0}, {2, 32, 0, 0, 0}, {3, 16, 0, 0, 0},  {INT_MIN, 32, 0, 0, 0}};
  for (const auto& [height, bitCount, start, first, second] : forms) {
    Bytes got(12);
    GetDIBits(nullptr, bitmap, UINT(start), 2, got.data(), Dib(1, height, bitCount).Info(), 0);
    EXPECT_EQ(std::tuple(got[0], got[4], got[8]), std::tuple(first, second, 0)) << height << ' ' << start;
  }
  BITMAP size;
  EXPECT_EQ(GetObjectW(bitmap, sizeof size, &size), GetObjectW(bitmap, 0, nullptr));
  EXPECT_EQ(std::tuple(size.bmWidth, size.bmHeight, size.bmWidthBytes), std::tuple(1, 3, 4));
  EXPECT_TRUE(DeleteObject(bitmap));
}

}  // namespace
