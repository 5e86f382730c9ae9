#include "tools/qnwave/stretcher.h"

#include <algorithm>
#include <cmath>

namespace qnwave {
namespace {

// A splice fades over 1,000 samples that both sides have, and looks for its place in 200 more, which may be
// held back for the next block. A block that is to be nearly twice as long or more is repeated as it is; so
// several stages lengthen it by less.
constexpr uint32_t kFade = 1000, kSearch = 200;
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
  const uint32_t most = std::max(mostIn, mostOut) + kFade + 2 * kSearch;
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

// From `from_` to `from_`. The last block gets longer by what is held back.
HRESULT Stretcher::ProcessStage(HQNTIME* stage, uint32_t inFrames, bool isLast, uint32_t* outFrames) {
  // What both sides of the splice have of a file that is too short gets silence around it, so that they fade
  // about its middle.
  const int64_t shared = std::min<int64_t>(*outFrames, 2 * int64_t{inFrames} - *outFrames);
  uint32_t front = 0, added = 0;
  if (shared < kFade && inFrames != *outFrames) {
    const auto missing = static_cast<uint32_t>(kFade - shared);
    front = missing / 2 + kSearch;
    added = missing + kSearch;
    std::copy_backward(from_.begin(), from_.begin() + inFrames, from_.begin() + front + inFrames);
    std::fill_n(from_.begin(), front, 0.0);
    std::fill_n(from_.begin() + front + inFrames, added - front, 0.0);
  }
  const uint32_t wanted = *outFrames + added;
  const auto process = [&](double ratio, double* out, uint32_t frames) {
    _time_props props = {ratio};
    DWORD made = 0;
    if (QnTimeInit(&stage, 0, &props, static_cast<LONG>(rate_), 1) == S_OK)
      QnTimeProcess(stage, out, from_.data(), &made, frames);
    return made;
  };
  // The stretcher rounds the frames down that the ratio makes.
  if (process((inFrames + added) / (wanted + 0.25), to_.data(), inFrames + added) != wanted) return E_FAIL;
  if (isLast) {
    // Blocks that are shorter than a splice are copied, the held frames first.
    const auto held = static_cast<uint32_t>(stage->carryFrames);
    std::fill_n(from_.begin(), held, 0.0);
    if (process(1, to_.data() + wanted, held) != held) return E_FAIL;
    *outFrames += held;
  }
  std::copy_n(to_.begin() + front, *outFrames, from_.begin());
  return S_OK;
}

// Alike.
HRESULT Stretcher::ProcessChannel(const std::vector<Stage>& stages, uint32_t inFrames, bool isLast,
                                  uint32_t outFrames) {
  const double growth = static_cast<double>(outFrames) / inFrames;
  const bool isHeld = isLast && inFrames != outFrames;
  uint32_t frames = inFrames;
  for (size_t i = 1; i <= stages.size(); ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(stages.size());
    auto wanted = static_cast<uint32_t>(std::lround(inFrames * std::pow(growth, part)));
    if (isHeld) wanted -= std::min(kSearch, wanted / 4);
    const HRESULT status = ProcessStage(stages[i - 1].get(), frames, isHeld, &wanted);
    if (status != S_OK) return status;
    frames = wanted;
  }
  if (frames < outFrames) std::fill(from_.begin() + frames, from_.begin() + outFrames, 0.0);
  return S_OK;
}

HRESULT Stretcher::Process(const double* in, uint32_t inFrames, bool isLast, double* out,
                           uint32_t outFrames) {
  const size_t channels = channels_.size();
  for (size_t c = 0; c < channels; ++c) {
    for (size_t i = 0; i < inFrames; ++i) from_[i] = in[i * channels + c];
    const HRESULT status = ProcessChannel(channels_[c], inFrames, isLast, outFrames);
    if (status != S_OK) return status;
    for (size_t i = 0; i < outFrames; ++i) out[i * channels + c] = from_[i];
  }
  return S_OK;
}

}  // namespace qnwave
