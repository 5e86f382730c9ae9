// A recursive filter over interleaved audio, block by block: the gain, the cascade, and the dry signal.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qniir_process.cpp"
// Vectors of four doubles are enough, and wider ones would not make the recursions wait less.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <type_traits>

#include "qn/dsp/frames-inl.h"
#include "qn/dsp/qniir_cascade-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

template <class D, class T>
HWY_INLINE hn::Vec<D> LoadSamples(D d, const T* p) {
  return WideSamples(d, hn::LoadU(hn::Rebind<T, D>(), p));
}

// v = in * gain, and out = in * dry + v, of `count` samples that lie `stride` apart in the audio.
template <class T>
void TakeIn(const T* in, size_t stride, double gain, double* v, size_t count) {
  const hn::CappedTag<double, 4> d;
  size_t i = 0;
  if (stride == 1) {
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
      hn::StoreU(hn::Mul(LoadSamples(d, in + i), hn::Set(d, gain)), d, v + i);
  }
  for (; i < count; ++i) v[i] = in[i * stride] * gain;
}

template <class T>
void GiveOut(T* out, const T* in, size_t stride, double dry, const double* v, size_t count) {
  const hn::CappedTag<double, 4> d;
  size_t i = 0;
  if (stride == 1) {
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
      const auto wet = hn::LoadU(d, v + i);
      StoreSamples(d, hn::Add(hn::Mul(LoadSamples(d, in + i), hn::Set(d, dry)), wet), out + i);
    }
  }
  for (; i < count; ++i) out[i * stride] = static_cast<T>(in[i * stride] * dry + v[i]);
}

// Runs kChannels channels, of which the first is `channel`. Samples of a channel lie `stride` apart; for two
// channels the audio has no others.
template <size_t kChannels, class T>
void Run(CQnIIR& filter, size_t channel, T* out, const T* in, size_t stride, size_t frames) {
  constexpr size_t kBlock = 512;  // fits the first cache together with its audio
  HWY_ALIGN double v[kBlock * kChannels];
  for (size_t done = 0; done < frames;) {
    const size_t block = std::min(frames - done, kBlock);
    const size_t offset = done * stride * kChannels + channel;
    TakeIn(in + offset, stride, filter.gain, v, block * kChannels);
    RunStages<kChannels>(filter.biquads, filter.numBiquads, channel, v, block);
    GiveOut(out + offset, in + offset, stride, filter.dry, v, block * kChannels);
    done += block;
  }
}

void RunBothFloat(CQnIIR& filter, float* out, const float* in, size_t frames) {
  Run<2>(filter, 0, out, in, 1, frames);
}
void RunBothDouble(CQnIIR& filter, double* out, const double* in, size_t frames) {
  Run<2>(filter, 0, out, in, 1, frames);
}
void RunOneFloat(CQnIIR& filter, size_t channel, float* out, const float* in, size_t frames) {
  Run<1>(filter, channel, out, in, filter.channels, frames);
}
void RunOneDouble(CQnIIR& filter, size_t channel, double* out, const double* in, size_t frames) {
  Run<1>(filter, channel, out, in, filter.channels, frames);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {
namespace {

HWY_EXPORT(RunBothFloat);
HWY_EXPORT(RunBothDouble);
HWY_EXPORT(RunOneFloat);
HWY_EXPORT(RunOneDouble);

void RunBoth(CQnIIR& filter, float* out, const float* in, size_t frames) {
  HWY_DYNAMIC_DISPATCH(RunBothFloat)(filter, out, in, frames);
}
void RunBoth(CQnIIR& filter, double* out, const double* in, size_t frames) {
  HWY_DYNAMIC_DISPATCH(RunBothDouble)(filter, out, in, frames);
}
void RunOne(CQnIIR& filter, size_t channel, float* out, const float* in, size_t frames) {
  HWY_DYNAMIC_DISPATCH(RunOneFloat)(filter, channel, out, in, frames);
}
void RunOne(CQnIIR& filter, size_t channel, double* out, const double* in, size_t frames) {
  HWY_DYNAMIC_DISPATCH(RunOneDouble)(filter, channel, out, in, frames);
}

template <class T>
void Process(CQnIIR& filter, T* out, const T* in, DWORD frames, DWORD mask) {
  constexpr DWORD kBoth = 3;
  if (mask == 0) mask = kBoth;
  if (mask != filter.lastChannelMask) {
    filter.Reset(mask & ~filter.lastChannelMask);
    filter.lastChannelMask = mask;
  }
  if (!out || !in) return;
  // Bits of channels that a filter never has keep doubles from running together, but not floats.
  const DWORD together = std::is_same_v<T, float> ? mask & kBoth : mask;
  if (filter.useSIMD && filter.channels == 2 && together == kBoth) {
    RunBoth(filter, out, in, frames);
    return;
  }
  for (DWORD channel = 0; channel < std::min<DWORD>(filter.channels, 2); ++channel)
    if (mask >> channel & 1) RunOne(filter, channel, out, in, frames);
}

}  // namespace
}  // namespace qn

void CQnIIR::ProcessFloat(float* out, const float* in, DWORD frames, DWORD channelMask) {
  qn::Process(*this, out, in, frames, channelMask);
}

void CQnIIR::ProcessDouble(double* out, const double* in, DWORD frames, DWORD channelMask) {
  qn::Process(*this, out, in, frames, channelMask);
}
#endif
