#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <vector>

#include "qn/image/qndib.h"
#include "qn/image/qndib_pixel_internal.h"

namespace qn {
namespace {

// One side of a copy: the area, the whole rectangle that it is left of, and the palette.
struct Side {
  DibArea area;
  RECT rectangle;
  std::optional<Palette> palette;

  Palette* Colours() { return palette ? &*palette : nullptr; }
};

HRESULT FindSide(const BITMAPINFOHEADER* header, const void* bits, const RECT* rectangle, LONG stride,
                 Side* found) {
  const HRESULT status = FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE1, &found->area);
  if (FAILED(status) || found->area.IsEmpty()) return status;
  found->rectangle = rectangle ? *rectangle : found->area.area;
  const int64_t width = int64_t{found->rectangle.right} - found->rectangle.left;
  const int64_t height = int64_t{found->rectangle.bottom} - found->rectangle.top;
  if (std::max(width, height) > std::numeric_limits<LONG>::max()) return E_INVALIDARG;
  if (found->area.layout->kind == PixelKind::kPalette) found->palette.emplace(*header);
  return S_OK;
}

// Two pixels of the source, and how much the second one counts.
struct Mix {
  LONG first;
  LONG second;
  double share;
};

// A range of columns or rows: of a rectangle, or of what is left of it.
struct Range {
  LONG begin;
  LONG end;
};

// How the columns or the rows of the target lie in the source.
class Axis {
 public:
  Axis(Range to, Range from, Range fromInside, bool reversed)
      : to_(to), from_(from), inside_(fromInside), reversed_(reversed) {}

  bool IsStraight() const { return ToSize() == FromSize() && !reversed_; }
  bool IsScaled() const { return ToSize() != FromSize(); }

  // The pixel that the centre of a target pixel falls in.
  LONG Nearest(LONG target) const {
    return static_cast<LONG>(from_.begin + (2 * Index(target) + 1) * FromSize() / (2 * ToSize()));
  }

  // The pixels whose centres are around that of a target pixel.
  Mix Around(LONG target) const {
    const int64_t whole = 2 * ToSize();
    const int64_t place = (2 * Index(target) + 1) * FromSize() - ToSize() + whole;
    const int64_t first = from_.begin + place / whole - 1;
    return {Inside(first), Inside(first + 1),
            static_cast<double>(place % whole) / static_cast<double>(whole)};
  }

  // What is left of a range of the target without those that fall outside of the source. The places in the
  // source rise, or fall, with those in the target.
  Range Covered(Range range) const {
    const auto first = [&](LONG limit) {
      int64_t low = range.begin, high = range.end;
      while (low < high) {
        const int64_t middle = (low + high) >> 1;
        if ((Nearest(static_cast<LONG>(middle)) >= limit) != reversed_) {
          high = middle;
        } else {
          low = middle + 1;
        }
      }
      return static_cast<LONG>(low);
    };
    return reversed_ ? Range{first(inside_.end), first(inside_.begin)}
                     : Range{first(inside_.begin), first(inside_.end)};
  }

 private:
  int64_t ToSize() const { return int64_t{to_.end} - to_.begin; }
  int64_t FromSize() const { return int64_t{from_.end} - from_.begin; }
  int64_t Index(LONG target) const {
    return reversed_ ? int64_t{to_.end} - 1 - target : int64_t{target} - to_.begin;
  }
  LONG Inside(int64_t source) const {
    return static_cast<LONG>(std::clamp<int64_t>(source, inside_.begin, inside_.end - 1));
  }

  Range to_;
  Range from_;
  Range inside_;
  bool reversed_;
};

Range ColumnsOf(const RECT& rectangle) {
  return {rectangle.left, rectangle.right};
}

Range RowsOf(const RECT& rectangle) {
  return {rectangle.top, rectangle.bottom};
}

// Whether a header of the type tells of alpha.
bool HasAlpha(const PixelLayout& layout) {
  return layout.alpha.bits != 0 && layout.compression != BI_RGB && layout.compression != BI_BITFIELDS;
}

// Whether each component is one of 256 values.
bool FitsBytes(const PixelLayout& layout) {
  if (layout.kind == PixelKind::kGray) return layout.bits <= 8;
  return layout.kind == PixelKind::kPalette || layout.red.bits == 8;
}

// A copy of what the two rectangles share by their axes.
class Copy {
 public:
  Copy(Side* to, Side* from, bool upsideDown)
      : to_(*to),
        from_(*from),
        xAxis_(ColumnsOf(to->rectangle), ColumnsOf(from->rectangle), ColumnsOf(from->area.area), false),
        yAxis_(RowsOf(to->rectangle), RowsOf(from->rectangle), RowsOf(from->area.area), upsideDown),
        columns_(xAxis_.Covered(ColumnsOf(to->area.area))),
        rows_(yAxis_.Covered(RowsOf(to->area.area))) {}

  bool IsEmpty() const { return columns_.begin >= columns_.end || rows_.begin >= rows_.end; }

  void Run(int filter) const {
    const PixelLayout& layout = *from_.area.layout;
    if (filter == QNDIBFILTER_BILINEAR && (xAxis_.IsScaled() || yAxis_.IsScaled())) {
      ConvertMixed();
    } else if (to_.area.layout == &layout && to_.palette == from_.palette) {
      Move();
    } else if (FitsBytes(layout)) {
      Convert<BYTE>();
    } else {
      Convert<double>();
    }
  }

 private:
  size_t Count() const { return static_cast<size_t>(columns_.end - columns_.begin); }

  // The columns of the source for those of the target, less `origin`.
  std::vector<LONG> NearestColumns(LONG origin) const {
    std::vector<LONG> columns(Count());
    for (size_t i = 0; i < columns.size(); ++i) {
      columns[i] = xAxis_.Nearest(columns_.begin + static_cast<LONG>(i)) - origin;
    }
    return columns;
  }

  // Pixels keep their bits.
  void Move() const {
    const std::vector<LONG> columns = NearestColumns(0);
    const auto pixelBytes = static_cast<ptrdiff_t>(to_.area.layout->bits / 8);
    const auto gather = KernelsOf(*to_.area.layout).gather;
    for (LONG y = rows_.begin; y < rows_.end; ++y) {
      const BYTE* const source = from_.area.Row(yAxis_.Nearest(y));
      if (xAxis_.IsStraight() && pixelBytes != 0) {
        std::memmove(to_.area.Row(y) + columns_.begin * pixelBytes, source + columns[0] * pixelBytes,
                     Count() * static_cast<size_t>(pixelBytes));
      } else {
        gather(to_.area.Row(y), columns_.begin, Count(), source, columns.data());
      }
    }
  }

  // The colours of the source's row in the area.
  template <class Number>
  void Decode(LONG y, std::vector<Colour<Number>>* colours) const {
    const PixelLayout& layout = *from_.area.layout;
    ColourKernelsOf<Number>(layout).decode(from_.area.Row(y), from_.area.area.left, colours->size(),
                                           from_.Colours(), colours->data());
    if (HasAlpha(layout)) return;
    for (Colour<Number>& colour : *colours) colour.alpha = kFull<Number>;
  }

  template <class Number>
  void Encode(LONG y, const Colour<Number>* colours) const {
    ColourKernelsOf<Number>(*to_.area.layout)
        .encode(to_.area.Row(y), columns_.begin, Count(), to_.Colours(), colours);
  }

  template <class Number>
  void Convert() const {
    const std::vector<LONG> columns = NearestColumns(from_.area.area.left);
    std::vector<Colour<Number>> source(from_.area.Width());
    std::vector<Colour<Number>> target(Count());
    LONG decoded = -1;
    for (LONG y = rows_.begin; y < rows_.end; ++y) {
      const LONG row = yAxis_.Nearest(y);
      if (row != decoded) Decode(row, &source);
      decoded = row;
      if (xAxis_.IsStraight()) {
        Encode(y, source.data() + columns[0]);
        continue;
      }
      for (size_t i = 0; i < target.size(); ++i) target[i] = source[static_cast<size_t>(columns[i])];
      Encode(y, target.data());
    }
  }

  static RealColour Between(const RealColour& first, const RealColour& second, double share) {
    // An infinite component that has no weight makes no other one infinite.
    const auto mix = [share](double a, double b) { return share == 0 || a == b ? a : a + (b - a) * share; };
    return {mix(first.blue, second.blue), mix(first.green, second.green), mix(first.red, second.red),
            mix(first.alpha, second.alpha)};
  }

  // A row of the source at the target's columns.
  struct MixedRow {
    LONG row = -1;
    std::vector<RealColour> colours;
  };

  void Take(LONG y, const std::vector<Mix>& columns, std::vector<RealColour>* source, MixedRow* mixed) const {
    if (mixed->row == y) return;
    Decode(y, source);
    const LONG left = from_.area.area.left;
    for (size_t i = 0; i < columns.size(); ++i) {
      mixed->colours[i] = Between((*source)[static_cast<size_t>(columns[i].first - left)],
                                  (*source)[static_cast<size_t>(columns[i].second - left)], columns[i].share);
    }
    mixed->row = y;
  }

  void ConvertMixed() const {
    std::vector<Mix> columns(Count());
    for (size_t i = 0; i < columns.size(); ++i) {
      columns[i] = xAxis_.Around(columns_.begin + static_cast<LONG>(i));
    }
    std::vector<RealColour> source(from_.area.Width());
    std::vector<RealColour> target(Count());
    MixedRow first = {-1, target};
    MixedRow second = first;
    for (LONG y = rows_.begin; y < rows_.end; ++y) {
      const Mix mix = yAxis_.Around(y);
      // The rows overlap from one target row to the next.
      if (mix.first == second.row || mix.second == first.row) std::swap(first, second);
      Take(mix.first, columns, &source, &first);
      Take(mix.second, columns, &source, &second);
      for (size_t i = 0; i < target.size(); ++i) {
        target[i] = Between(first.colours[i], second.colours[i], mix.share);
      }
      Encode(y, target.data());
    }
  }

  Side& to_;
  Side& from_;
  Axis xAxis_;
  Axis yAxis_;
  Range columns_;  // of the target
  Range rows_;
};

}  // namespace
}  // namespace qn

HRESULT QnDibCopy(const BITMAPINFOHEADER* toHeader, void* toBits, const RECT* toRectangle, LONG toStride,
                  const BITMAPINFOHEADER* fromHeader, const void* fromBits, const RECT* fromRectangle,
                  LONG fromStride, int filter) try {
  qn::Side to;
  qn::Side from;
  if (filter != QNDIBFILTER_NEAREST && filter != QNDIBFILTER_BILINEAR) return E_INVALIDARG;
  HRESULT status = qn::FindSide(toHeader, toBits, toRectangle, toStride, &to);
  if (FAILED(status)) return status;
  status = qn::FindSide(fromHeader, fromBits, fromRectangle, fromStride, &from);
  if (FAILED(status) || to.area.IsEmpty() || from.area.IsEmpty()) return status;
  const qn::Copy copy(&to, &from, (toHeader->biHeight < 0) != (fromHeader->biHeight < 0));
  if (!copy.IsEmpty()) copy.Run(filter);
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}
