// Operations on pixels of all types against a model in single bits: the rows have their exact size, and all
// that lies outside of the rectangle must stay.
#include <gtest/gtest.h>

#include "qn/platform/winuser.h"
#include "tests/image/image_model.h"
#include "tests/support/support.h"

namespace {

using qntest::kModelTypes;
using qntest::Picture;

// The components nearest to a colour have been stored: none is more than half a step away.
void ExpectColour(const Picture& picture, LONG x, LONG y, std::array<double, 4> colour) {
  if (picture.IsGray()) colour.fill(0.299 * colour[2] + 0.587 * colour[1] + 0.114 * colour[0]);
  const std::array<double, 4> found = picture.Components(x, y);
  if (picture.IsPalette()) {
    const auto distance = [&](double blue, double green, double red) {
      return std::hypot(blue - colour[0] * 255, green - colour[1] * 255, red - colour[2] * 255);
    };
    const auto distanceOf = [&](const RGBQUAD& each) {
      return distance(each.rgbBlue, each.rgbGreen, each.rgbRed);
    };
    // Colours between the steps of 8 bits are rounded before they are compared.
    const double rounded =
        distance(std::round(colour[0] * 255), std::round(colour[1] * 255), std::round(colour[2] * 255));
    const double chosen = distanceOf(picture.Colour(picture.Get(x, y, 0, picture.model.bits)));
    for (size_t i = 0; i < size_t{1} << picture.model.bits; ++i) {
      EXPECT_LE(chosen, distanceOf(picture.Colour(i)) + 2 * rounded + 1e-9);
    }
    return;
  }
  for (int i = 0; i < 4; ++i) {
    const double half = picture.IsFloat() ? 1e-7 : 0.50001 / (std::exp2(picture.model.width[i]) - 1);
    EXPECT_TRUE(picture.model.width[i] == 0 || std::abs(found[i] - colour[i]) <= half)
        << picture.model.type << " " << i << " " << found[i] << " " << colour[i];
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
  static bool Inside(const RECT& rectangle, LONG x, LONG y) {
    return x >= rectangle.left && x < rectangle.right && y >= rectangle.top && y < rectangle.bottom;
  }

  std::mt19937_64& random_ = qntest::Random();
};

TEST_F(QnDibEdit, EveryType) {
  for (const qntest::ModelType& type : kModelTypes) {
    for (int round = 0; round < 60; ++round) {
      Picture picture = AnyPicture(type);
      const Picture before = picture;
      const RECT rectangle = AnyRectangle();
      const RECT whole = {0, 0, picture.Width(), picture.Height()};
      RECT clip;
      const bool any = IntersectRect(&clip, &rectangle, &whole);
      const auto byte = [this] { return static_cast<DWORD>(Any(0, 300)); };
      const QNDIBPIXEL pixel = {byte(), byte(), byte(), byte()};
      const auto unit = [](DWORD component) { return std::min<DWORD>(component, 255) / 255.0; };
      const std::array<double, 4> colour = {unit(pixel.blue), unit(pixel.green), unit(pixel.red),
                                            unit(pixel.alpha)};
      const LONG x = Any(-2, 22), y = Any(-2, 10);
      const auto flip = static_cast<UINT>(Any(0, 3));
      const int operation = Any(0, 4);
      HRESULT status = E_FAIL;
      if (operation == 0) {
        status = QnDibSet(picture.Header(), picture.Bits(), &rectangle, picture.stride, &pixel);
      } else if (operation == 1) {
        status = QnDibSetPixel(picture.Header(), picture.Bits(), &rectangle, picture.stride, x, y, &pixel);
      } else if (operation == 2) {
        status = QnDibFlip(picture.Header(), picture.Bits(), &rectangle, picture.stride, flip);
      } else if (operation == 3) {
        status = QnDibSwapRB(picture.Header(), picture.Bits(), &rectangle, picture.stride);
      } else {
        QNDIBPIXEL got = {9, 9, 9, 9};
        status = QnDibGetPixel(picture.Header(), picture.Bits(), &rectangle, picture.stride, x, y, &got);
        const bool inside = any && Inside(clip, x, y);
        EXPECT_EQ(status, any && !inside ? E_INVALIDARG : S_OK);
        const std::array<DWORD, 4> all = {got.blue, got.green, got.red, got.alpha};
        for (int i = 0; i < 4; ++i) {
          EXPECT_NEAR(all[i], inside ? before.Components(x, y)[picture.IsGray() && i < 3 ? 0 : i] * 255 : 9,
                      inside ? 0.5001 : 0);
        }
        continue;
      }
      const bool refused = (operation == 2 && type.type < 23) ||
                           (operation == 3 && (type.type < 23 || (any && type.type < 25)));
      EXPECT_EQ(status, refused ? E_NOTIMPL : S_OK) << type.type << " " << operation;
      Picture expected = before;
      for (LONG row = clip.top; row < clip.bottom && !refused; ++row) {
        for (LONG column = clip.left; column < clip.right; ++column) {
          if (operation == 0 || (operation == 1 && column == x && row == y)) {
            ExpectColour(picture, column, row, colour);
            expected.Take(column, row, picture, column, row);
          } else if (operation == 2) {
            expected.Take(column, row, before, flip & 1 ? clip.left + clip.right - 1 - column : column,
                          flip & 2 ? clip.top + clip.bottom - 1 - row : row);
          } else if (operation == 3) {
            for (int i : {0, 2}) {
              expected.Put(column, row, type.first[i], type.width[i],
                           before.Get(column, row, type.first[2 - i], type.width[i]));
            }
          }
        }
      }
      ASSERT_EQ(picture.rows, expected.rows) << type.type << " " << operation << " " << round;
    }
  }
}

// The copy evaluated pixel by pixel, for all pairs of types.
TEST_F(QnDibEdit, CopiesBetweenAllTypes) {
  for (const qntest::ModelType& toType : kModelTypes) {
    for (const qntest::ModelType& fromType : kModelTypes) {
      for (int round = 0; round < 12; ++round) {
        Picture to = AnyPicture(toType);
        const Picture before = to;
        Picture from = AnyPicture(fromType);
        RECT toPlace = AnyRectangle(), fromPlace = AnyRectangle();
        if (round % 3 == 0) fromPlace = {toPlace.left + 1, toPlace.top, toPlace.right + 1, toPlace.bottom};
        const int filter = round % 2;
        ASSERT_EQ(QnDibCopy(to.Header(), to.Bits(), &toPlace, to.stride, from.Header(), from.Bits(),
                            &fromPlace, from.stride, filter),
                  0);
        const RECT toWhole = {0, 0, to.Width(), to.Height()}, fromWhole = {0, 0, from.Width(), from.Height()};
        RECT toClip, fromClip;
        if (!IntersectRect(&toClip, &toPlace, &toWhole) ||
            !IntersectRect(&fromClip, &fromPlace, &fromWhole)) {
          toClip = {};
        }
        const LONG toWidth = toPlace.right - toPlace.left, toHeight = toPlace.bottom - toPlace.top;
        const bool mixed = filter == 1 && (toWidth != fromPlace.right - fromPlace.left ||
                                           toHeight != fromPlace.bottom - fromPlace.top);
        const bool upsideDown = (to.Header()->biHeight < 0) != (from.Header()->biHeight < 0);
        Picture expected = before;
        for (LONG y = toClip.top; y < toClip.bottom; ++y) {
          for (LONG x = toClip.left; x < toClip.right; ++x) {
            const double row = upsideDown ? toPlace.bottom - y - 0.5 : y - toPlace.top + 0.5;
            const double fromX =
                fromPlace.left + (x - toPlace.left + 0.5) * (fromPlace.right - fromPlace.left) / toWidth;
            const double fromY = fromPlace.top + row * (fromPlace.bottom - fromPlace.top) / toHeight;
            // Centres on an edge depend on the rounding of the two divisions.
            const auto nearestX = static_cast<LONG>(std::floor(fromX + 1e-9)),
                       nearestY = static_cast<LONG>(std::floor(fromY + 1e-9));
            if (!Inside(fromClip, nearestX, nearestY)) continue;
            std::array<double, 4> colour = {};
            for (int corner = 0; corner < (mixed ? 4 : 1); ++corner) {
              const double left = std::floor(fromX - 0.5 + 1e-9), top = std::floor(fromY - 0.5 + 1e-9);
              const double shareX = fromX - 0.5 - left, shareY = fromY - 0.5 - top;
              const double weight =
                  mixed ? (corner & 1 ? shareX : 1 - shareX) * (corner & 2 ? shareY : 1 - shareY) : 1;
              const LONG cornerX = mixed ? std::clamp<LONG>(static_cast<LONG>(left) + (corner & 1),
                                                            fromClip.left, fromClip.right - 1)
                                         : nearestX;
              const LONG cornerY = mixed ? std::clamp<LONG>(static_cast<LONG>(top) + (corner >> 1),
                                                            fromClip.top, fromClip.bottom - 1)
                                         : nearestY;
              std::array<double, 4> each = from.Components(cornerX, cornerY);
              if (from.IsGray()) each = {each[0], each[0], each[0], 1};
              if (!from.HasAlpha()) each[3] = 1;
              for (int i = 0; i < 4; ++i) colour[i] += each[i] * weight;
            }
            if (toType.type == fromType.type && !mixed && !to.IsPalette()) {
              expected.Take(x, y, from, nearestX, nearestY);
            } else {
              ExpectColour(to, x, y, colour);
              expected.Take(x, y, to, x, y);
            }
          }
        }
        ASSERT_EQ(to.rows, expected.rows) << toType.type << " " << fromType.type << " " << round;
      }
    }
  }
}

}  // namespace
