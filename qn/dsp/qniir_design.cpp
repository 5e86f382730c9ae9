// The design of a recursive filter: poles and zeros, and the cascade that is made of them.
#include <algorithm>
#include <cmath>
#include <complex>
#include <iterator>
#include <numbers>
#include <optional>
#include <utility>
#include <vector>

#include "qn/dsp/qniir.h"
#include "qn/kernel/qncpu.h"

namespace {

using Complex = std::complex<double>;
constexpr double kPi = std::numbers::pi;

// The roots of a transfer function, and the edges of its band as fractions of the rate.
struct Roots {
  std::vector<Complex> poles;
  std::vector<Complex> zeros;
  double lower = 0;
  double upper = 0;
};

// The poles of the analogue low-pass prototypes.

std::vector<Complex> ButterworthPoles(DWORD order) {
  constexpr double kSame = 1e-10;
  const bool odd = order % 2 != 0;
  std::vector<Complex> poles;
  for (DWORD i = 0; i < 2 * order; ++i) {
    const double theta = (odd ? i : i + 0.5) * kPi / order;
    if (!(std::cos(theta) < 0)) continue;
    Complex pole{std::cos(theta), std::sin(theta)};
    if (odd && std::abs(pole.imag()) < kSame) pole.imag(0);
    const auto twin = std::ranges::find_if(
        poles, [&](const Complex& earlier) { return std::abs(std::conj(earlier) - pole) < kSame; });
    poles.push_back(twin == poles.end() ? pole : std::conj(*twin));
  }
  return poles;
}

std::vector<Complex> ChebyshevPoles(DWORD order) {
  const double inverse = 1 / std::sqrt(std::pow(10.0, 0.05) - 1);
  const double y = std::max(0.0, std::log(inverse + std::sqrt(inverse * inverse + 1)) / order);
  std::vector<Complex> poles = ButterworthPoles(order);
  for (Complex& pole : poles) pole = {pole.real() * std::sinh(y), pole.imag() * std::cosh(y)};
  return poles;
}

// Orders 1 to 10, one after the other: one of each pair of poles, an odd order's real pole first.
constexpr double kBessel[][2] = {
    {-1.0, 0.0},
    {-0.8660254, -0.5},
    {-0.9416, 0.0},
    {-0.7456404, -0.7113666},
    {-0.9047588, -0.2709187},
    {-0.6572112, -0.8301614},
    {-0.9264421, 0.0},
    {-0.8515536, -0.4427175},
    {-0.5905759, -0.9072068},
    {-0.9093907, -0.1856964},
    {-0.7996542, -0.5621717},
    {-0.5385527, -0.9616877},
    {-0.9194872, 0.0},
    {-0.8800029, -0.3216653},
    {-0.7527355, -0.6504696},
    {-0.4966917, -1.002509},
    {-0.9096832, -0.1412438},
    {-0.8473251, -0.4259018},
    {-0.7111382, -0.7186517},
    {-0.462174, -1.034389},
    {-0.9154958, 0.0},
    {-0.8911217, -0.2526581},
    {-0.8148021, -0.5085816},
    {-0.6743623, -0.7730546},
    {-0.4331416, -1.060074},
    {-0.9091347, -0.1139583},
    {-0.868846, -0.3430008},
    {-0.7837694, -0.5759148},
    {-0.6417514, -0.8175836},
    {-0.4083221, -1.081275},
};
constexpr DWORD kBesselOrders = 10;
static_assert(std::size(kBessel) == (kBesselOrders + 1) * (kBesselOrders + 1) / 4);

std::vector<Complex> BesselPoles(DWORD order) {
  const auto* entry = kBessel + order * order / 4;
  std::vector<Complex> poles;
  if (order % 2 != 0) poles.emplace_back((*entry++)[0]);
  for (DWORD i = 0; i < order / 2; ++i, ++entry) {
    poles.emplace_back((*entry)[0], (*entry)[1]);
    poles.push_back(std::conj(poles.back()));
  }
  return poles;
}

// From the prototype to the band, still in the s plane, with the warped edges.

// sqrt(1 - x^2)
Complex RootOfOneMinusSquare(Complex x) {
  const double re = 1 - x.real() * x.real() + x.imag() * x.imag();
  const double im = -2 * x.real() * x.imag();
  const double size = std::hypot(re, im);
  const double imaginary = std::sqrt((size - re) / 2);
  return {std::sqrt((size + re) / 2), im < 0 ? -imaginary : imaginary};
}

void ToBand(Roots& roots, QNIIR_TYPE type, double w1, double w2) {
  const double w0 = std::sqrt(w1 * w2);
  const double half = (w2 - w1) / 2;
  for (const Complex& pole : std::exchange(roots.poles, {})) {
    if (type == QNIIR_LOWPASS) {
      roots.poles.push_back(w1 * pole);
    } else if (type == QNIIR_HIGHPASS) {
      roots.poles.push_back(w1 / pole);
      roots.zeros.emplace_back(0);
    } else {
      const Complex h = type == QNIIR_BANDSTOP ? half / pole : half * pole;
      const Complex x = w0 / h;
      const Complex q = RootOfOneMinusSquare(x);
      roots.poles.push_back(h * (1.0 + q));
      // h * (1 - q), which would cancel where the upper edge is Nyquist and the band has no end.
      roots.poles.push_back(w0 * x / (1.0 + q));
      if (type == QNIIR_BANDSTOP) {
        roots.zeros.emplace_back(0, w0);
        roots.zeros.emplace_back(0, -w0);
      } else {
        roots.zeros.emplace_back(0);
      }
    }
  }
}

Roots PlaceRoots(QNIIR_TYPE type, QNIIR_DESIGN design, DWORD order, double frequency, double width) {
  Roots roots;
  roots.lower = roots.upper = frequency;
  if (type == QNIIR_BANDSTOP || type == QNIIR_BANDPASS) {
    const double ratio = std::sqrt(std::exp2(width));
    roots.lower = frequency / ratio;
    roots.upper = std::min(frequency * ratio, 0.5);
  }
  roots.poles = design == QNIIR_BUTTERWORTH ? ButterworthPoles(order)
                : design == QNIIR_CHEBYSHEV ? ChebyshevPoles(order)
                                            : BesselPoles(order);
  ToBand(roots, type, 2 * std::tan(kPi * roots.lower), 2 * std::tan(kPi * roots.upper));
  const auto bilinear = [](Complex s) { return (2.0 + s) / (2.0 - s); };
  std::ranges::transform(roots.poles, roots.poles.begin(), bilinear);
  std::ranges::transform(roots.zeros, roots.zeros.begin(), bilinear);
  roots.zeros.resize(roots.poles.size(), -1.0);
  return roots;
}

// The angle of the poles that makes the response at the angle `w` real, so that the peak lies there.
std::optional<double> FindResonance(double w, double radius, double q) {
  constexpr int kRounds = 50;
  const Complex z = std::polar(1.0, w);
  double low = std::max(w - 1 / q, 0.0);
  double high = std::min(w + 1 / q, kPi);
  double angle = w;
  for (int i = 0; i < kRounds; ++i) {
    const Complex pole = std::polar(radius, angle);
    const double sum = (pole + std::conj(pole)).real(), product = (pole * std::conj(pole)).real();
    const Complex response = (z * z - 1.0) / ((z - sum) * z + product);
    const double ratio = response.imag() / response.real();
    if (std::abs(ratio) < 1e-10) return angle;
    (ratio > 0 ? high : low) = angle;
    angle = (low + high) / 2;
  }
  return std::nullopt;
}

std::optional<Roots> PlaceResonance(QNIIR_TYPE type, double frequency, double q) {
  const double w = 2 * kPi * frequency;
  const double radius = std::exp(-kPi * frequency / q);
  Roots roots{{}, {1.0, -1.0}, frequency, frequency};
  double angle = w;
  if (type == QNIIR_BANDSTOP) {
    roots.zeros = {{std::cos(w), std::sin(w)}, {std::cos(w), -std::sin(w)}};
  } else {
    const std::optional<double> found = FindResonance(w, radius, q);
    if (!found) return std::nullopt;
    angle = *found;
  }
  roots.poles = {{radius * std::cos(angle), radius * std::sin(angle)},
                 {radius * std::cos(angle), -radius * std::sin(angle)}};
  return roots;
}

// The cascade.

bool IsReal(const Complex& root) {
  return root.imag() == 0;
}

// Brings to `to` what lies nearest to `target` from there up to `end`.
template <class Iterator>
void BringNearest(Iterator to, Iterator end, Complex target) {
  std::iter_swap(to, std::min_element(to, end, [&](const Complex& x, const Complex& y) {
                   return std::abs(x - target) < std::abs(y - target);
                 }));
}

// Pairs side by side, the one above the axis first, and the real poles last; beside each pole its zero.
void MatchRoots(Roots& roots) {
  const auto reals = std::stable_partition(roots.poles.begin(), roots.poles.end(),
                                           [](const Complex& pole) { return !IsReal(pole); });
  for (auto pole = roots.poles.begin(); reals - pole >= 2; pole += 2) {
    BringNearest(pole + 1, reals, std::conj(*pole));
    if (pole->imag() < 0) std::swap(pole[0], pole[1]);
  }
  for (size_t i = 0; i < roots.poles.size(); ++i)
    BringNearest(roots.zeros.begin() + static_cast<ptrdiff_t>(i), roots.zeros.end(), roots.poles[i]);
}

// The product of a pair, which is real.
double PairProduct(const Complex& x, const Complex& y) {
  return IsReal(x) ? x.real() * y.real() : std::abs(x) * std::abs(y);
}

void BuildStages(CQnIIR& filter, const Roots& roots) {
  const auto& [poles, zeros, lower, upper] = roots;
  size_t left = poles.size();
  while (left > 0 && filter.numBiquads < std::size(filter.biquads)) {
    tQNIIR_BIQUAD& stage = filter.biquads[filter.numBiquads++];
    const size_t last = left - 1;
    stage.b0 = 1;
    if (left == 1 || (IsReal(poles[last]) && !IsReal(poles[last - 1]))) {
      stage.b1 = -zeros[last].real();
      stage.a1 = poles[last].real();
      left -= 1;
    } else {
      stage.b1 = -(zeros[last - 1].real() + zeros[last].real());
      stage.b2 = PairProduct(zeros[last - 1], zeros[last]);
      stage.a1 = poles[last - 1].real() + poles[last].real();
      stage.a2 = -PairProduct(poles[last - 1], poles[last]);
      left -= 2;
    }
  }
}

// The gain that makes the response 1 at the type's place.
double Normalisation(const CQnIIR& filter, QNIIR_TYPE type, const Roots& roots) {
  const Complex delay = std::polar(1.0, -kPi * (roots.lower + roots.upper));
  double dc = 1, ny = 1;
  Complex h = 1;
  for (DWORD i = 0; i < filter.numBiquads; ++i) {
    const auto& [b0, b1, b2, a1, a2, d1, d2] = filter.biquads[i];
    dc *= (b0 + b1 + b2) / (1 - a1 - a2);
    ny *= (b0 - b1 + b2) / (1 + a1 - a2);
    h *= (b0 + delay * (b1 + delay * b2)) / (1.0 - delay * (a1 + delay * a2));
  }
  const double divisor = type == QNIIR_LOWPASS    ? dc
                         : type == QNIIR_HIGHPASS ? ny
                         : type == QNIIR_BANDSTOP ? std::sqrt(dc * ny)
                                                  : std::abs(h);
  return divisor == 0 ? 1 : 1 / divisor;
}

}  // namespace

HRESULT CQnIIR::Design(QNIIR_TYPE type, QNIIR_DESIGN design, DWORD order, double frequency, double width,
                       double gainDb, DWORD channelCount, DWORD flags) {
  if (!(frequency <= 0.5)) return E_INVALIDARG;
  *this = CQnIIR();
  std::optional<Roots> roots;
  const bool band = type == QNIIR_BANDSTOP || type == QNIIR_BANDPASS;
  if (design == QNIIR_RESONATOR) {
    if (!band) return E_INVALIDARG;
    roots = PlaceResonance(type, frequency, width);
    if (!roots) return E_FAIL;
  } else {
    const DWORD orders = design == QNIIR_BESSEL ? kBesselOrders : std::size(biquads);
    if (order < 1 || order > orders) return E_INVALIDARG;
    if (!band && type != QNIIR_LOWPASS && type != QNIIR_HIGHPASS) return E_INVALIDARG;
    if (design != QNIIR_BUTTERWORTH && design != QNIIR_CHEBYSHEV && design != QNIIR_BESSEL)
      return E_INVALIDARG;
    // A stop band with a gain is meant as a bell: a band that is mixed with the dry signal.
    if (type == QNIIR_BANDSTOP && gainDb != 0) {
      type = QNIIR_BANDPASS;
      gainDb = -gainDb;
    }
    roots = PlaceRoots(type, design, order, frequency, width);
  }
  MatchRoots(*roots);
  BuildStages(*this, *roots);
  gain = Normalisation(*this, type, *roots);
  if (gainDb != 0) {
    dry = 1;
    gain = (std::pow(10.0, gainDb / 20) - 1) * gain;
  }
  channels = channelCount;
  lastChannelMask = 3;
  if (channels == 2 && !(flags & QNIIR_NO_SIMD)) useSIMD = QnGetCPUSupport(0) & QNCPU_SSE2;
  return S_OK;
}
