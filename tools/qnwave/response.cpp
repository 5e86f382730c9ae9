#include "tools/qnwave/response.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>

#include "qn/dsp/qnperf.h"
#include "tools/qnwave/describe.h"

namespace qnwave {
namespace {

// The impulse goes through until nothing comes any more, or for a resonance without end, long enough.
std::vector<double> MeasureImpulse(Effect* effect) {
  constexpr size_t kLeast = 1 << 16, kMost = 1 << 22;
  constexpr double kNothing = 1e-9;
  std::vector<double> response;
  do {
    const size_t done = response.size();
    response.resize(std::max(kLeast, 2 * done));
    if (done == 0) response[0] = 1;
    effect->Process(response.data() + done, static_cast<uint32_t>(response.size() - done));
  } while (response.size() < kMost &&
           std::any_of(response.end() - static_cast<ptrdiff_t>(response.size() / 8), response.end(),
                       [](double value) { return std::fabs(value) > kNothing; }));
  return response;
}

}  // namespace

HRESULT PlotResponse(Effect* effect, uint32_t rate, std::span<const double> edges, LevelPlot* plot) {
  std::vector<double> response = MeasureImpulse(effect);
  struct FreeTransform {
    void operator()(void* transform) const { QnPerfsFFTFree_R_64f(transform); }
  };
  void* made = nullptr;
  HRESULT status = QnPerfsFFTInitAlloc_R_64f(&made, std::countr_zero(response.size()),
                                             QNPERF_FFT_NODIV_BY_ANY, QNPERF_HINT_NONE);
  const std::unique_ptr<void, FreeTransform> transform(made);
  if (SUCCEEDED(status)) status = QnPerfsFFTFwd_RToPerm_64f_I(response.data(), made, nullptr);
  if (FAILED(status)) return status;
  // From 0 to half the rate, evenly.
  plot->decibels.resize(response.size() / 2 + 1);
  plot->decibels.front() = PlotLevel(std::fabs(response[0]));
  plot->decibels.back() = PlotLevel(std::fabs(response[1]));
  for (size_t bin = 1; bin < response.size() / 2; ++bin)
    plot->decibels[bin] = PlotLevel(std::hypot(response[2 * bin], response[2 * bin + 1]));
  // What lies below the lowest edge is seen too.
  const double lowest = edges.empty() ? rate : *std::min_element(edges.begin(), edges.end());
  const FrequencyScale scale(true, rate, lowest / 4);
  const double binWidth = static_cast<double>(rate) / static_cast<double>(response.size());
  plot->indexAt = [scale, binWidth](double place) { return scale.At(place) / binWidth; };
  plot->marks = [scale](double length, double spacing) { return scale.Marks(length, spacing); };
  plot->unit = "Hz";
  for (const double edge : edges) plot->edges.push_back(scale.PlaceOf(edge));
  plot->details = "gain at a sample rate of " + Grouped(rate) + " Hz";
  return S_OK;
}

}  // namespace qnwave
