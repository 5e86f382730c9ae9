// The two-pole sections of the shelving and band equaliser. Hosts rely on the sound that their constants and
// tables make, odd as some values look.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <numbers>

#include "qn/dsp/qniir.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kLowest = 0.0003;
constexpr double kHighest = 0.49;

struct Parameters {
  explicit Parameters(const double* values) : frequency(values[0]), gain(values[1]), q(values[2]) {}

  double frequency;
  double gain;
  double q;
};

double Interpolate(double x, double x0, double x1, double y0, double y1) {
  return y0 + (y1 - y0) * (x - x0) / (x1 - x0);
}

// The resonance, with the outputs that most sections have.
void SetResonance(tQNSIG_SECTION& section, double frequency, double q, bool clearState) {
  const double f = std::clamp(frequency, kLowest, kHighest);
  section.a = std::exp(-kPi * f / q) * (2 * std::cos(2 * kPi * f));
  section.b = std::exp(-2 * kPi * f / q);
  section.c = 1 - section.a + section.b;
  section.d = 1;
  section.wet = 1;
  if (clearState) section.y1 = section.y2 = 0;
}

double ShelfGain(const Parameters& p) {
  return std::pow(10.0, p.gain / 40);
}

// The correction of a high shelf's level at a frequency.
double ShelfCorrection(double frequency) {
  constexpr double kStep = 0.022675736961451247;
  constexpr double kDecibels[] = {0, -1, -2, -3, -4, -5, -5, -6, -7, -8, -9, -10, -11, -12, -12, -13};
  constexpr size_t kLast = std::size(kDecibels) - 1;
  const double position = std::fmin(std::clamp(frequency, kLowest, kHighest) / kStep, kLast);
  const size_t index = std::min(static_cast<size_t>(position), kLast - 1);
  const double place = static_cast<double>(index);
  const double decibels = Interpolate(position, place, place + 1, kDecibels[index], kDecibels[index + 1]);
  return std::pow(10.0, decibels / 20);
}

// The frequencies wanted, and those at which a section of a Q peaks for each of them.
constexpr double kWanted[] = {0,
                              0.0011337868480725624,
                              0.0022675736961451248,
                              0.022675736961451247,
                              0.11337868480725624,
                              0.22675736961451248,
                              0.5};
constexpr size_t kColumns = std::size(kWanted);

struct PeakRow {
  double q;
  double peaks[kColumns];
};

constexpr PeakRow kPeakRows[] = {
    {0,
     {4.5351473922902495e-05, 0.0016553287981859411, 0.003197278911564626, 0.034013605442176874,
      0.22675736961451248, 0.45351473922902497, 1.0}},
    {0.5,
     {3.401360544217687e-05, 0.0016553287981859411, 0.003197278911564626, 0.034013605442176874,
      0.22675736961451248, 0.45351473922902497, 1.0}},
    {1,
     {2.2675736961451248e-05, 0.001179138321995465, 0.002494331065759637, 0.026077097505668934,
      0.1473922902494331, 0.36281179138321995, 0.8}},
    {1.5,
     {2.2675736961451248e-05, 0.001179138321995465, 0.002494331065759637, 0.024263038548752835,
      0.13038548752834467, 0.2947845804988662, 0.6518820861678004}},
    {2,
     {2.2675736961451248e-05, 0.001179138321995465, 0.00235827664399093, 0.023582766439909298,
      0.12471655328798185, 0.2494331065759637, 0.5500453514739229}},
    {3,
     {2.2675736961451248e-05, 0.0011564625850340137, 0.0023129251700680273, 0.023356009070294784,
      0.12018140589569161, 0.2494331065759637, 0.5500453514739229}},
    {101,
     {2.2675736961451248e-05, 0.0011564625850340137, 0.0023129251700680273, 0.023356009070294784,
      0.12018140589569161, 0.2494331065759637, 0.5500453514739229}},
};

// The ratio of the frequency wanted to that of the peak, between a column and the one before it.
double PeakRatio(const PeakRow& row, size_t column, double f) {
  return Interpolate(f, row.peaks[column - 1], row.peaks[column], kWanted[column - 1] / row.peaks[column - 1],
                     kWanted[column] / row.peaks[column]);
}

// The frequency to ask for, so that the section peaks at `f`.
double CorrectedFrequency(double f, double q) {
  const PeakRow* const row =
      std::ranges::find_if(kPeakRows, [&](const PeakRow& candidate) { return candidate.q >= q; });
  if (row == std::begin(kPeakRows) || row == std::end(kPeakRows)) return f;
  const double* const peak = std::ranges::find_if(row->peaks, [&](double x) { return x >= f; });
  const auto column = static_cast<size_t>(peak - row->peaks);
  if (column == 0 || column == kColumns) return f;
  const PeakRow& before = row[-1];
  return f * Interpolate(q, before.q, row->q, PeakRatio(before, column, f), PeakRatio(*row, column, f));
}

}  // namespace

void QnSig_FindLowShelfCutCoeffs(tQNSIG_SECTION* section, const double* parameters, double minimumDb,
                                 DWORD clearState) {
  constexpr double kBass = 0.011337868480725623;
  const Parameters p(parameters);
  SetResonance(*section, p.frequency / (p.frequency < kBass ? 2.2 : 3.3), p.q, clearState != 0);
  section->wet = minimumDb >= p.gain ? 0 : ShelfGain(p);
  section->dryGain = 1 - section->wet;
}

void QnSig_FindLowShelfBoostCoeffs(tQNSIG_SECTION* section, const double* parameters, DWORD clearState) {
  const Parameters p(parameters);
  SetResonance(*section, p.frequency / 1.5, p.q, clearState != 0);
  section->dryGain = ShelfGain(p) - 1;
}

void QnSig_FindHiShelfCutCoeffs(tQNSIG_SECTION* section, const double* parameters, double minimumDb,
                                DWORD clearState) {
  const Parameters p(parameters);
  const double f = std::clamp(p.frequency, 0.0004, kHighest);
  const double k = f < 0.125 ? 0.4 : (f - 0.125) * 1.6 + 0.4;
  SetResonance(*section, f * k, p.q, clearState != 0);
  section->d = ShelfCorrection(p.frequency);
  section->dryGain = minimumDb >= p.gain ? -1 : ShelfGain(p) - 1;
}

void QnSig_FindHiShelfBoostCoeffs(tQNSIG_SECTION* section, const double* parameters, DWORD clearState) {
  const Parameters p(parameters);
  SetResonance(*section, p.frequency, p.q, clearState != 0);
  section->c = 1;
  section->d = ShelfCorrection(p.frequency);
  section->dryGain = ShelfGain(p) - 1;
}

void QnSig_FindBandPassCoeffs(tQNSIG_SECTION* section, const double* parameters, LONG clearState) {
  constexpr double kBass = 0.001814;
  const Parameters p(parameters);
  const double f = CorrectedFrequency(p.frequency, p.q);
  SetResonance(*section, f, p.q, clearState != 0);
  section->c = std::sqrt(section->c) * std::cos(kPi * std::clamp(f, kLowest, kHighest));
  const double k = f > kBass ? 0.85 : 0.65;
  const double share = p.q < 1 ? (1 - p.q) * 0.9 + k : k / p.q;
  section->dryGain = share * (std::pow(10.0, p.gain / 20) - 1);
}
