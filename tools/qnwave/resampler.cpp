#include "tools/qnwave/resampler.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "tools/common/option_values.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

struct QualityRow {
  const char* name;
  DWORD flags;
};

// The low-pass takes 110 dB off what would come back as a wrong frequency; docs/resampling.md has figures.
constexpr QualityRow kQualities[] = {
    {"sinc", QNRESAMPLE2_SINC | QNRESAMPLE2_LOWPASS_11TH},
    {"cubic", QNRESAMPLE2_CUBIC | QNRESAMPLE2_LOWPASS_11TH},
    {"filtered", QNRESAMPLE2_LINEAR | QNRESAMPLE2_LOWPASS_11TH},
    {"linear", QNRESAMPLE2_LINEAR},
};

}  // namespace

bool RateChange::IsPossible() const {
  return std::max(from, to) <= uint64_t{kMostTimes} * std::min(from, to);
}

uint64_t RateChange::FramesAfter(uint64_t frames) const {
  const uint64_t whole = frames / from;
  const uint64_t rest = frames % from;
  if (whole >= UINT64_MAX / to) return UINT64_MAX;  // no file
  return whole * to + (2 * rest * to + from) / (2 * uint64_t{from});
}

uint64_t RateChange::WholeTurns(uint64_t least) const {
  const uint32_t turn = from / std::gcd(from, to);
  return (least + turn - 1) / turn * turn;
}

uint64_t RateChange::RunUp() const {
  constexpr uint64_t kFrames = 4096, kSlowFrames = 256;
  return WholeTurns(kFrames + kSlowFrames * (from / to));
}

uint32_t RateChange::Delay() const {
  if (!(flags & QNRESAMPLE2_LOWPASS_11TH)) return 0;
  // That of a Butterworth filter of order 11, whose corner is at 0.95 of half the lower rate.
  constexpr double kPi = std::numbers::pi;
  const double ratio = static_cast<double>(to) / from;
  const double corner = 0.95 * 0.5 * std::min(ratio, 1 / ratio);
  const double delay = 1 / (2 * std::tan(kPi * corner) * std::sin(kPi / 22));
  return static_cast<uint32_t>(std::lround(delay * std::min(ratio, 1.0)));
}

bool ChooseQuality(const char* command, const qntool::Arguments& arguments, DWORD* flags) {
  const auto name = arguments.Value(kQualityOption.name).value_or(kQualities[0].name);
  const QualityRow* const row = qntool::FindByName(kQualities, name);
  if (!row) {
    ReportUsage(command, "unknown quality " + Quoted(name) + " (one of " + qntool::NamesOf(kQualities) + ")");
    return false;
  }
  *flags = row->flags;
  return true;
}

Resampler::Resampler(const RateChange& change, QNSAMPLETYPE type, uint32_t channels, uint32_t blockFrames)
    : change_(change),
      type_(type),
      channels_(channels),
      move_(QnAudio_GetCopyChannelsFunction2(type, type)),
      instances_((channels + kGroup - 1) / kGroup) {
  if (instances_.size() == 1) return;
  const size_t bytes = size_t{blockFrames} * kGroup * static_cast<size_t>(QnAudio_BytesFromSampleType(type));
  in_.resize(bytes);
  out_.resize(bytes);
}

uint32_t Resampler::GroupChannels(size_t group) const {
  return std::min(kGroup, channels_ - static_cast<uint32_t>(group) * kGroup);
}

HRESULT Resampler::Start() {
  for (size_t i = 0; i < instances_.size(); ++i) {
    tQNRESAMPLE2INSTANCE* instance = nullptr;
    const HRESULT status =
        QnAudio_Resample2Open(&instance, type_, static_cast<LONG>(GroupChannels(i)),
                              static_cast<LONG>(change_.from), static_cast<LONG>(change_.to), change_.flags);
    instances_[i].reset(instance);
    if (status != S_OK) return status;
  }
  return S_OK;
}

HRESULT Resampler::Process(const void* in, uint32_t frames, uint32_t* taken, void* out, uint32_t room,
                           uint32_t* given) {
  if (instances_.size() == 1)
    return QnAudio_Resample2Process(instances_[0].get(), out, room, given, in, frames, taken);
  for (size_t i = 0; i < instances_.size(); ++i) {
    const uint32_t channels = GroupChannels(i);
    const auto first = static_cast<DWORD>(i) * kGroup;
    for (DWORD c = 0; c < channels; ++c)
      move_(in_.data(), channels, c, in, channels_, first + c, static_cast<LONG>(frames));
    const HRESULT status =
        QnAudio_Resample2Process(instances_[i].get(), out_.data(), room, given, in_.data(), frames, taken);
    if (status != S_OK) return status;
    for (DWORD c = 0; c < channels; ++c)
      move_(out, channels_, first + c, out_.data(), channels, c, static_cast<LONG>(*given));
  }
  return S_OK;
}

}  // namespace qnwave
