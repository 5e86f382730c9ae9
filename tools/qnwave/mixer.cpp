#include "tools/qnwave/mixer.h"

#include <algorithm>

#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

constexpr uint32_t kBlockBytes = 512 << 10;
constexpr uint64_t kUnits = 10'000'000;  // of a second, in the times of envelopes

}  // namespace

Mixer::Mixer(const std::vector<MixInput>& inputs, uint32_t rate, uint32_t channels) : channels_(channels) {
  // A mono sum is that of two channels under an envelope; the second one stays silent.
  const uint32_t routed = std::max(2u, channels);
  QnAudio_InitWfx(&sumFormat_, rate, QNST_FLOAT64, channels);
  QnAudio_InitWfx(&routedFormat_, rate, QNST_FLOAT64, routed);
  uint32_t mostChannels = routed;
  uint32_t mostBytes = 0;
  for (const MixInput& input : inputs) {
    mostChannels = std::max(mostChannels, input.source.format.channels);
    mostBytes = std::max(mostBytes, input.source.format.FrameBytes());
    tQNASRCOOKED envelope{};
    const uint64_t frames = input.source.frames;
    const uint64_t time = frames / rate * kUnits + (frames % rate * kUnits + rate / 2) / rate;
    QnAudio_ASRCook(&sumFormat_, &input.envelope, &envelope, 0, static_cast<int64_t>(time), input.gain);
    tracks_.push_back({&input, {}, envelope});
  }
  blockFrames_ = std::max<uint32_t>(1, kBlockBytes / (mostChannels * sizeof(double)));
  bytes_.resize(size_t{blockFrames_} * mostBytes);
  decoded_.resize(size_t{blockFrames_} * mostChannels);
  routed_.resize(size_t{blockFrames_} * routed);
  sum_.resize(size_t{blockFrames_} * channels);
}

bool Mixer::Open() {
  return std::all_of(tracks_.begin(), tracks_.end(),
                     [](Track& track) { return track.reader.Open(track.input->source); });
}

const double* Mixer::Mix(uint64_t first, uint32_t frames, const MixInput** failed) {
  std::fill_n(sum_.begin(), size_t{frames} * channels_, 0.0);
  for (Track& track : tracks_) {
    const uint64_t start = std::max(first, track.input->offset);
    const uint64_t end = std::min(first + frames, track.input->offset + track.input->source.frames);
    if (start >= end) continue;
    double* const sum = sum_.data() + (start - first) * channels_;
    if (!Add(&track, start - track.input->offset, static_cast<uint32_t>(end - start), sum)) {
      *failed = track.input;
      return nullptr;
    }
  }
  return sum_.data();
}

bool Mixer::Add(Track* track, uint64_t first, uint32_t frames, double* sum) {
  const AudioFormat& format = track->input->source.format;
  if (!track->reader.Read(first, bytes_.data(), frames)) return false;
  notNumbers_ += SilenceNotNumbers(bytes_.data(), size_t{frames} * format.channels, format.type);
  const QNCOPYFUNCTION decode = QnAudio_GetCopyFunction2(QNST_FLOAT64, format.type);
  decode(decoded_.data(), bytes_.data(), static_cast<LONG>(frames * format.channels), 1.0f);
  const QNMIXCHANNELSFUNCTION add = QnAudio_GetMixChannelsFunction2(QNST_FLOAT64, QNST_FLOAT64);
  const uint32_t routed = routedFormat_.nChannels;
  std::fill_n(routed_.begin(), size_t{frames} * routed, 0.0);
  for (const Route& route : track->input->routes) {
    add(routed_.data(), routed, route.to, decoded_.data(), format.channels, route.from,
        static_cast<LONG>(frames), 1.0);
  }
  // A block may end within a fade, and the next one goes on from there.
  QnAudio_ASRReCook(&track->envelope, static_cast<int64_t>(first));
  QnAudio_MixEx(&sumFormat_, sum, &routedFormat_, routed_.data(), static_cast<int>(frames), &track->envelope);
  return true;
}

}  // namespace qnwave
