#include <algorithm>
#include <cmath>

#include "qn/image/qndib.h"

namespace qn {
namespace {

// Weights of blue, green and red.
struct Weights {
  double blue;
  double green;
  double red;
};

// A system's luma and two chroma signals, how the components come back of them (luma plus shares of the
// chroma), and its limit.
struct ColourSystem {
  Weights luma;
  Weights chroma[2];
  double back[3][2];  // of blue, green, red
  double limit;
  double lumaGain;  // of the composite signal
  double setup;
};

constexpr double kChromaGain = 0.925;
constexpr double kPeak = 1.15;

constexpr ColourSystem kNtscYiq = {{0.114, 0.587, 0.299},
                                   {{-0.321746, -0.274133, 0.595879}, {0.311878, -0.523083, 0.211205}},
                                   {{-1.104744, 1.701157}, {-0.272558, -0.646709}, {0.956295, 0.621025}},
                                   1.2162162,
                                   0.925,
                                   0.075};

// Hosts rely on the 0.144 of blue in both systems.
constexpr Weights kYuvLuma = {0.144, 0.587, 0.299};
constexpr Weights kU = {0.436798, -0.289391, -0.147407};
constexpr Weights kV = {-0.099978, -0.514799, 0.614777};
constexpr ColourSystem kNtscYuv = {
    kYuvLuma, {kU, kV}, {{2.028398, 0}, {-0.393931, -0.580809}, {0, 1.140251}}, 1.2162162, 0.925, 0.075};
constexpr ColourSystem kPalYuv = {kYuvLuma, {kU, kV}, {{2.028398, 0}, {-0.393931, -0.580809}, {0, 1.140251}},
                                  1.2,      1,        0};

double ToSignal(double light) {
  return light < 0.018 ? light * 4.5 : 1.099 * std::pow(light, 0.45) - 0.099;
}

double ToLight(double signal) {
  return signal < 0.081 ? signal / 4.5 : std::pow((signal + 0.099) / 1.099, 2.2222222222222223);
}

// Clipped to 0..1; NaN is 0.
float Clip(double component) {
  return static_cast<float>(component > 0 ? std::min(component, 1.0) : 0);
}

double Weigh(const Weights& weights, const double (&signal)[3]) {
  return weights.blue * signal[0] + weights.green * signal[1] + weights.red * signal[2];
}

// Whether a colour is not legal; `legal` then receives one that is, unless it is null.
BOOL Check(const ColourSystem& system, const QNRGBAFLOAT* pixel, QNRGBAFLOAT* legal) {
  if (!pixel) return FALSE;
  const double signal[3] = {ToSignal(pixel->blue), ToSignal(pixel->green), ToSignal(pixel->red)};
  const double luma = Weigh(system.luma, signal);
  double chroma[2] = {Weigh(system.chroma[0], signal), Weigh(system.chroma[1], signal)};
  const double room = system.limit - luma;
  const double square = chroma[0] * chroma[0] + chroma[1] * chroma[1];
  if (room * room >= square) return FALSE;
  if (!legal) return TRUE;
  const double amplitude = std::sqrt(square) * kChromaGain;
  const double excess = luma * system.lumaGain + system.setup + amplitude - kPeak;
  const double factor = std::min(1.0, (amplitude - excess) / amplitude);
  chroma[0] *= factor;
  chroma[1] *= factor;
  const auto rebuild = [&](int component) {
    const double(&shares)[2] = system.back[component];
    return Clip(ToLight(luma + shares[0] * chroma[0] + shares[1] * chroma[1]));
  };
  *legal = {rebuild(0), rebuild(1), rebuild(2), pixel->alpha};
  return TRUE;
}

}  // namespace
}  // namespace qn

BOOL HotCheckNTSCYIQ(const QNRGBAFLOAT* pixel) {
  return qn::Check(qn::kNtscYiq, pixel, nullptr);
}

BOOL HotCheckNTSCYUV(const QNRGBAFLOAT* pixel) {
  return qn::Check(qn::kNtscYuv, pixel, nullptr);
}

BOOL HotCheckPALYUV(const QNRGBAFLOAT* pixel) {
  return qn::Check(qn::kPalYuv, pixel, nullptr);
}

BOOL HotCheckNTSCYIQReturn(QNRGBAFLOAT* pixel) {
  return qn::Check(qn::kNtscYiq, pixel, pixel);
}

BOOL HotCheckNTSCYUVReturn(QNRGBAFLOAT* pixel) {
  return qn::Check(qn::kNtscYuv, pixel, pixel);
}

BOOL HotCheckPALYUVReturn(QNRGBAFLOAT* pixel) {
  return qn::Check(qn::kPalYuv, pixel, pixel);
}
