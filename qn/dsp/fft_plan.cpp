// Plans of transforms: the order of their passes and their tables. Nothing is measured.
#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <type_traits>

#include "qn/dsp/fft_internal.h"

namespace qn {
namespace {

using Root = std::complex<double>;

// exp(-2 pi i k / n) for a power of two n. One octant is worked out, the rest is its mirror.
class Roots {
 public:
  explicit Roots(size_t n) : n_(n), octant_(hwy::AllocateAligned<Root>(n / 8 + 1)) {
    if (!octant_) return;
    for (size_t k = 0; k <= n / 8; ++k) {
      const double angle = 2 * std::numbers::pi * (static_cast<double>(k) / static_cast<double>(n));
      octant_[k] = {std::cos(angle), std::sin(angle)};
    }
  }

  bool IsMade() const { return octant_ != nullptr; }

  // `k` of a circle of `of` steps, which divides n.
  Root At(size_t k, size_t of) const {
    if (n_ < 8) return Small(k % of * (n_ / of));
    k = k % of * (n_ / of);
    const size_t quadrant = k / (n_ / 4), within = k % (n_ / 4);
    const bool mirrored = within > n_ / 8;
    const Root root = octant_[mirrored ? n_ / 4 - within : within];
    const double c = mirrored ? root.imag() : root.real(), s = mirrored ? root.real() : root.imag();
    switch (quadrant) {
      case 0:
        return {c, -s};
      case 1:
        return {-s, -c};
      case 2:
        return {-c, s};
      default:
        return {s, c};
    }
  }

 private:
  Root Small(size_t k) const {
    constexpr Root kQuarters[] = {{1, 0}, {0, -1}, {-1, 0}, {0, 1}};
    return kQuarters[k * 4 / n_];
  }

  size_t n_;
  FftTable<Root> octant_;
};

// Writes factors one after the other, or those of a vector with the imaginary parts behind the real ones.
template <typename T>
class Writer {
 public:
  Writer(FftTable<T>& table, size_t factors) : to_((table = hwy::AllocateAligned<T>(2 * factors)).get()) {}

  bool IsMade() const { return to_ != nullptr; }

  void Put(Root root) {
    PutAt(root, 1);
    to_ += 2;
  }
  void PutLane(Root root, size_t lane, size_t lanes) {
    PutAt(root, lanes);
    to_ += lane + 1 == lanes ? lanes + 1 : 1;
  }

 private:
  void PutAt(Root root, size_t distance) {
    to_[0] = static_cast<T>(root.real());
    to_[distance] = static_cast<T>(root.imag());
  }

  T* to_;
};

// Radix 8, and radix 4 in the last one or two passes so that it comes out even: radix 2 would do too little
// for its way through memory, so only a column of two rows has it.
template <typename T>
bool MakeColumn(FftColumn<T>& column, size_t rows, const Roots& roots) {
  column.rows = rows;
  size_t left = rows;
  while (left > 1) {
    const size_t radix = left == 2 ? 2 : left == 4 || left == 16 ? 4 : 8;
    column.radix[column.passes++] = static_cast<uint8_t>(radix);
    left /= radix;
  }
  Writer<T> writer(column.twiddles, rows);
  if (!writer.IsMade()) return false;
  size_t joined = 1;
  for (size_t pass = 0; pass < column.passes; ++pass) {
    const size_t radix = column.radix[pass];
    for (size_t row = 0; pass > 0 && row < joined; ++row) {
      for (size_t input = 1; input < radix; ++input) writer.Put(roots.At(row * input, joined * radix));
    }
    joined *= radix;
  }
  return true;
}

template <typename T>
bool MakeLaneTwiddles(FftPlan<T>& plan, size_t lanes, const Roots& roots) {
  Writer<T> writer(plan.laneTwiddles, plan.column.rows * lanes);
  if (!writer.IsMade()) return false;
  for (size_t row = 0; row < plan.column.rows; ++row) {
    for (size_t lane = 0; lane < lanes; ++lane)
      writer.PutLane(roots.At(row * lane, plan.points), lane, lanes);
  }
  return true;
}

// Within the transform across the lanes: of blocks of 16 bytes, and within them.
template <typename T>
bool MakeCrossTwiddles(FftPlan<T>& plan, size_t lanes, const Roots& roots) {
  const size_t within = std::min(lanes, 16 / sizeof(T)), blocks = lanes / within;
  Writer<T> writer(plan.crossTwiddles, blocks * lanes);
  if (!writer.IsMade()) return false;
  for (size_t block = 0; block < blocks; ++block) {
    for (size_t lane = 0; lane < lanes; ++lane)
      writer.PutLane(roots.At(lane % within * block, lanes), lane, lanes);
  }
  return true;
}

template <typename T>
bool MakeWhole(FftPlan<T>& plan, size_t lanes, const Roots& roots) {
  plan.workCount = 4 * plan.points;
  return MakeColumn(plan.column, plan.points / lanes, roots) && MakeLaneTwiddles(plan, lanes, roots) &&
         MakeCrossTwiddles(plan, lanes, roots);
}

template <typename T>
bool MakeFourStep(FftPlan<T>& plan, int order, size_t lanes, const Roots& roots) {
  const size_t rows = size_t{1} << (order + 1) / 2, columns = plan.points / rows;
  const size_t blocks = columns / lanes;
  // More columns at a time use more of each page of memory, while all their rows stay in the second cache.
  constexpr size_t kMostWide = 4, kLocalBytes = 512 << 10;
  for (plan.wide = kMostWide; plan.wide > 1; plan.wide /= 2) {
    if (4 * rows * lanes * plan.wide * sizeof(T) <= kLocalBytes) break;
  }
  plan.workCount = 2 * (plan.points + 2 * rows * lanes * plan.wide);
  if (!MakeColumn(plan.column, rows, roots) || !MakeColumn(plan.second, columns, roots) ||
      !MakeLaneTwiddles(plan, lanes, roots)) {
    return false;
  }
  Writer<T> writer(plan.blockTwiddles, blocks * rows);
  if (!writer.IsMade()) return false;
  for (size_t block = 0; block < blocks; ++block) {
    for (size_t row = 0; row < rows; ++row) writer.Put(roots.At(block * row, blocks * rows));
  }
  return true;
}

// The split has its lanes in the order of blocks.
bool MakeSplit(FftPlan<double>& plan, size_t lanes, const Roots& roots) {
  const size_t vectors = plan.points / 2 / lanes;
  Writer<double> writer(plan.splitTwiddles, lanes + vectors);
  if (!writer.IsMade()) return false;
  for (size_t lane = 0; lane < lanes; ++lane) {
    const size_t element = ElementOfLane(lane, lanes, lanes < 2 ? 1 : 2);
    writer.PutLane(roots.At(element + 1, 2 * plan.points), lane, lanes);
  }
  for (size_t i = 0; i < vectors; ++i) writer.Put(roots.At(i * lanes, 2 * plan.points));
  return true;
}

}  // namespace

template <typename T>
bool MakeFftPlan(FftPlan<T>& plan, int order) {
  plan.points = size_t{1} << order;
  const FftKernels<T>& kernels = FindFftKernels<T>(plan.points);
  const bool whole = plan.points <= kLargestWhole<T>;
  plan.run = whole ? kernels.whole : kernels.fourStep;
  plan.split = kernels.split;
  constexpr bool kSplits = std::is_same_v<T, double>;
  const Roots roots(kSplits ? 2 * plan.points : plan.points);
  if (!roots.IsMade()) return false;
  if constexpr (kSplits) {
    if (!MakeSplit(plan, kernels.lanes, roots)) return false;
  }
  return whole ? MakeWhole(plan, kernels.lanes, roots) : MakeFourStep(plan, order, kernels.lanes, roots);
}

template bool MakeFftPlan(FftPlan<float>&, int);
template bool MakeFftPlan(FftPlan<double>&, int);

}  // namespace qn
