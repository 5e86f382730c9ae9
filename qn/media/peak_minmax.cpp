// The reduction of samples to pairs of minimum and maximum.
#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "qn/media/peak.h"
#include "qn/media/peak_scan_internal.h"

namespace qn {
namespace {

constexpr int kPeakTypes[] = {QNST_PCM16, QNST_PCM8S, QNST_FLOAT32};
constexpr int kSourceTypes[] = {QNST_PCM8U,   QNST_PCM16,   QNST_PCM24, QNST_PCM32,
                                QNST_FLOAT32, QNST_FLOAT64, QNST_PCM8S};

constexpr uint64_t kPhasePerFrame = 16384;

// One value of a pair. Samples of more than 16 bits are cut, not rounded: hosts compare with files made so.
template <int kPeak, int kSource>
void Convert(uint8_t* out, const uint8_t* value) {
  constexpr int kPeakBytes = kForm<kPeak>.bytes, kSourceBytes = kForm<kSource>.bytes;
  constexpr bool kIsCut = kPeak != QNST_FLOAT32 && (kSource == QNST_PCM24 || kSource == QNST_PCM32);
  if constexpr (kIsCut || kPeak == kSource) {
    std::memcpy(out, value + kSourceBytes - kPeakBytes, kPeakBytes);
  } else {
    ConvertSample<kPeak, kSource>(out, value, 1.0f, true);
  }
}

bool IsNumber(double value) {
  return !std::isnan(value);
}

template <int kPeak, int kSource>
LONG Reduce(void* out, DWORD index, DWORD step, const void** source, DWORD* frames, DWORD* phase,
            DWORD channels, tQNAUDIOPEAK_SAMPLESMINMAX* state) {
  const size_t frameBytes = size_t{channels} * kForm<kSource>.bytes;
  const uint8_t* from = static_cast<const uint8_t*>(*source);
  uint8_t* const pairs = state->values;

  // One division finds the block's end, so that the scan has none.
  const uint64_t missing =
      *phase < step ? (uint64_t{step} - *phase + kPhasePerFrame - 1) / kPhasePerFrame : 0;
  const DWORD taken = static_cast<DWORD>(std::min<uint64_t>(missing, *frames));
  ScanFrames(kSource, from, taken, channels, pairs);
  from += taken * frameBytes;
  *source = from;
  *frames -= taken;
  *phase += static_cast<DWORD>(taken * kPhasePerFrame);
  if (taken < missing) return 0;
  *phase -= step;

  uint8_t* to = static_cast<uint8_t*>(out) + size_t{index} * kForm<kPeak>.bytes;
  for (size_t i = 0; i < size_t{channels} * 2; ++i) {
    Convert<kPeak, kSource>(to + i * kForm<kPeak>.bytes, pairs + i * kForm<kSource>.bytes);
  }
  // A block of no frames, from a step below one frame, repeats its seed.
  if (taken == 0) return 1;
  for (size_t channel = 0; channel < channels; ++channel) {
    const auto last = Load<kSource>(from - frameBytes + channel * kForm<kSource>.bytes);
    const auto seed = IsNumber(last) ? Pair<kSource>{last, last} : Pair<kSource>();
    seed.Store(pairs + channel * Pair<kSource>::kBytes);
  }
  return 1;
}

template <int kPeak, size_t... kSource>
constexpr auto KernelRow(std::index_sequence<kSource...>) {
  return std::array<QNAUDIOPEAKMINMAXFUNCTION, sizeof...(kSource)>{Reduce<kPeak, kSourceTypes[kSource]>...};
}

template <size_t... kPeak>
constexpr auto KernelTable(std::index_sequence<kPeak...>) {
  return std::array{KernelRow<kPeakTypes[kPeak]>(std::make_index_sequence<std::size(kSourceTypes)>())...};
}

constexpr auto kKernels = KernelTable(std::make_index_sequence<std::size(kPeakTypes)>());

template <int kType>
HRESULT Clear(DWORD channels, uint8_t* state) {
  for (size_t i = 0; i < channels; ++i) Pair<kType>().Store(state + i * Pair<kType>::kBytes);
  return S_OK;
}

}  // namespace
}  // namespace qn

HRESULT QnAudioPeak_InitMinMaxArray(QNSAMPLETYPE type, DWORD channels, tQNAUDIOPEAK_SAMPLESMINMAX* state) {
  if (!state) return E_POINTER;
  switch (type) {
    case QNST_PCM8U:
      return qn::Clear<QNST_PCM8U>(channels, state->values);
    case QNST_PCM8S:
      return qn::Clear<QNST_PCM8S>(channels, state->values);
    case QNST_PCM16:
    case QNST_PCM16BE:
      return qn::Clear<QNST_PCM16>(channels, state->values);
    case QNST_PCM24:
    case QNST_PCM24BE:
      return qn::Clear<QNST_PCM24>(channels, state->values);
    case QNST_PCM32:
    case QNST_PCM32BE:
      return qn::Clear<QNST_PCM32>(channels, state->values);
    case QNST_FLOAT32:
      return qn::Clear<QNST_FLOAT32>(channels, state->values);
    case QNST_FLOAT64:
      return qn::Clear<QNST_FLOAT64>(channels, state->values);
    default:
      return E_INVALIDARG;
  }
}

HRESULT QnAudioPeak_PrimeMinMaxArray(QNSAMPLETYPE type, DWORD channels, tQNAUDIOPEAK_SAMPLESMINMAX* state,
                                     QNSAMPLETYPE storedType, const void* stored) {
  if (!state || !stored) return E_POINTER;
  if (storedType != QNST_PCM16 && storedType != QNST_PCM32 && storedType != QNST_FLOAT32 &&
      storedType != QNST_PCM8S) {
    return E_INVALIDARG;
  }
  const QNCOPYFUNCTION copy = QnAudio_GetCopyFunction2(type, storedType);
  if (!copy) return E_FAIL;
  copy(state->values, stored, static_cast<LONG>(channels * 2), 1.0f);
  return type == storedType ? S_FALSE : S_OK;
}

QNAUDIOPEAKMINMAXFUNCTION QnAudioPeak_GetMinMaxFunction(DWORD peakType, QNSAMPLETYPE sourceType) {
  const int wanted = peakType ? static_cast<int>(peakType) : static_cast<int>(QNST_PCM16);
  const auto* const peak = std::ranges::find(qn::kPeakTypes, wanted);
  const auto* const source = std::ranges::find(qn::kSourceTypes, static_cast<int>(sourceType));
  if (peak == std::end(qn::kPeakTypes) || source == std::end(qn::kSourceTypes)) return nullptr;
  return qn::kKernels[static_cast<size_t>(peak - qn::kPeakTypes)]
                     [static_cast<size_t>(source - qn::kSourceTypes)];
}

LONG QnAudioPeak_CalcMinMax(QNSAMPLETYPE sourceType, DWORD peakType, void* out, DWORD index, DWORD step,
                            const void** source, DWORD* frames, DWORD* phase, DWORD channels,
                            tQNAUDIOPEAK_SAMPLESMINMAX* state) {
  const QNAUDIOPEAKMINMAXFUNCTION kernel = QnAudioPeak_GetMinMaxFunction(peakType, sourceType);
  return kernel ? kernel(out, index, step, source, frames, phase, channels, state) : 1;
}
