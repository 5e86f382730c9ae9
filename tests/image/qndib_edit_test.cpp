// Operations on pixels of all types against a model in single bits: the rows have their exact size, and all
// that lies outside of the rectangle must stay.
#include <gtest/gtest.h>

#include "qn/platform/winuser.h"
#include "tests/image/image_model.h"
#include "tests/support/support.h"

namespace {

using qntest::kModelTypes;
using qntest::Picture;
using Components = std::array<double, 4>;

// The components nearest to a colour have been stored: none is more than half a step away.
void ExpectColour(const Picture& picture, LONG x, LONG y, Components colour) {
  if (picture.IsGray()) colour.fill(0.299 * colour[2] + 0.587 * colour[1] + 0.114 * colour[0]);
  const Components found = picture.Components(x, y);
  const auto distance = [&](double blue, double green, double red) {
    return std::hypot(blue - colour[0] * 255, green - colour[1] * 255, red - colour[2] * 255);
  };
  // Colours between the steps of 8 bits are rounded before they are compared with a palette.
  const double slack =
      2 * distance(std::round(colour[0] * 255), std::round(colour[1] * 255), std::round(colour[2] * 255));
  const double chosen = distance(found[0] * 255, found[1] * 255, found[2] * 255);
  for (size_t i = 0; picture.IsPalette() && i < size_t{1} << picture.bits; ++i) {
    const RGBQUAD entry = picture.Entry(i);
    ASSERT_LE(chosen, distance(entry.rgbBlue, entry.rgbGreen, entry.rgbRed) + slack + 1e-9);
  }
  for (int i = 0; i < 4; ++i) {
    const double half = picture.IsFloat() ? 1e-7 : 0.50001 / (std::exp2(picture.width[i]) - 1);
    ASSERT_TRUE(picture.width[i] == 0 || std::abs(found[i] - colour[i]) <= half) << picture.type << " " << i;
  }
}

class QnDibEdit : public testing::Test {
 protected:
  LONG Any(LONG from, LONG to) {
    return from + static_cast<LONG>(random_() % static_cast<uint64_t>(to - from + 1));
  }
  Picture AnyPicture(const qntest::ModelType& type) {
    return {type, Any(1, 21), Any(-9, 9), Any(-1, 1), random_};
  }
  RECT AnyRectangle() {
    const LONG left = Any(-4, 20), top = Any(-4, 9);
    return {left, top, left + Any(-1, 24), top + Any(-1, 12)};
  }
  static bool Inside(const RECT& area, double x, double y) {
    return x >= area.left && x < area.right && y >= area.top && y < area.bottom;
  }

  std::mt19937_64& random_ = qntest::Random();
};

TEST_F(QnDibEdit, EveryType) {
  for (int round = 0; round < 72 * static_cast<int>(std::size(kModelTypes)); ++round) {
    Picture picture = AnyPicture(kModelTypes[round / 72]);
    const Picture before = picture;
    const auto [type, bits, first, width, header, rows, stride] = before;
    const RECT place = AnyRectangle(), whole = picture.Whole();
    RECT clip;
    const bool any = IntersectRect(&clip, &place, &whole);
    const int operation = round % 6;
    Components colour;
    DWORD bytes[4];
    float reals[4];
    for (int i = 0; i < 4; ++i) {
      bytes[i] = static_cast<DWORD>(Any(0, 300));
      reals[i] = static_cast<float>(Any(0, 1000)) / 1000;
      colour[i] = operation == 5 ? reals[i] : std::min(bytes[i], DWORD{255}) / 255.0;
    }
    const QNDIBPIXEL pixel = {bytes[0], bytes[1], bytes[2], bytes[3]};
    const QNRGBAFLOAT real = {reals[0], reals[1], reals[2], reals[3]};
    const LONG x = Any(-2, 22), y = Any(-2, 10);
    const bool inside = any && Inside(clip, x, y);
    const auto flip = static_cast<UINT>(Any(0, 3));
    QNDIBPIXEL got = {9, 9, 9, 9};
    const HRESULT status =
        operation == 0   ? QnDibSet(picture.Header(), picture.Bits(), &place, stride, &pixel)
        : operation == 1 ? QnDibSetPixel(picture.Header(), picture.Bits(), &place, stride, x, y, &pixel)
        : operation == 2 ? QnDibFlip(picture.Header(), picture.Bits(), &place, stride, flip)
        : operation == 3 ? QnDibSwapRB(picture.Header(), picture.Bits(), &place, stride)
        : operation == 5 ? QnDibFillRect(picture.Header(), picture.Bits(), &place, stride, &real)
                         : QnDibGetPixel(picture.Header(), picture.Bits(), &place, stride, x, y, &got);
    const bool refused =
        (operation == 2 && type < 23) || (operation == 3 && (type < 23 || (any && type < 25)));
    EXPECT_EQ(status, refused                            ? E_NOTIMPL
                      : operation == 4 && any && !inside ? E_INVALIDARG
                                                         : S_OK)
        << type << " " << operation;
    const DWORD read[] = {got.blue, got.green, got.red, got.alpha};
    for (int i = 0; i < 4; ++i) {
      EXPECT_NEAR(read[i], operation == 4 && inside ? before.Components(x, y)[i] * 255 : 9, 0.5001) << type;
    }
    Picture expected = before;
    for (LONG row = clip.top; row < clip.bottom && !refused; ++row) {
      for (LONG column = clip.left; column < clip.right; ++column) {
        if (operation % 5 == 0 || (operation == 1 && column == x && row == y)) {
          ExpectColour(picture, column, row, colour);
          expected.Take(column, row, picture, column, row);
        } else if (operation == 2) {
          expected.Take(column, row, before, flip & 1 ? clip.left + clip.right - 1 - column : column,
                        flip & 2 ? clip.top + clip.bottom - 1 - row : row);
        } else if (operation == 3) {
          for (int i : {0, 2})
            expected.Put(column, row, first[i], width[i], before.Get(column, row, first[2 - i], width[i]));
        }
      }
    }
    ASSERT_EQ(picture.rows, expected.rows) << type << " " << operation << " " << round;
  }
}

// The copy evaluated pixel by pixel, for all pairs of types.
TEST_F(QnDibEdit, CopiesBetweenAllTypes) {
  constexpr int kTypes = std::size(kModelTypes);
  constexpr double kNudge = 1e-9;  // over an edge that the rounding of a division has missed
  for (int round = 0; round < kTypes * kTypes * 12; ++round) {
    Picture to = AnyPicture(kModelTypes[round / 12 % kTypes]),
            from = AnyPicture(kModelTypes[round / 12 / kTypes]);
    const bool sameColours = to.type == from.type && to.IsPalette() && round % 12 > 5;
    if (sameColours) {  // and of two equal ones each pixel keeps its own
      std::copy_n(from.header.begin() + 40, 4, from.header.end() - 16);
      std::copy(from.header.begin() + 40, from.header.end(), to.header.begin() + 40);
    }
    Picture expected = to;
    const RECT toPlace = AnyRectangle(), toWhole = to.Whole(), fromWhole = from.Whole();
    RECT fromPlace = AnyRectangle(), toClip, fromClip;
    if (round % 3 == 0) fromPlace = {toPlace.left + 1, toPlace.top, toPlace.right + 1, toPlace.bottom};
    ASSERT_EQ(QnDibCopy(to.Header(), to.Bits(), &toPlace, to.stride, from.Header(), from.Bits(), &fromPlace,
                        from.stride, round % 2),
              0);
    IntersectRect(&toClip, &toPlace, &toWhole);
    IntersectRect(&fromClip, &fromPlace, &fromWhole);
    const double scaleX = fromPlace.right - fromPlace.left, scaleY = fromPlace.bottom - fromPlace.top;
    const LONG width = toPlace.right - toPlace.left, height = toPlace.bottom - toPlace.top;
    const bool mixed = round % 2 == 1 && (width != scaleX || height != scaleY);
    const bool upsideDown = (to.Header()->biHeight < 0) != (from.Header()->biHeight < 0);
    for (LONG y = toClip.top; y < toClip.bottom; ++y) {
      for (LONG x = toClip.left; x < toClip.right; ++x) {
        const double fromX = fromPlace.left + (x - toPlace.left + 0.5) * scaleX / width + kNudge;
        const double fromY =
            fromPlace.top +
            (upsideDown ? toPlace.bottom - y - 0.5 : y - toPlace.top + 0.5) * scaleY / height + kNudge;
        if (!Inside(fromClip, fromX, fromY)) continue;
        Components colour = {};
        for (int corner = 0; corner < (mixed ? 4 : 1); ++corner) {
          const double left = std::floor(mixed ? fromX - 0.5 : fromX) + (corner & 1),
                       top = std::floor(mixed ? fromY - 0.5 : fromY) + (corner >> 1);
          const double weight =
              mixed ? (1 - std::abs(fromX - kNudge - 0.5 - left)) * (1 - std::abs(fromY - kNudge - 0.5 - top))
                    : 1;
          Components each =
              from.Components(std::clamp(static_cast<LONG>(left), fromClip.left, fromClip.right - 1),
                              std::clamp(static_cast<LONG>(top), fromClip.top, fromClip.bottom - 1));
          if (from.type <= 28 || from.type == 30) each[3] = 1;
          for (int i = 0; i < 4; ++i) colour[i] += each[i] * weight;
        }
        const bool moved = to.type == from.type && !mixed && (sameColours || !to.IsPalette());
        if (!moved) ExpectColour(to, x, y, colour);
        expected.Take(x, y, moved ? from : to, moved ? static_cast<LONG>(fromX) : x,
                      moved ? static_cast<LONG>(fromY) : y);
      }
    }
    ASSERT_EQ(to.rows, expected.rows) << to.type << " " << from.type << " " << round;
  }
}

}  // namespace
