// Root mean squares and sums of channels.
//
// The sums of float samples are defined as double additions from the last frame to the first. Vectors add in
// another order, but no order strays from the exact sum of n terms that are not negative by more than about
// n * 2^-53 of it. The results are floats, so both ends of that range nearly always round to the same one,
// which then is the result; where they do not, and for sums that are no finite numbers, the terms are added
// in their order.
#include <array>
#include <cmath>
#include <utility>

#include "qn/audio/qnlevel_scan.h"
#include "qn/audio/qnmix.h"

namespace qn {
namespace {

template <int kType, Term kTerm>
double SumInOrder(const uint8_t* channel, size_t stride, size_t frames) {
  double sum = 0;
  for (size_t frame = frames; frame-- > 0;) sum += TermOf<kType, kTerm>(channel + frame * stride);
  return sum;
}

// `finish` makes the result of a sum, and does not fall when the sum rises.
template <int kType, Term kTerm, class Finish>
void SumFloats(size_t channels, const uint8_t* src, size_t frames, float* out, Finish finish) {
  constexpr size_t kBytes = kForm<kType>.bytes;
  const size_t stride = channels * kBytes;
  double sums[kMostScanChannels] = {};
  const size_t covered = ForEachScanBlock(channels, kBytes, frames, [&](size_t first, size_t count) {
    ScanSums(kType, kTerm, src + first * stride, count, channels, sums);
    return true;
  });
  // Twice the bound, for the two sums that may differ, and something for the arithmetic with it.
  const double bound = (1.01 * static_cast<double>(frames) + 32) * 0x1p-52;
  for (size_t channel = 0; channel < channels; ++channel) {
    const uint8_t* const from = src + channel * kBytes;
    if (covered > 0) {
      const double sum =
          sums[channel] + SumInOrder<kType, kTerm>(from + covered * stride, stride, frames - covered);
      const float least = finish(sum - sum * bound), most = finish(sum + sum * bound);
      out[channel] = least;
      if (least == most) continue;
    }
    out[channel] = finish(SumInOrder<kType, kTerm>(from, stride, frames));
  }
}

template <int kType>
void CalcRms(size_t channels, const uint8_t* src, size_t frames, float* out) {
  constexpr SampleForm form = kForm<kType>;
  const double divisor = static_cast<double>(std::max<size_t>(frames, 1));
  if constexpr (form.isFloat) {
    SumFloats<kType, Term::kSquare>(channels, src, frames, out, [divisor](double sum) {
      return static_cast<float>(std::sqrt(sum / divisor));
    });
  } else {
    const size_t stride = channels * form.bytes;
    uint64_t sums[kMostScanChannels] = {};
    const size_t covered = ForEachScanBlock(channels, form.bytes, frames, [&](size_t first, size_t count) {
      ScanSquares(kType, src + first * stride, count, channels, sums);
      return true;
    });
    for (size_t channel = 0; channel < channels; ++channel) {
      uint64_t sum = channel < kMostScanChannels ? sums[channel] : 0;
      for (size_t frame = covered; frame < frames; ++frame) {
        sum += SquareOf<kType>(src + frame * stride + channel * form.bytes);
      }
      const double root = std::trunc(std::sqrt(static_cast<double>(sum) / divisor + 0.5));
      out[channel] = static_cast<float>(std::min(root, HighRail(form)) / FullScale(form));
    }
  }
}

template <int kType>
void RmsKernelOf(int channels, const void* src, int frames, float* out) {
  CalcRms<kType>(static_cast<size_t>(std::max(channels, 0)), static_cast<const uint8_t*>(src),
                 static_cast<size_t>(std::max(frames, 0)), out);
}

// The squares of floats are single ones: hosts rely on it.
template <int kType, Term kSquare>
void PreRmsKernelOf(int channels, const void* src, DWORD frames, float* out, DWORD squared) {
  const size_t count = static_cast<size_t>(std::max(channels, 0));
  const uint8_t* const from = static_cast<const uint8_t*>(src);
  const auto finish = [](double sum) { return static_cast<float>(sum); };
  if (squared != 0) return SumFloats<kType, kSquare>(count, from, frames, out, finish);
  SumFloats<kType, Term::kMagnitude>(count, from, frames, out, finish);
}

// The kernel, and what it calls for as many frames as an operation may have.
struct RmsFunctions {
  QNCALCRMSFUNCTION kernel;
  void (*calc)(size_t channels, const uint8_t* src, size_t frames, float* out);
};

template <size_t... kPlace>
constexpr std::array<RmsFunctions, kLevelForms> MakeFunctions(std::index_sequence<kPlace...>) {
  return {{{RmsKernelOf<kSampleForms[kPlace].type>, CalcRms<kSampleForms[kPlace].type>}...}};
}

const RmsFunctions* FindFunctions(const WAVEFORMATEX* format) {
  static constexpr auto kFunctions = MakeFunctions(std::make_index_sequence<kLevelForms>());
  const int index = SampleFormIndex(QnAudio_GetSampleType(format));
  return index < 0 || index >= kLevelForms ? nullptr : &kFunctions[static_cast<size_t>(index)];
}

}  // namespace
}  // namespace qn

extern "C" {

QNCALCRMSFUNCTION QnAudio_GetCalcRMSFunction(const WAVEFORMATEX* format) {
  const qn::RmsFunctions* const functions = qn::FindFunctions(format);
  return functions == nullptr ? nullptr : functions->kernel;
}

QNCALCPRERMSFUNCTION QnAudio_GetCalcPreRMSFunction(const WAVEFORMATEX* format) {
  switch (QnAudio_GetSampleType(format)) {
    case QNST_FLOAT32:
      return qn::PreRmsKernelOf<QNST_FLOAT32, qn::Term::kSingleSquare>;
    case QNST_FLOAT64:
      return qn::PreRmsKernelOf<QNST_FLOAT64, qn::Term::kSquare>;
    default:
      return nullptr;
  }
}

HRESULT QnAudio_CalcRMS(const WAVEFORMATEX* format, const void* src, DWORD frames, float* out) {
  if (frames == 0) return S_OK;
  if (format == nullptr) return E_POINTER;
  const qn::RmsFunctions* const functions = qn::FindFunctions(format);
  if (functions == nullptr) return E_NOTIMPL;
  if (src == nullptr || out == nullptr) return E_POINTER;
  functions->calc(format->nChannels, static_cast<const uint8_t*>(src), frames, out);
  return S_OK;
}

HRESULT QnAudio_CalcPreRMS(const WAVEFORMATEX* format, const void* src, DWORD frames, float* out,
                           DWORD squared) {
  if (frames == 0) return S_OK;
  if (format == nullptr) return E_POINTER;
  const QNCALCPRERMSFUNCTION kernel = QnAudio_GetCalcPreRMSFunction(format);
  if (kernel == nullptr) return E_NOTIMPL;
  if (src == nullptr || out == nullptr) return E_POINTER;
  kernel(format->nChannels, src, frames, out, squared);
  return S_OK;
}
}
