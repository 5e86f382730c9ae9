#include "tools/qnwave/level_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qnwave {
namespace {

double LowestClipped(QNSAMPLETYPE type) {
  if (IsFloat(type)) return std::nextafter(1.0, 2.0);
  return 1 - std::ldexp(1.0, 1 - QnAudio_BitsFromSampleType(type));
}

// A format of which a kernel for doubles is looked up.
WAVEFORMATEX DoubleFormat() {
  WAVEFORMATEX format{};
  QnAudio_InitWfx(&format, 1, QNST_FLOAT64, 1);
  return format;
}

}  // namespace

LevelMeter::LevelMeter(const AudioFormat& format, uint32_t clipRun, uint32_t mostFrames)
    : isFloat_(IsFloat(format.type)),
      clipRun_(clipRun),
      lowestClipped_(LowestClipped(format.type)),
      toDouble_(format, QNST_FLOAT64, {}, 1.0f, mostFrames),
      block_(size_t{mostFrames} * format.channels),
      peaks_(format.channels),
      sums_(format.channels),
      walks_(format.channels),
      levels_(format.channels) {
  const WAVEFORMATEX record = DoubleFormat();
  findPeaks_ = QnAudio_GetFindPeaksFunction(&record);
  calcSums_ = QnAudio_GetCalcPreRMSFunction(&record);
}

void LevelMeter::Take(const void* frames, uint32_t count) {
  const size_t channels = levels_.size();
  toDouble_.Convert(block_.data(), frames, count);
  constexpr int kNoRun = -1;
  findPeaks_(static_cast<int>(channels), kNoRun, block_.data(), static_cast<int>(count), peaks_.data());
  // The kernel's runs are those of doubles and end with the block: what is that loud is walked here, and so
  // is what is no number. A peak is rounded to single precision, never to below this.
  const double loud = std::min(lowestClipped_, 1.0);
  for (size_t channel = 0; channel < channels; ++channel) {
    if (!(peaks_[channel].peak < loud)) {
      WalkSamples(channel, count);
      continue;
    }
    walks_[channel].run = 0;
    const size_t frame = peaks_[channel].position;
    TakeLouder(channel, std::fabs(block_[frame * channels + channel]), done_ + frame);
  }
  constexpr DWORD kSquared = 1;
  calcSums_(static_cast<int>(channels), block_.data(), count, sums_.data(), kSquared);
  for (size_t channel = 0; channel < channels; ++channel) levels_[channel].squares += double{sums_[channel]};
  done_ += count;
}

void LevelMeter::TakeLouder(size_t channel, double magnitude, uint64_t position) {
  ChannelLevel& level = levels_[channel];
  if (magnitude < level.peak || walks_[channel].isFound) return;
  level.peak = magnitude;
  level.position = position;
}

void LevelMeter::WalkSamples(size_t channel, uint32_t count) {
  ChannelLevel& level = levels_[channel];
  Walk& walk = walks_[channel];
  const double most = isFloat_ ? std::numeric_limits<double>::max() : lowestClipped_;
  for (uint32_t frame = 0; frame < count; ++frame) {
    double& sample = block_[frame * levels_.size() + channel];
    if (!std::isfinite(sample)) {
      ++level.notNumbers;
      sample = 0;
    }
    const double magnitude = std::min(std::fabs(sample), most);
    TakeLouder(channel, magnitude, done_ + frame - (isFloat_ ? 0 : walk.run));
    if (magnitude < lowestClipped_) {
      walk.run = 0;
      continue;
    }
    ++level.clippedSamples;
    if (++walk.run != clipRun_) continue;
    ++level.clippedRuns;
    walk.isFound |= !isFloat_;
  }
}

double LevelMeter::Rms(const ChannelLevel& level) const {
  return done_ == 0 ? 0 : std::sqrt(level.squares / static_cast<double>(done_));
}

}  // namespace qnwave
