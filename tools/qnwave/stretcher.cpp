#include "tools/qnwave/stretcher.h"

#include <algorithm>
#include <cmath>

namespace qnwave {
namespace {

// A splice takes 1,000 samples, and 200 more to look for its place. A block that is to be nearly twice as
// long or more is repeated as it is; so several stages lengthen it by less.
constexpr double kLeastStageRatio = 0.7;
constexpr double kLeastIn = 2400, kLeastOut = 1200;

}  // namespace

Stretcher::Stretcher(double ratio, uint32_t rate, uint32_t channels) : rate_(rate), channels_(channels) {
  const double stages = std::max(1.0, std::ceil(std::log(ratio) / std::log(kLeastStageRatio)));
  for (auto& channel : channels_) channel.resize(static_cast<size_t>(stages));
  const double stageRatio = std::pow(ratio, 1 / stages);
  // In seconds: what a splice leaves out or says again, and the longest block.
  constexpr double kJump = 0.025, kLongest = 0.5;
  const double best = std::min(kJump / std::max(std::fabs(1 - 1 / stageRatio), 1e-9), kLongest) * rate;
  blockFrames_ = static_cast<uint32_t>(std::ceil(std::max({best, kLeastIn, kLeastOut * stageRatio})));
}

HRESULT Stretcher::Open(uint32_t mostIn, uint32_t mostOut) {
  const uint32_t most = std::max(mostIn, mostOut);
  for (auto& channel : channels_) {
    for (Stage& stage : channel) {
      _time_props props = {1};
      HQNTIME* handle = nullptr;
      HRESULT status = QnTimeInit(&handle, 1, &props, static_cast<LONG>(rate_), 1);
      stage.reset(handle);
      if (status == S_OK) status = QnTimeBufAlloc(handle, static_cast<int>(most));
      if (status != S_OK) return status;
    }
  }
  from_.resize(most);
  to_.resize(most);
  return S_OK;
}

// From `from_` to `from_`.
HRESULT Stretcher::ProcessChannel(const std::vector<Stage>& stages, uint32_t inFrames, uint32_t outFrames) {
  const double growth = static_cast<double>(outFrames) / inFrames;
  uint32_t frames = inFrames;
  for (size_t i = 1; i <= stages.size(); ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(stages.size());
    const auto wanted = static_cast<uint32_t>(std::lround(inFrames * std::pow(growth, part)));
    // The stretcher rounds the frames down that the ratio makes.
    _time_props props = {frames / (wanted + 0.25)};
    HQNTIME* stage = stages[i - 1].get();
    const HRESULT status = QnTimeInit(&stage, 0, &props, static_cast<LONG>(rate_), 1);
    if (status != S_OK) return status;
    DWORD made = 0;
    QnTimeProcess(stage, to_.data(), from_.data(), &made, frames);
    if (made != wanted) return E_FAIL;
    from_.swap(to_);
    frames = wanted;
  }
  return S_OK;
}

HRESULT Stretcher::Process(const double* in, uint32_t inFrames, double* out, uint32_t outFrames) {
  const size_t channels = channels_.size();
  for (size_t c = 0; c < channels; ++c) {
    for (size_t i = 0; i < inFrames; ++i) from_[i] = in[i * channels + c];
    const HRESULT status = ProcessChannel(channels_[c], inFrames, outFrames);
    if (status != S_OK) return status;
    for (size_t i = 0; i < outFrames; ++i) out[i * channels + c] = from_[i];
  }
  return S_OK;
}

}  // namespace qnwave
