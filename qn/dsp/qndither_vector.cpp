#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qndither_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "qn/dsp/frames-inl.h"
#include "qn/dsp/qndither_noise-inl.h"
#include "qn/dsp/qndither_shape-inl.h"
#include "qn/dsp/qndither_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// ---------------------------------------------------------------- sources of noise

// What a channel draws from.
struct Source {
  void Make(const CQnDither& dither, double* noise, size_t count) const {
    dither.noise(random, previous, dither.amplitude, noise, count);
  }

  QnRand* random;
  double* previous;
};

// Leaves out the noise of so many samples.
void Skip(CQnDither& dither, size_t samples) {
  if (dither.noise == NoNoise) return;
  const bool twice = dither.noise == NoiseOfKind<Triangular>;
  Words<2> words;
  for (size_t left = twice ? 2 * samples : samples; left > 0;) {
    // Of an odd word out there is no pair.
    const size_t pairs = std::min(left / 2, kBlock);
    if (pairs > 0) words.Draw(*dither.random, pairs);
    left -= 2 * pairs;
    if (left == 1) Words<1>().Draw(*dither.random, left--);
  }
  if (dither.noise == NoiseOfKind<HighPass>) dither.previous = LastNumber(*dither.random);
}

// The noise of a second channel begins where that of the first ends, so the generator runs on there, and a
// copy of it makes that of the first.
template <size_t kChannels>
struct Sources {
  Sources(CQnDither& dither, size_t frames) : previous(dither.previous) {
    of[kChannels - 1] = {dither.random, &dither.previous};
    if constexpr (kChannels == 2) {
      random = *dither.random;
      of[0] = {&random, &previous};
      Skip(dither, frames);
    }
  }
  Sources(const Sources&) = delete;
  Sources& operator=(const Sources&) = delete;

  Source of[kChannels];
  QnRand random;
  double previous;
};

// ---------------------------------------------------------------- rounding

template <class T>
void RoundChannel(const CQnDither& dither, const Source& source, T* samples, size_t frames, size_t channels) {
  HWY_ALIGN double x[kBlock], noise[kBlock];
  for (size_t done = 0; done < frames; done += kBlock) {
    const size_t part = std::min(frames - done, kBlock);
    T* const block = samples + done * channels;
    GatherChannel(block, channels, part, x);
    source.Make(dither, noise, part);
    InSteps(part, [&](auto d, size_t at) HWY_ATTR {
      const auto sum = hn::Add(hn::LoadU(d, x + at), hn::LoadU(d, noise + at));
      const auto q = Rounded(d, hn::Mul(sum, hn::Set(d, dither.scale)));
      hn::StoreU(hn::Mul(q, hn::Set(d, dither.inverseScale)), d, x + at);
    });
    ScatterChannel(x, channels, part, block);
  }
}

#if HWY_TARGET != HWY_SCALAR

// Whole vectors of floats of one or two channels, without a way through memory. The scale is a power of two,
// so that the integers can be made without it, and floats of them: no bit is another.
template <class Kind, size_t kChannels>
void RoundVectors(const CQnDither& dither, const Source* sources, float* samples, size_t frames) {
  const hn::ScalableTag<float> d;
  const hn::Repartition<double, decltype(d)> wide;
  const hn::Rebind<float, decltype(wide)> half;
  const hn::Repartition<uint64_t, decltype(d)> pairs;
  const hn::RebindToUnsigned<decltype(d)> bits;
  const hn::Rebind<uint32_t, decltype(wide)> halfBits;
  const size_t lanes = hn::Lanes(wide);
  const auto amplitude = hn::Set(wide, dither.amplitude * kUnit);
  const auto rounder = hn::Set(wide, kRounder * dither.inverseScale);
  const auto inverseScale = hn::Set(d, static_cast<float>(dither.inverseScale));
  const auto rounded = [&](hn::Vec<decltype(half)> x, const int32_t* words) HWY_ATTR {
    const auto noise = hn::Mul(Kind::Make(wide, words), amplitude);
    return hn::BitCast(pairs, hn::Add(hn::Add(hn::PromoteTo(wide, x), noise), rounder));
  };
  const auto put = [&](hn::Vec<decltype(bits)> q, float* to) HWY_ATTR {
    const auto integers = hn::ConvertTo(d, hn::BitCast(hn::RebindToSigned<decltype(d)>(), q));
    hn::StoreU(hn::Mul(integers, inverseScale), d, to);
  };
  Words<Kind::kWords> words[kChannels];
  for (size_t done = 0; done < frames; done += kBlock) {
    const size_t part = std::min(frames - done, kBlock);
    const int32_t* from[kChannels];
    for (size_t c = 0; c < kChannels; ++c) from[c] = words[c].Draw(*sources[c].random, part);
    float* to = samples + done * kChannels;
    if constexpr (kChannels == 1) {
      for (size_t at = 0; at < part; at += 2 * lanes) {
        const auto low = rounded(hn::LoadU(half, to + at), from[0] + Kind::kWords * at);
        const auto high = rounded(hn::LoadU(half, to + at + lanes), from[0] + Kind::kWords * (at + lanes));
        put(hn::ConcatEven(bits, hn::BitCast(bits, high), hn::BitCast(bits, low)), to + at);
      }
    } else {
      for (size_t at = 0; at < part; at += lanes, to += 2 * lanes) {
        const auto both = hn::BitCast(pairs, hn::LoadU(d, to));
        const auto left = hn::BitCast(half, hn::TruncateTo(halfBits, both));
        const auto right = hn::BitCast(half, hn::TruncateTo(halfBits, hn::ShiftRight<32>(both)));
        const auto low = rounded(left, from[0] + Kind::kWords * at);
        const auto high = hn::ShiftLeft<32>(rounded(right, from[1] + Kind::kWords * at));
        put(hn::OddEven(hn::BitCast(bits, high), hn::BitCast(bits, low)), to);
      }
    }
  }
}

template <class Kind, size_t kChannels>
void RoundFloats(CQnDither& dither, float* samples, size_t frames) {
  Sources<kChannels> sources(dither, frames);
  const size_t whole = frames - frames % hn::Lanes(hn::ScalableTag<float>());
  RoundVectors<Kind, kChannels>(dither, sources.of, samples, whole);
  for (size_t c = 0; c < kChannels; ++c) {
    if (std::is_same_v<Kind, HighPass>) *sources.of[c].previous = LastNumber(*sources.of[c].random);
    RoundChannel(dither, sources.of[c], samples + whole * kChannels + c, frames - whole, kChannels);
  }
}

#endif  // HWY_TARGET

// False if the samples, the noise and the channels are to take the general way.
template <class T>
bool RoundInVectors(CQnDither&, T*, size_t, size_t) {
  return false;
}
#if HWY_TARGET != HWY_SCALAR
bool RoundInVectors(CQnDither& dither, float* samples, size_t frames, size_t channels) {
  int exponent;
  if (channels > 2 || std::frexp(dither.scale, &exponent) != 0.5 || dither.inverseScale != 1 / dither.scale)
    return false;
  const auto round = [&]<class Kind>(Kind) {
    (channels == 1 ? RoundFloats<Kind, 1> : RoundFloats<Kind, 2>)(dither, samples, frames);
    return true;
  };
  if (dither.noise == NoiseOfKind<Rectangular>) return round(Rectangular());
  if (dither.noise == NoiseOfKind<Triangular>) return round(Triangular());
  // In vectors the number before the first one is that of the word drawn last, which it is not at first.
  if (dither.noise == NoiseOfKind<HighPass> && dither.previous == LastNumber(*dither.random))
    return round(HighPass());
  return false;
}
#endif

// ---------------------------------------------------------------- shaping

// Without noise the errors of silence die out.
double Flushed(double error, double least) {
  return std::fabs(error) < least ? 0 : error;
}

template <size_t kChains, class T>
void ShapeChannels(CQnDither& dither, T* samples, size_t channel, size_t frames, size_t channels) {
  // Within a call only what would slow the next block down goes.
  constexpr double kLeastInCall = std::numeric_limits<double>::min(), kLeastKept = 0x1p-32;
  Sources<kChains> sources(dither, frames);
  const bool second = dither.noiseShape != eQNDITHER_SHAPE_FIRST;
  const double factor = dither.noiseShape == eQNDITHER_SHAPE_SECOND_HIGH ? 0.75 : 0.5;
  const auto shape = second ? ShapeBlock<kChains, true> : ShapeBlock<kChains, false>;
  Chain chains[kChains];
  for (size_t c = 0; c < kChains; ++c) {
    // Channels that the object has no room for begin with no error, and keep none.
    const bool kept = channel + c < CQnDither::kMostShaped;
    chains[c].e1 = kept ? dither.error1[channel + c] : 0;
    chains[c].e2 = kept ? dither.error2[channel + c] : 0;
  }
  for (size_t done = 0; done < frames; done += kShapeBlock) {
    const size_t part = std::min(frames - done, kShapeBlock);
    T* const block = samples + done * channels + channel;
    for (size_t c = 0; c < kChains; ++c) {
      Chain& chain = chains[c];
      GatherChannel(block + c, channels, part, chain.x);
      chain.noise[0] = 0;
      sources.of[c].Make(dither, chain.noise + 1, part);
      InSteps(part, [&](auto d, size_t at) HWY_ATTR {
        const auto x = hn::Mul(hn::LoadU(d, chain.x + at), hn::Set(d, dither.scale));
        const auto step = hn::Sub(hn::LoadU(d, chain.noise + 1 + at), hn::LoadU(d, chain.noise + at));
        hn::StoreU(x, d, chain.x + at);
        hn::StoreU(hn::Add(x, step), d, chain.steps + at);
      });
    }
    shape(chains, part, dither.inverseScale, factor);
    for (size_t c = 0; c < kChains; ++c) {
      ScatterChannel(chains[c].v, channels, part, block + c);
      chains[c].e1 = Flushed(chains[c].e1, kLeastInCall);
      chains[c].e2 = Flushed(chains[c].e2, kLeastInCall);
    }
  }
  for (size_t c = 0; c < kChains && channel + c < CQnDither::kMostShaped; ++c) {
    dither.error1[channel + c] = Flushed(chains[c].e1, kLeastKept);
    dither.error2[channel + c] = Flushed(chains[c].e2, kLeastKept);
  }
}

// ---------------------------------------------------------------- all channels

template <class T>
void DitherAll(CQnDither& dither, T* samples, size_t frames, size_t channels) {
  if (frames == 0 || channels == 0) return;
  if (!dither.random && dither.noise != NoiseOf(eQNDITHER_NONE)) return;
  if (dither.noiseShape == eQNDITHER_SHAPE_NONE) {
    if (RoundInVectors(dither, samples, frames, channels)) return;
    const Source source{dither.random, &dither.previous};
    for (size_t channel = 0; channel < channels; ++channel)
      RoundChannel(dither, source, samples + channel, frames, channels);
    return;
  }
  // The draws of Gaussian noise can not be counted without making it, nor those of a host's own.
  const bool pairs =
      dither.random && dither.ditherType != eQNDITHER_GAUSSIAN && dither.noise == NoiseOf(dither.ditherType);
  size_t channel = 0;
  for (; pairs && channel + 2 <= channels; channel += 2)
    ShapeChannels<2>(dither, samples, channel, frames, channels);
  for (; channel < channels; ++channel) ShapeChannels<1>(dither, samples, channel, frames, channels);
}

void DitherFloats(CQnDither& dither, float* samples, size_t frames, size_t channels) {
  DitherAll(dither, samples, frames, channels);
}
void DitherDoubles(CQnDither& dither, double* samples, size_t frames, size_t channels) {
  DitherAll(dither, samples, frames, channels);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(NoiseOf);
HWY_EXPORT(DitherFloats);
HWY_EXPORT(DitherDoubles);

QNDITHERNOISE FindDitherNoise(uint32_t ditherType) {
  return HWY_DYNAMIC_DISPATCH(NoiseOf)(ditherType);
}
void Dither(CQnDither& dither, float* samples, size_t frames, size_t channels) {
  HWY_DYNAMIC_DISPATCH(DitherFloats)(dither, samples, frames, channels);
}
void Dither(CQnDither& dither, double* samples, size_t frames, size_t channels) {
  HWY_DYNAMIC_DISPATCH(DitherDoubles)(dither, samples, frames, channels);
}

}  // namespace qn
#endif
