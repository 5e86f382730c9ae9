#include "tools/qnwave/resampler.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <numeric>

#include "tools/common/option_values.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {
namespace {

struct QualityRow {
  const char* name;
  DWORD flags;
  bool hasFir;
};

// The recursive low-pass still lets through what is just above half the lower rate, the other one does not;
// docs/resampling.md has figures.
constexpr QualityRow kQualities[] = {
    {"sinc", QNRESAMPLE2_SINC, true},
    {"cubic", QNRESAMPLE2_CUBIC | QNRESAMPLE2_LOWPASS_11TH, false},
    {"filtered", QNRESAMPLE2_LINEAR | QNRESAMPLE2_LOWPASS_11TH, false},
    {"linear", QNRESAMPLE2_LINEAR, false},
};

// The least taps of the FIR low-pass, for each time that its rate is the lower one: enough to fall within
// a fourteenth of half of that.
constexpr double kTapsATime = 234;
constexpr uint32_t kMostTaps = 32767;

// What lies between the corner of the window's low-pass and its full rejection, in taps' frequencies.
constexpr double kHalfSlope = 4;

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
  if (hasFir) return WholeTurns(Taps() / Oversampling() + kSlowFrames);
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

uint32_t RateChange::Oversampling() const {
  return hasFir && from / 2 < to && from <= kMostRate / 2 ? 2 : 1;
}

uint32_t RateChange::Taps() const {
  const double times = static_cast<double>(from) * Oversampling() / std::min(from, to);
  // One less than a power of 2, for which the library's transforms have the least to do.
  return std::min(std::bit_ceil(static_cast<uint32_t>(times * kTapsATime)) - 1, kMostTaps);
}

double RateChange::Corner() const {
  return std::min(from, to) / 2.0 - kHalfSlope * from * Oversampling() / Taps();
}

bool ChooseQuality(const char* command, const qntool::Arguments& arguments, RateChange* change) {
  const auto name = arguments.Value(kQualityOption.name).value_or(kQualities[0].name);
  const QualityRow* const row = qntool::FindByName(kQualities, name);
  if (!row) {
    ReportUsage(command, "unknown quality " + Quoted(name) + " (one of " + qntool::NamesOf(kQualities) + ")");
    return false;
  }
  change->flags = row->flags;
  change->hasFir = row->hasFir;
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
    const HRESULT status = QnAudio_Resample2Open(&instance, type_, static_cast<LONG>(GroupChannels(i)),
                                                 static_cast<LONG>(change_.from * change_.Oversampling()),
                                                 static_cast<LONG>(change_.to), change_.flags);
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
