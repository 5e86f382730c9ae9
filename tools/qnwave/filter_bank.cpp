#include "tools/qnwave/filter_bank.h"

#include <algorithm>
#include <cmath>

#include "qn/audio/qncopy.h"

namespace qnwave {
namespace {

constexpr uint32_t kIirChannels = 2;  // of an object

// Poles so near to the unit circle that their rounded coefficients put them onto it or outside.
bool IsStable(const CQnIIR& filter) {
  for (DWORD i = 0; i < filter.getNumBiquads(); ++i) {
    const tQNIIR_BIQUAD& stage = *filter.getBiquad(i);
    // Written so that a NaN is not stable.
    if (!(std::fabs(stage.a2) < 1 && std::fabs(stage.a1) < 1 - stage.a2)) return false;
  }
  return true;
}

}  // namespace

HRESULT FilterBank::Design(const FilterDesign& design, uint32_t rate, uint32_t channels) {
  channels_ = channels;
  groupChannels_ = std::min(channels, design.isFir ? CQnFIR::kMostChannels : kIirChannels);
  const size_t groups = (channels + groupChannels_ - 1) / groupChannels_;
  const double frequency = design.frequency / rate;
  if (design.isFir) {
    firs_ = std::vector<CQnFIR>(groups);
  } else {
    iirs_ = std::vector<CQnIIR>(groups);
  }
  for (size_t group = 0; group < groups; ++group) {
    const uint32_t count = std::min(groupChannels_, channels - static_cast<uint32_t>(group) * groupChannels_);
    const HRESULT status = design.isFir ? firs_[group].Design(design.firType, design.window, design.taps,
                                                              frequency, design.frequency2 / rate, count, 0)
                                        : iirs_[group].Design(design.iirType, design.design, design.order,
                                                              frequency, design.width, design.gain, count, 0);
    if (status != S_OK) return status;
  }
  return design.isFir || IsStable(iirs_[0]) ? S_OK : E_INVALIDARG;
}

void FilterBank::ProcessGroup(size_t group, double* samples, uint32_t frames, uint32_t channels) {
  const auto mask = static_cast<DWORD>((uint64_t{1} << channels) - 1);
  if (!firs_.empty()) return firs_[group].ProcessDouble(samples, samples, frames, mask);
  // A low corner of a high order has a tiny gain, with which the library takes its state for silence. A power
  // of 2 around the filter lifts it without any rounding.
  const double gain = iirs_[group].getGain();
  const int exponent = std::isnormal(gain) ? std::max(0, -std::ilogb(gain)) : 0;
  const size_t count = size_t{frames} * channels;
  const double up = std::exp2(exponent), down = std::exp2(-exponent);
  for (size_t i = 0; i < count; ++i) samples[i] *= up;
  iirs_[group].ProcessDouble(samples, samples, frames, mask);
  for (size_t i = 0; i < count; ++i) samples[i] *= down;
}

void FilterBank::Process(double* samples, uint32_t frames) {
  if (channels_ <= groupChannels_) return ProcessGroup(0, samples, frames, channels_);
  const QNCOPYCHANNELSFUNCTION move = QnAudio_GetCopyChannelsFunction2(QNST_FLOAT64, QNST_FLOAT64);
  part_.resize(size_t{frames} * groupChannels_);
  for (uint32_t first = 0; first < channels_; first += groupChannels_) {
    const uint32_t count = std::min(groupChannels_, channels_ - first);
    for (uint32_t i = 0; i < count; ++i)
      move(part_.data(), count, i, samples, channels_, first + i, static_cast<LONG>(frames));
    ProcessGroup(first / groupChannels_, part_.data(), frames, count);
    for (uint32_t i = 0; i < count; ++i)
      move(samples, channels_, first + i, part_.data(), count, i, static_cast<LONG>(frames));
  }
}

}  // namespace qnwave
