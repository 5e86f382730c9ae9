// A picture in memory: a bitmap of the library, with its header, palette and bits in one block.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "qn/image/qndib.h"
#include "tools/common/text.h"

namespace qnimage {

// What a picture may have, so that a header cannot ask for all memory.
constexpr uint32_t kMostSide = 32'768;
constexpr uint64_t kMostBytes = uint64_t{1} << 30;

using Palette = std::vector<RGBQUAD>;

// The bytes of the rows of a picture.
uint64_t ImageBytes(int type, uint64_t width, uint64_t height);

// True for sides from 1 on of which a picture can be made, here and at the depth at which the tool works.
bool IsPossible(int type, uint64_t width, uint64_t height);

// What to say of sides that are not.
qntool::Message TooLarge(uint64_t width, uint64_t height);

// The type at which a picture of another type is worked on: four components of 8 or 16 bits or floats.
int WorkingType(int type);

class Image {
 public:
  // A picture of possible sides, all zero. A negative height is for rows from the top. Throws where there is
  // no memory.
  Image(int type, LONG width, LONG height, const Palette& palette = {});
  Image() = default;

  BITMAPINFOHEADER* Header() const { return &dib_->bmiHeader; }
  int Type() const { return type_; }
  uint32_t Width() const { return static_cast<uint32_t>(dib_->bmiHeader.biWidth); }
  uint32_t Height() const;

  // The header with what stands behind it, up to the bits.
  std::span<uint8_t> HeaderBytes() const;
  // All rows, as they follow each other in memory.
  std::span<uint8_t> Bits() const;
  uint8_t* Row(uint32_t y) const;

  // The same picture in another type, with its rows from the top or from the bottom.
  Image ConvertedTo(int type, bool fromTop, const Palette& palette = {}) const;

  // Whether all pixels are opaque; the type is one to work on.
  bool IsOpaque() const;

 private:
  struct Free {
    void operator()(BITMAPINFO* dib) const { QnDibFree(dib, 0); }
  };
  std::unique_ptr<BITMAPINFO, Free> dib_;
  int type_ = 0;
  size_t headerBytes_ = 0;
};

// A row of a picture with its rows from the top, in floats whatever the picture's type.
class FloatRow {
 public:
  explicit FloatRow(uint32_t width);

  std::span<QNRGBAFLOAT> Pixels() const;
  void Get(const Image& image, uint32_t y) const;
  void Put(const Image& image, uint32_t y) const;

 private:
  Image row_;
};

}  // namespace qnimage
