#include "tools/qnwave/converter.h"

#include <algorithm>
#include <cmath>

#include "qn/settings/qnstatus.h"
#include "tools/common/options.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

using qntool::ParseNumber;
using qntool::Split;

// The pairs whose one kernel serves both directions of a byte swap: with a gain it does neither.
bool IsSwap(QNSAMPLETYPE a, QNSAMPLETYPE b) {
  const auto [low, high] = std::minmax(a, b);
  return (low == QNST_PCM16 && high == QNST_PCM16BE) || (low == QNST_PCM32 && high == QNST_PCM32BE);
}

}  // namespace

std::optional<ChannelMap> ParseChannelMap(std::string_view text, bool withSilence, std::string* mistake) {
  ChannelMap map;
  for (const std::string_view piece : Split(text, ',')) {
    if (withSilence && piece == "-") {
      map.push_back(kSilence);
    } else if (piece == "L" || piece == "l") {
      map.push_back(0);
    } else if (piece == "R" || piece == "r") {
      map.push_back(1);
    } else if (const auto channel = ParseNumber<int>(piece, 0, 0xFFFF)) {
      map.push_back(*channel);
    } else {
      *mistake = "bad channel " + Quoted(piece) +
                 (withSilence ? " (a number from 0, L, R, or - for silence)" : " (a number from 0, L or R)");
      return std::nullopt;
    }
  }
  return map;
}

bool HasChannels(const AudioSource& source, const ChannelMap& map) {
  for (const int channel : map) {
    if (channel < static_cast<int>(source.format.channels)) continue;
    ReportError(
        source.name, E_INVALIDARG,
        {messages::NoChannel, {Message(std::to_string(channel)), ChannelsMessage(source.format.channels)}});
    return false;
  }
  return true;
}

std::optional<double> ParseGain(std::string_view text, std::string* mistake) {
  constexpr double kMostDecibels = 200;
  const auto decibels = ParseNumber<double>(text, -kMostDecibels, kMostDecibels);
  if (decibels) return std::pow(10.0, *decibels / 20);
  *mistake = "bad gain " + Quoted(text) + " (dB from -200 to 200)";
  return std::nullopt;
}

SampleConverter::SampleConverter(const AudioFormat& source, QNSAMPLETYPE type, const ChannelMap& map,
                                 float gain, uint32_t mostFrames, const DitherSettings& dither)
    : source_(source),
      map_(map),
      gain_(gain),
      channels_(map.empty() ? source.channels : static_cast<uint32_t>(map.size())),
      isCopy_(map.empty() && gain == 1.0f && type == source.type && dither.IsNone()),
      isChecked_(IsFloat(source.type) && !IsFloat(type)) {
  first_ = QnAudio_GetCopyFunction2(type, source.type);
  if (!dither.IsNone()) dither_ = std::make_unique<CQnDither>(type, dither.type, dither.shape);
  if (!first_ || dither_ || (gain != 1.0f && IsSwap(type, source.type))) {
    // In double every integer sample is exact, so two steps give what one would.
    first_ = QnAudio_GetCopyFunction2(QNST_FLOAT64, source.type);
    second_ = QnAudio_GetCopyFunction2(type, QNST_FLOAT64);
    between_.resize(size_t{mostFrames} * channels_);
  }
  if (!map_.empty()) {
    move_ = QnAudio_GetCopyChannelsFunction2(source.type, source.type);
    // Silent channels are written here once and for all.
    const uint8_t silence = source.type == QNST_PCM8U ? 0x80 : 0;
    mapped_.assign(size_t{mostFrames} * channels_ * source.SampleBytes(), silence);
  }
}

const void* SampleConverter::Checked(const void* samples, size_t count) {
  const double most = kBeyondIntegers / gain_;
  if (!isChecked_ || CountLouder(samples, count, source_.type, most) == 0) return samples;
  const auto* const bytes = static_cast<const uint8_t*>(samples);
  checked_.assign(bytes, bytes + count * source_.SampleBytes());
  notNumbers_ += LimitSamples(checked_.data(), count, source_.type, most);
  return checked_.data();
}

void SampleConverter::Dither(uint32_t frames) {
  // What is louder would be clipped anyway, but comes out of the dither with the other sign where it passes
  // 32 bits, noise and error of the rounding included.
  constexpr double kMost = 1 - 0x1p-25;
  for (size_t i = 0; i < size_t{frames} * channels_; ++i)
    between_[i] = std::clamp(between_[i], -kMost, kMost);
  dither_->ProcessDouble(between_.data(), frames, channels_);
}

void SampleConverter::Convert(void* destination, const void* source, uint32_t frames) {
  if (move_) {
    for (uint32_t i = 0; i < channels_; ++i) {
      if (map_[i] == kSilence) continue;
      move_(mapped_.data(), channels_, i, source, source_.channels, static_cast<DWORD>(map_[i]),
            static_cast<LONG>(frames));
    }
    source = mapped_.data();
  }
  const auto samples = static_cast<LONG>(frames * channels_);
  source = Checked(source, size_t{frames} * channels_);
  if (second_) {
    first_(between_.data(), source, samples, gain_);
    if (dither_) Dither(frames);
    second_(destination, between_.data(), samples, 1.0f);
  } else {
    first_(destination, source, samples, gain_);
  }
}

}  // namespace qnwave
