#include "tools/qnwave/effect_run.h"

#include <algorithm>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

// As long as the pieces of the longest filter, in which it is fastest, but not of any number of channels.
uint32_t BlockFrames(uint32_t channels) {
  constexpr uint32_t kMostFrames = 1 << 15;
  constexpr uint32_t kMostBytes = 8 << 20;
  return std::clamp(kMostBytes / (static_cast<uint32_t>(sizeof(double)) * channels), 1u, kMostFrames);
}

}  // namespace

EffectRun::EffectRun(const AudioSource& source, const Target& target, const DitherSettings& dither,
                     bool keepsDelay, Effect* effect)
    : source_(source),
      target_(target),
      keepsDelay_(keepsDelay),
      effect_(*effect),
      blockFrames_(BlockFrames(source.format.channels)),
      reader_(source, QNST_FLOAT64, {}, 1.0f, blockFrames_),
      writer_(&output_, target.format, QNST_FLOAT64, blockFrames_, dither),
      block_(size_t{blockFrames_} * source.format.channels) {}

bool EffectRun::Prepare(bool overwrite) {
  const auto& [name, container, format, frames] = target_;
  if (!reader_.Open()) {
    ReportError(source_.name, SystemStatus(QN_E_FILE_OPEN));
    return false;
  }
  return output_.Create(name, container, format, frames, overwrite);
}

bool EffectRun::Fail(const std::string& file, HRESULT status) {
  failedFile_ = file;
  failure_ = status;
  return false;
}

bool EffectRun::WriteBlock(uint64_t at, uint32_t frames, uint64_t late) {
  const size_t channels = source_.format.channels;
  const auto held =
      static_cast<uint32_t>(at < source_.frames ? std::min<uint64_t>(frames, source_.frames - at) : 0);
  if (held > 0 && !reader_.Read(at, block_.data(), held))
    return Fail(source_.name, SystemStatus(QN_E_FILE_READ));
  // Silence behind the file brings out what the effect still holds.
  std::fill(block_.begin() + static_cast<ptrdiff_t>(held * channels), block_.end(), 0.0);
  effect_.Process(block_.data(), frames);
  const auto early = static_cast<uint32_t>(at < late ? std::min<uint64_t>(frames, late - at) : 0);
  if (early == frames) return true;
  const HRESULT status = writer_.Write(at + early - late, block_.data() + early * channels, frames - early);
  return status == S_OK || Fail(target_.name, status);
}

bool EffectRun::Write(bool quiet) {
  const uint64_t late = keepsDelay_ ? 0 : effect_.Delay();
  const uint64_t total = target_.frames == 0 ? 0 : target_.frames + late;
  std::optional<Progress> progress;
  progress.emplace(target_.name, std::max<uint64_t>(total, 1), quiet);
  for (uint64_t at = 0; at < total && failure_ == S_OK; at += blockFrames_) {
    if (qntool::InterruptSignal() != 0) return false;
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(blockFrames_, total - at));
    if (WriteBlock(at, count, late)) progress->Show(at + count);
  }
  progress.reset();
  if (failure_ != S_OK) ReportError(failedFile_, failure_);
  return failure_ == S_OK;
}

void EffectRun::Warn() const {
  WarnOfSamples(target_.name, reader_.NotNumbers() + writer_.NotNumbers(), writer_.Clipped());
}

}  // namespace qnwave
