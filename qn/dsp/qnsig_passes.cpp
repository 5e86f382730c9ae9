// The passes of a transform over arrays of any of the elements, with a report after each.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

#include "qn/dsp/qnsig_internal.h"

namespace qn {
namespace {

using std::numbers::pi;

template <class Element>
struct Complex {
  Element re;
  Element im;

  friend Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
  friend Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
  friend Complex operator*(Complex a, FactorOf<Element> factor) { return {a.re * factor, a.im * factor}; }
};

template <class Element, class Factor>
Complex<Element> Turn(Complex<Element> a, Complex<Factor> w) {
  return {a.re * w.re - a.im * w.im, a.re * w.im + a.im * w.re};
}

template <class Element>
Complex<Element> TurnQuarter(Complex<Element> a) {
  return {-a.im, a.re};
}

template <class Element>
struct Signal {
  Complex<Element>* data;
  size_t points;
  Direction direction;
};

// The turn by index / 2^exponent of a circle: the product of those that the bits of the index stand for, so
// that errors of rounding do not add up with the index.
Complex<double> TurnOf(size_t index, int exponent, Direction direction) {
  static const auto kTurns = [] {
    std::array<Complex<double>, 33> turns;
    for (size_t k = 0; k < turns.size(); ++k) {
      const double angle = std::ldexp(2 * pi, -static_cast<int>(k));
      turns[k] = {std::cos(angle), std::sin(angle)};
    }
    return turns;
  }();
  Complex<double> turn = {1, 0};
  for (; index > 0; index &= index - 1)
    turn = Turn(turn, kTurns[static_cast<size_t>(exponent - std::countr_zero(index))]);
  return {turn.re, direction == Direction::kForward ? turn.im : -turn.im};
}

// A butterfly joins kRadix values that lie `span` apart. Forward the values are turned and then joined,
// backward it is the other way round, so that the stages of the inverse transform undo those of the forward
// one in reverse order. `w` holds the turns with the scale in them.
template <int kRadix, Direction kOrder, bool kTurned>
struct Butterfly {
  template <class Element, class Factor>
  static void Apply(Complex<Element>* at, size_t span, const Complex<Factor>* w, Factor scale) {
    const auto turned = [=](Complex<Element> value, int power) {
      if constexpr (kTurned) return Turn(value, w[power - 1]);
      return value * scale;
    };
    if constexpr (kRadix == 2 && kOrder == Direction::kForward) {
      const auto a = at[0] * scale, b = turned(at[span], 1);
      at[0] = a + b;
      at[span] = a - b;
    } else if constexpr (kRadix == 2) {
      const auto a = at[0], b = at[span];
      at[0] = (a + b) * scale;
      at[span] = turned(a - b, 1);
    } else if constexpr (kOrder == Direction::kForward) {
      // Two stages of radix 2 in one: the order of the values is that of reversed bits.
      const auto a = at[0] * scale, b = turned(at[span], 2);
      const auto c = turned(at[2 * span], 1), d = turned(at[3 * span], 3);
      const auto sum = a + b, difference = a - b, crossSum = c + d, cross = TurnQuarter(c - d);
      at[0] = sum + crossSum;
      at[span] = difference + cross;
      at[2 * span] = sum - crossSum;
      at[3 * span] = difference - cross;
    } else {
      const auto a = at[0], b = at[span], c = at[2 * span], d = at[3 * span];
      const auto sum = a + c, difference = a - c, crossSum = b + d, cross = TurnQuarter(b - d);
      at[0] = (sum + crossSum) * scale;
      at[span] = turned(sum - crossSum, 2);
      at[2 * span] = turned(difference - cross, 1);
      at[3 * span] = turned(difference + cross, 3);
    }
  }
};

template <int kRadix, Direction kOrder, class Element>
void RunPass(const Signal<Element>& signal, size_t span, FactorOf<Element> scale) {
  using Factor = FactorOf<Element>;
  const size_t length = span * kRadix;
  Complex<Element>* const end = signal.data + signal.points;
  if (span == 1) {
    for (auto* group = signal.data; group < end; group += kRadix)
      Butterfly<kRadix, kOrder, false>::Apply(group, 1, static_cast<const Complex<Factor>*>(nullptr), scale);
    return;
  }

  // The turns are made for a block at a time, in doubles for floats, too.
  constexpr size_t kBlock = 64;
  const int exponent = std::countr_zero(length);
  const size_t count = std::min(span, kBlock);
  Complex<double> within[kBlock];
  for (size_t i = 0; i < count; ++i) within[i] = TurnOf(i, exponent, signal.direction);

  for (size_t first = 0; first < span; first += count) {
    const Complex<double> start = TurnOf(first, exponent, signal.direction);
    Complex<Factor> turns[kBlock][kRadix - 1];
    for (size_t i = 0; i < count; ++i) {
      const Complex<double> turn = Turn(start, within[i]);
      Complex<double> power = turn * static_cast<double>(scale);
      for (auto& w : turns[i]) {
        w = {static_cast<Factor>(power.re), static_cast<Factor>(power.im)};
        power = Turn(power, turn);
      }
    }
    for (auto* group = signal.data + first; group < end; group += length)
      for (size_t i = 0; i < count; ++i)
        Butterfly<kRadix, kOrder, true>::Apply(group + i, span, turns[i], scale);
  }
}

struct Stage {
  int radix;
  size_t span;
};

template <class Element>
bool RunStages(HQNFFT fft, const Signal<Element>& signal, const Stage* first, const Stage* last,
               Direction order, FactorOf<Element> scale) {
  const auto count = last - first;
  for (auto i = count; i-- > 0;) {
    const bool forward = order == Direction::kForward;
    const Stage& stage = forward ? first[count - 1 - i] : first[i];
    const FactorOf<Element> factor = i == 0 ? scale : 1;
    if (stage.radix == 2 && forward) {
      RunPass<2, Direction::kForward>(signal, stage.span, factor);
    } else if (stage.radix == 2) {
      RunPass<2, Direction::kInverse>(signal, stage.span, factor);
    } else if (forward) {
      RunPass<4, Direction::kForward>(signal, stage.span, factor);
    } else {
      RunPass<4, Direction::kInverse>(signal, stage.span, factor);
    }
    if (!ReportPasses(fft, static_cast<DWORD>(stage.radix / 2))) return false;
  }
  return true;
}

// The complex transform. Small ones are plain: stages of radix 2 in one order for both directions.
template <class Element>
bool TransformPoints(HQNFFT fft, const Signal<Element>& signal, bool plain, FactorOf<Element> scale) {
  Stage stages[32];
  Stage* last = stages;
  const size_t radix = plain ? 2 : 4;
  for (size_t span = 1; span < signal.points; span *= radix)
    *last++ = {static_cast<int>(std::min(radix, signal.points / span)), span};

  if (signal.points == 1) signal.data[0] = signal.data[0] * scale;
  const Direction order = plain ? Direction::kForward : signal.direction;
  if (order == Direction::kForward) {
    ReverseBits(signal.data, signal.points);
    return ReportPasses(fft, 1) && RunStages(fft, signal, stages, last, order, scale);
  }
  if (!RunStages(fft, signal, stages, last, order, scale)) return false;
  ReverseBits(signal.data, signal.points);
  return ReportPasses(fft, 1);
}

// Turns the spectrum of pairs into that of the real elements they are, or back.
template <class Element>
void Split(const Signal<Element>& signal) {
  using Factor = FactorOf<Element>;
  const bool forward = signal.direction == Direction::kForward;
  const Factor half = static_cast<Factor>(0.5);
  const Factor signedHalf = forward ? half : -half;
  const double theta = (forward ? pi : -pi) / static_cast<double>(signal.points);
  const double sine = std::sin(theta);
  const double halfSine = std::sin(theta / 2);
  const double versine = -2 * halfSine * halfSine;
  double wr = 1;
  double wi = 0;
  for (size_t k = 0; k <= signal.points / 2; ++k) {
    if (k == 0) {
      const auto [dc, nyquist] = signal.data[0];
      signal.data[0] = Complex<Element>{dc + nyquist, dc - nyquist} * (forward ? Factor{1} : half);
    } else {
      auto& a = signal.data[k];
      auto& b = signal.data[signal.points - k];
      const Complex<Element> even = Complex<Element>{a.re + b.re, a.im - b.im} * half;
      const Complex<Element> odd = Complex<Element>{a.im + b.im, b.re - a.re} * signedHalf;
      const auto turned = Turn(odd, Complex<Factor>{static_cast<Factor>(wr), static_cast<Factor>(wi)});
      a = even + turned;
      b = {even.re - turned.re, turned.im - even.im};
    }
    const double old = wr;
    wr += wr * versine - wi * sine;
    wi += wi * versine + old * sine;
  }
}

// Runs `transform` on the elements, or on a copy in the work buffer when they are not aligned as it is.
template <class Element, class Transform>
bool OnAligned(HQNFFT fft, Element* data, size_t bytes, Transform transform) {
  const bool aligned = reinterpret_cast<ULONG_PTR>(data) % 16 == 0;
  if (aligned || !fft->fast || bytes > fft->bufferSize) return transform(data);
  std::memcpy(fft->buffer, data, bytes);
  const bool done = transform(static_cast<Element*>(fft->buffer));
  std::memcpy(data, fft->buffer, bytes);
  return done;
}

constexpr DWORD kLeastPipeline = 32;

template <class Factor>
Factor StageScale(Factor scale, size_t points, Direction direction) {
  return direction == Direction::kForward ? scale / static_cast<Factor>(2 * points) : scale + scale;
}

}  // namespace

template <class Element>
bool TransformReal(HQNFFT fft, Element* data, DWORD size, FactorOf<Element> scale, Direction direction) {
  if (size == 1) {
    data[0] = data[0] * scale;
    return ReportPasses(fft, 1);
  }
  return OnAligned(fft, data, size * sizeof(Element), [=](Element* elements) {
    const Signal<Element> signal{reinterpret_cast<Complex<Element>*>(elements), size / 2, direction};
    const bool plain = size < kLeastPipeline;
    const FactorOf<Element> factor = StageScale(scale, signal.points, direction);
    if (direction == Direction::kForward) {
      if (!TransformPoints(fft, signal, plain, factor)) return false;
      Split(signal);
      return ReportPasses(fft, 1);
    }
    Split(signal);
    return ReportPasses(fft, 1) && TransformPoints(fft, signal, plain, factor);
  });
}

template bool TransformReal<double>(HQNFFT, double*, DWORD, double, Direction);
template bool TransformReal<float>(HQNFFT, float*, DWORD, float, Direction);
template bool TransformReal<StereoFrame>(HQNFFT, StereoFrame*, DWORD, float, Direction);

bool TransformComplex(HQNFFT fft, float* data, DWORD points, float scale, Direction direction) {
  return OnAligned(fft, data, points * sizeof(Complex<float>), [=](float* elements) {
    const Signal<float> signal{reinterpret_cast<Complex<float>*>(elements), points, direction};
    return TransformPoints(fft, signal, points < kLeastPipeline, StageScale(scale, signal.points, direction));
  });
}

}  // namespace qn
