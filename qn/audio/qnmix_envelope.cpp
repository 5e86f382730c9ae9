// Mixing under an attack-sustain-release envelope.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qnmix_internal.h"

namespace qn {
namespace {

static_assert(offsetof(tQNASR, attackTime) == 8 && offsetof(tQNASR, attackCurve) == 24 &&
              offsetof(tQNASR, releaseLevel) == 36 && sizeof(tQNASR) == 40);
static_assert(offsetof(tQNASRCOOKED, sustainFrames) == 16 && offsetof(tQNASRCOOKED, level) == 32 &&
              offsetof(tQNASRCOOKED, gainStep2) == 80 && sizeof(tQNASRCOOKED) == 88);
static_assert(sizeof(QNPEAKRESULT) == 12);

constexpr size_t kChunk = 512;  // samples whose gains are laid out at a time

// ---------------------------------------------------------------- preparation

int64_t FramesOf(int64_t time, DWORD rate) {
  const double frames = static_cast<double>(time) * 1e-7 * static_cast<double>(rate) + 0.5;
  if (frames >= 0x1p63) return std::numeric_limits<int64_t>::max();
  return frames <= -0x1p63 ? std::numeric_limits<int64_t>::min() : static_cast<int64_t>(frames);
}

int64_t ClipFrames(int64_t frames) {
  return std::clamp<int64_t>(frames, 0, std::numeric_limits<int32_t>::max());
}

// Differences and sums of frames that end at the limits of their type instead of running over.
int64_t Minus(int64_t a, int64_t b) {
  int64_t result;
  if (!__builtin_sub_overflow(a, b, &result)) return result;
  return b < 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}
int64_t Plus(int64_t a, int64_t b) {
  int64_t result;
  if (!__builtin_add_overflow(a, b, &result)) return result;
  return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}

// The factor of the stored integers. The 24-bit words and signed bytes have none here: hosts rely on it.
double FactorOf(QNSAMPLETYPE type) {
  switch (type) {
    case QNST_PCM8U:
      return 0x1p-7;
    case QNST_PCM16:
      return 0x1p-15;
    case QNST_PCM24:
      return 0x1p-23;
    case QNST_PCM32:
      return 0x1p-31;
    default:
      return 1.0;
  }
}

void EnterSegment(tQNASRCOOKED& cooked, double from, double to, int32_t curve, int64_t offset,
                  int64_t length) {
  cooked.framesLeft = Minus(length, offset);
  double slope = (to - from) / static_cast<double>(length);
  const bool fromEnd = curve < 0;  // counts from the end of the segment backward
  if (fromEnd) slope = -slope;
  const double s = fromEnd ? -1.0 : 1.0, base = fromEnd ? to : from;
  const double t = static_cast<double>(fromEnd ? cooked.framesLeft : offset);
  if (curve >= -1 && curve <= 1) {
    cooked.gain = base + slope * t;
    cooked.gainStep = slope * s;
    cooked.gainStep2 = 0;
  } else {
    slope /= static_cast<double>(length);
    cooked.gain = base + slope * (t * t);
    cooked.gainStep = slope * ((s + t) * (s + t) - t * t);
    cooked.gainStep2 = 2 * slope;
  }
}

void EnterConstant(tQNASRCOOKED& cooked, double gain, int64_t framesLeft) {
  cooked.framesLeft = framesLeft;
  cooked.gain = gain;
  cooked.gainStep = cooked.gainStep2 = 0;
}

// ---------------------------------------------------------------- kernels

// The gains of an envelope, frame by frame.
class Gains {
 public:
  explicit Gains(const tQNASRCOOKED& envelope)
      : gain_(envelope.gain), step_(envelope.gainStep), step2_(envelope.gainStep2) {}

  bool AreConstant() const { return step_ == 0 && step2_ == 0; }
  double Present() const { return gain_; }

  // True if all gains of a chunk stay far from overflow and underflow: their sums have no bits below those of
  // the terms.
  bool AreModerate() const {
    for (const double x : {gain_, step_, step2_}) {
      if (x != 0 && !(std::fabs(x) >= 0x1p-800 && std::fabs(x) <= 0x1p800)) return false;
    }
    return true;
  }
  void Advance() {
    gain_ += step_;
    step_ += step2_;
  }

 private:
  double gain_, step_, step2_;
};

// Lays out the gains of `count` samples, times `factor`. `channel` goes round with them.
void LayOut(double* to, size_t count, double factor, size_t channels, size_t& channel, Gains& gains) {
  Gains running = gains;  // a copy, so that it stays in registers
  size_t place = channel;
  for (size_t i = 0; i < count; ++i) {
    to[i] = running.Present() * factor;
    if (++place < channels) continue;
    place = 0;
    running.Advance();
  }
  channel = place;
  gains = running;
}

void MixFrames(const MixPair& pair, void* dst, const void* src, size_t frames, size_t channels,
               Gains& gains) {
  const size_t samples = frames * channels;
  const double constant = gains.Present();
  if (gains.AreConstant()) return MixSamples(pair, dst, src, samples, &constant, 1);
  double chunk[kChunk + kConvertBlock] = {};
  size_t channel = 0;
  for (size_t done = 0; done < samples;) {
    const size_t count = std::min(samples - done, kChunk);
    uint8_t* const to = static_cast<uint8_t*>(dst) + done * pair.dstBytes;
    const uint8_t* const from = static_cast<const uint8_t*>(src) + done * pair.srcBytes;
    const bool moderate = gains.AreModerate();
    LayOut(chunk, count, moderate ? pair.factor : 1.0, channels, channel, gains);
    moderate ? MixLaidOut(pair, to, from, count, chunk) : MixSamples(pair, to, from, count, chunk, count);
    done += count;
  }
}

template <int kDst, int kSrc>
void MixGeneral(void* dst, const void* src, LONG frames, DWORD channels, tQNASRCOOKED* envelope) {
  if (frames <= 0 || channels == 0) return;
  Gains gains(*envelope);
  MixFrames(kMixPair<kDst, kSrc, Product::kRaw>, dst, src, static_cast<size_t>(frames), channels, gains);
}

template <int kDst, int kSrc>
void MixStereo(void* dst, const void* src, LONG frames, tQNASRCOOKED* envelope) {
  MixGeneral<kDst, kSrc>(dst, src, frames, 2, envelope);
}

// Adds the sum of two source samples, made as doubles in the integers' own units.
template <int kDst, int kSrc>
void MixSumOfTwo(void* dst, const void* src, LONG frames, tQNASRCOOKED* envelope) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  constexpr const MixPair& kPair = kMixPair<kDst, QNST_FLOAT64, Product::kRaw>;
  const CopyPair& decode = FindCopyPair(SampleFormIndex(QNST_FLOAT64), SampleFormIndex(kSrc));
  Gains gains(*envelope);
  double sums[kChunk];
  for (size_t done = 0, all = static_cast<size_t>(std::max(frames, 0)); done < all;) {
    const size_t count = std::min(all - done, kChunk / 2);
    CopySamples(decode, sums, static_cast<const uint8_t*>(src) + 2 * done * from.bytes, 2 * count, 1.0f);
    for (size_t i = 0; i < count; ++i) sums[i] = (sums[2 * i] + sums[2 * i + 1]) * FullScale(from);
    MixFrames(kPair, static_cast<uint8_t*>(dst) + done * to.bytes, sums, count, 1, gains);
    done += count;
  }
}

// The kernels of one pair of types.
struct EnvelopeKernels {
  QNMIXEXNARROWFUNCTION sumOfTwo;
  QNMIXEXNARROWFUNCTION stereo;
  QNMIXEXFUNCTION general;
};

template <int kDst, int kSrc>
constexpr EnvelopeKernels MakeKernels() {
  constexpr int kReadAs = kSrc == QNST_PCM24IN32 ? int{QNST_PCM32} : kSrc;
  return {MixSumOfTwo<kDst, kReadAs>, MixStereo<kDst, kReadAs>, MixGeneral<kDst, kReadAs>};
}

struct EnvelopeRow {
  EnvelopeKernels from[kMixForms];
};
template <int kDst, size_t... kSrc>
constexpr EnvelopeRow MakeRow(std::index_sequence<kSrc...>) {
  return {{MakeKernels<kDst, kSampleForms[kSrc].type>()...}};
}
template <int kDst>
constexpr EnvelopeRow kRow = MakeRow<kDst>(std::make_index_sequence<kMixForms>());

// Null when the destination is neither float nor double, and for sources that do not mix.
const EnvelopeKernels* FindKernels(QNSAMPLETYPE dst, QNSAMPLETYPE src) {
  const int index = SampleFormIndex(src);
  if (index < 0 || index >= kMixForms) return nullptr;
  if (dst == QNST_FLOAT32) return &kRow<QNST_FLOAT32>.from[index];
  return dst == QNST_FLOAT64 ? &kRow<QNST_FLOAT64>.from[index] : nullptr;
}

// The three kernels under one signature.
void RunKernel(const EnvelopeKernels& kernels, DWORD channels, void* dst, const void* src, LONG frames,
               tQNASRCOOKED* envelope) {
  if (channels == 1) {
    kernels.sumOfTwo(dst, src, frames, envelope);
  } else if (channels == 2) {
    kernels.stereo(dst, src, frames, envelope);
  } else {
    kernels.general(dst, src, frames, channels, envelope);
  }
}

void MixUnderEnvelope(const EnvelopeKernels& kernels, const WAVEFORMATEX* dstFormat, uint8_t* dst,
                      const WAVEFORMATEX* srcFormat, const uint8_t* src, int frames, tQNASRCOOKED* envelope) {
  while (frames > 0) {
    const int count = static_cast<int>(std::clamp<int64_t>(envelope->framesLeft, 0, frames));
    RunKernel(kernels, dstFormat->nChannels, dst, src, count, envelope);
    envelope->position = Plus(envelope->position, count);
    envelope->framesLeft -= count;
    frames -= count;
    if (frames > 0 && envelope->framesLeft <= 0) QnAudio_ASRReCook(envelope, envelope->position);
    dst += static_cast<size_t>(count) * dstFormat->nBlockAlign;
    src += static_cast<size_t>(count) * srcFormat->nBlockAlign;
  }
}

}  // namespace
}  // namespace qn

extern "C" {

QNMIXEXFUNCTION QnAudio_GetMixExFunction(const WAVEFORMATEX* dstFormat, const WAVEFORMATEX* srcFormat) {
  const qn::EnvelopeKernels* const kernels =
      qn::FindKernels(QnAudio_GetSampleType(dstFormat), QnAudio_GetSampleType(srcFormat));
  if (kernels == nullptr) return nullptr;
  if (dstFormat->nChannels != 1 && dstFormat->nChannels != 2) return kernels->general;
  const QNMIXEXNARROWFUNCTION narrow = dstFormat->nChannels == 1 ? kernels->sumOfTwo : kernels->stereo;
  return reinterpret_cast<QNMIXEXFUNCTION>(reinterpret_cast<void (*)()>(narrow));
}

HRESULT QnAudio_MixEx(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                      const void* src, int frames, tQNASRCOOKED* envelope) {
  constexpr HRESULT kWithoutEnvelope = 1;
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr) return E_POINTER;
  const QNSAMPLETYPE dstType = QnAudio_GetSampleType(dstFormat), srcType = QnAudio_GetSampleType(srcFormat);
  const QNMIXFUNCTION plain = QnAudio_GetMixFunction2(dstType, srcType);
  if (plain == nullptr) return E_NOTIMPL;
  if (dst == nullptr || src == nullptr) return E_POINTER;
  const qn::EnvelopeKernels* const kernels =
      envelope == nullptr ? nullptr : qn::FindKernels(dstType, srcType);
  if (kernels != nullptr) {
    qn::MixUnderEnvelope(*kernels, dstFormat, static_cast<uint8_t*>(dst), srcFormat,
                         static_cast<const uint8_t*>(src), frames, envelope);
    return S_OK;
  }
  qn::MixAtUnity(plain, dstType, dst, srcType, src, int64_t{frames} * srcFormat->nChannels);
  return envelope == nullptr ? S_OK : kWithoutEnvelope;
}

void QnAudio_ASRCook(const WAVEFORMATEX* format, const tQNASR* envelope, tQNASRCOOKED* cooked, int64_t start,
                     int64_t totalTime, double gain) {
  if (format == nullptr || envelope == nullptr || cooked == nullptr) return;
  const DWORD rate = format->nSamplesPerSec;
  gain *= qn::FactorOf(QnAudio_GetSampleType(format));
  cooked->level = static_cast<double>(envelope->level) * gain;
  cooked->attackLevel = static_cast<double>(envelope->attackLevel) * gain;
  cooked->releaseLevel = static_cast<double>(envelope->releaseLevel) * gain;
  cooked->attackCurve = envelope->attackCurve;
  cooked->releaseCurve = envelope->releaseCurve;
  int64_t attack = qn::ClipFrames(qn::FramesOf(envelope->attackTime, rate));
  int64_t release = qn::ClipFrames(qn::FramesOf(envelope->releaseTime, rate));
  const int64_t total = std::max<int64_t>(qn::FramesOf(totalTime, rate), std::numeric_limits<int32_t>::min());
  cooked->sustainFrames = total - attack - release;
  if (cooked->sustainFrames < 0) {
    cooked->sustainFrames = 0;
    release = total / 2;
    attack = total - release;
  }
  cooked->attackFrames = static_cast<int32_t>(attack);
  cooked->releaseFrames = static_cast<int32_t>(release);
  QnAudio_ASRReCook(cooked, start);
}

void QnAudio_ASRReCook(tQNASRCOOKED* cooked, int64_t position) {
  if (cooked == nullptr) return;
  cooked->position = position;
  if (position < cooked->attackFrames) {
    return qn::EnterSegment(*cooked, cooked->attackLevel, cooked->level, cooked->attackCurve, position,
                            cooked->attackFrames);
  }
  const int64_t inSustain = qn::Minus(position, cooked->attackFrames);
  if (inSustain < cooked->sustainFrames) {
    return qn::EnterConstant(*cooked, cooked->level, qn::Minus(cooked->sustainFrames, inSustain));
  }
  const int64_t inRelease = qn::Minus(inSustain, cooked->sustainFrames);
  if (inRelease < cooked->releaseFrames) {
    return qn::EnterSegment(*cooked, cooked->level, cooked->releaseLevel, cooked->releaseCurve, inRelease,
                            cooked->releaseFrames);
  }
  qn::EnterConstant(*cooked, cooked->releaseLevel, std::numeric_limits<int64_t>::max());
}
}
