#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qndither_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <cmath>
#include <iterator>
#include <type_traits>

#include "qn/dsp/frames-inl.h"
#include "qn/dsp/qndither_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

using Full = hn::ScalableTag<double>;
using One = hn::CappedTag<double, 1>;

constexpr size_t kBlock = 1000;  // samples that are worked on at a time: rounds of the generator, and vectors

// ---------------------------------------------------------------- words

// Draws `count` words. Up to an end of the ring all depend on words of before, so the last vector, which
// overlaps the one in front of it, can be made first.
void DrawWords(QnRand& random, uint32_t* words, size_t count) {
  const hn::ScalableTag<uint32_t> d;
  const size_t lanes = hn::Lanes(d);
  while (count > 0) {
    const size_t run = std::min(count, std::size(random.x) - std::max(random.i, random.j));
    uint32_t* const x = random.x + random.i;
    const uint32_t* const y = random.x + random.j;
    const auto draw = [=](size_t at) HWY_ATTR { return hn::Xor(hn::LoadU(d, x + at), hn::LoadU(d, y + at)); };
    const auto put = [=](hn::Vec<decltype(d)> word, size_t at) HWY_ATTR {
      hn::StoreU(word, d, x + at);
      hn::StoreU(word, d, words + at);
    };
    if (run >= lanes) {
      const auto last = draw(run - lanes);
      for (size_t at = 0; at + lanes < run; at += lanes) put(draw(at), at);
      put(last, run - lanes);
    } else {
      for (size_t at = 0; at < run; ++at) words[at] = x[at] ^= y[at];
    }
    random.i = random.next[random.i + run - 1];
    random.j = random.next[random.j + run - 1];
    words += run;
    count -= run;
  }
}

// Words as numbers from -1 to 1.
template <class D>
HWY_INLINE hn::Vec<D> Uniform(D d, hn::Vec<hn::Rebind<int32_t, D>> words) {
  return hn::Mul(hn::PromoteTo(d, words), hn::Set(d, 0x1p-31));
}

// ---------------------------------------------------------------- noise

// Calls a maker of noise with steps of whole vectors and then of single samples.
template <class Step>
HWY_INLINE void InSteps(size_t at, size_t count, const Step& step) {
  for (; at + hn::Lanes(Full()) <= count; at += hn::Lanes(Full())) step(Full(), at);
  for (; at < count; ++at) step(One(), at);
}

void NoNoise(QnRand*, double*, double, double* noise, size_t count) {
  std::fill_n(noise, count, 0.0);
}

// Makes noise in blocks, of `kWords` words a sample.
template <size_t kWords, class Make>
HWY_INLINE void FromWords(QnRand* random, double* noise, size_t count, const Make& make) {
  alignas(64) int32_t words[kWords * kBlock];
  for (size_t done = 0; done < count; done += kBlock) {
    const size_t part = std::min(count - done, kBlock);
    DrawWords(*random, reinterpret_cast<uint32_t*>(words), kWords * part);
    make(words, noise + done, part);
  }
}

void RectangularNoise(QnRand* random, double*, double amplitude, double* noise, size_t count) {
  FromWords<1>(random, noise, count, [&](const int32_t* words, double* to, size_t part) HWY_ATTR {
    InSteps(0, part, [&](auto d, size_t at) HWY_ATTR {
      const auto r = Uniform(d, hn::LoadU(hn::Rebind<int32_t, decltype(d)>(), words + at));
      hn::StoreU(hn::Mul(r, hn::Set(d, amplitude)), d, to + at);
    });
  });
}

void TriangularNoise(QnRand* random, double*, double amplitude, double* noise, size_t count) {
  FromWords<2>(random, noise, count, [&](const int32_t* words, double* to, size_t part) HWY_ATTR {
    InSteps(0, part, [&](auto d, size_t at) HWY_ATTR {
      const hn::Rebind<int64_t, decltype(d)> pairs;
      const auto pair = hn::LoadU(pairs, reinterpret_cast<const int64_t*>(words + 2 * at));
      // The sum of both words is exact, and so is that of the numbers.
      const auto sum = hn::Add(hn::ShiftRight<32>(hn::ShiftLeft<32>(pair)), hn::ShiftRight<32>(pair));
      const auto r = hn::Mul(hn::ConvertTo(d, sum), hn::Set(d, 0x1p-31));
      hn::StoreU(hn::Mul(r, hn::Set(d, amplitude)), d, to + at);
    });
  });
}

void HighPassNoise(QnRand* random, double* previous, double amplitude, double* noise, size_t count) {
  FromWords<1>(random, noise, count, [&](const int32_t* words, double* to, size_t part) HWY_ATTR {
    to[0] = (words[0] * 0x1p-31 - 0.99 * *previous) * amplitude;
    InSteps(1, part, [&](auto d, size_t at) HWY_ATTR {
      const hn::Rebind<int32_t, decltype(d)> ints;
      const auto r = Uniform(d, hn::LoadU(ints, words + at));
      const auto before = Uniform(d, hn::LoadU(ints, words + at - 1));
      const auto difference = hn::Sub(r, hn::Mul(hn::Set(d, 0.99), before));
      hn::StoreU(hn::Mul(difference, hn::Set(d, amplitude)), d, to + at);
    });
    *previous = words[part - 1] * 0x1p-31;
  });
}

// Marsaglia's polar method, which uses one of the two numbers that it could make.
void GaussianNoise(QnRand* random, double*, double amplitude, double* noise, size_t count) {
  const auto draw = [random]() HWY_ATTR {
    const uint32_t word = random->x[random->i] ^= random->x[random->j];
    random->i = random->next[random->i];
    random->j = random->next[random->j];
    return 2 * (word & 0xFFFF) / 65535.0 - 1;
  };
  for (size_t at = 0; at < count; ++at) {
    double u1, u2, s;
    do {
      u1 = draw();
      u2 = draw();
      s = u1 * u1 + u2 * u2;
    } while (!(s > 0 && s < 1));
    noise[at] = u2 * amplitude * std::sqrt(-2 * std::log(s) / s);
  }
}

QNDITHERNOISE NoiseOf(uint32_t ditherType) {
  constexpr QNDITHERNOISE kNoises[] = {NoNoise,         RectangularNoise, RectangularNoise,
                                       TriangularNoise, HighPassNoise,    GaussianNoise};
  return ditherType < std::size(kNoises) ? kNoises[ditherType] : NoNoise;
}

// ---------------------------------------------------------------- rounding

// The nearest integer, of ties the even one, modulo 2^32: what the sum leaves in the low half of its bits.
template <class D>
HWY_INLINE hn::Vec<D> Rounded(D d, hn::Vec<D> v) {
  const hn::Rebind<uint32_t, D> low;
  const auto bits = hn::BitCast(hn::Rebind<uint64_t, D>(), hn::Add(v, hn::Set(d, 6755399441055744.0)));
  return hn::PromoteTo(d, hn::BitCast(hn::Rebind<int32_t, D>(), hn::TruncateTo(low, bits)));
}

template <class T>
void RoundChannel(CQnDither& dither, T* samples, size_t frames, size_t channels) {
  HWY_ALIGN double x[kBlock], noise[kBlock];
  for (size_t done = 0; done < frames; done += kBlock) {
    const size_t part = std::min(frames - done, kBlock);
    T* const block = samples + done * channels;
    GatherChannel(block, channels, part, x);
    dither.noise(dither.random, &dither.previous, dither.amplitude, noise, part);
    InSteps(0, part, [&](auto d, size_t at) HWY_ATTR {
      const auto sum = hn::Add(hn::LoadU(d, x + at), hn::LoadU(d, noise + at));
      const auto q = Rounded(d, hn::Mul(sum, hn::Set(d, dither.scale)));
      hn::StoreU(hn::Mul(q, hn::Set(d, dither.inverseScale)), d, x + at);
    });
    ScatterChannel(x, channels, part, block);
  }
}

// One channel on its way: its noise, and its errors.
struct Chain {
  QnRand* random;
  double* previous;
  double* error1;
  double* error2;
  HWY_ALIGN double x[kBlock];
  HWY_ALIGN double noise[kBlock];
};

// Each sample waits for the error of the one before, so channels side by side take the time of one.
template <size_t kChains, bool kSecond>
void ShapeBlock(Chain (&chains)[kChains], size_t count, double scale, double inverseScale, double factor) {
  const One d;
  using V = hn::Vec<One>;
  V e1[kChains], e2[kChains];
  for (size_t c = 0; c < kChains; ++c) {
    e1[c] = hn::Set(d, *chains[c].error1);
    e2[c] = hn::Set(d, *chains[c].error2);
  }
  for (size_t at = 0; at < count; ++at) {
    for (size_t c = 0; c < kChains; ++c) {
      V v = hn::Sub(hn::Mul(hn::LoadU(d, chains[c].x + at), hn::Set(d, scale)), e1[c]);
      if (kSecond) {
        v = hn::Add(v, e2[c]);
        e2[c] = hn::Mul(e1[c], hn::Set(d, factor));
      }
      const V q = Rounded(d, hn::Add(v, hn::LoadU(d, chains[c].noise + at)));
      e1[c] = hn::Sub(q, v);
      hn::StoreU(hn::Mul(q, hn::Set(d, inverseScale)), d, chains[c].x + at);
    }
  }
  for (size_t c = 0; c < kChains; ++c) {
    *chains[c].error1 = hn::GetLane(e1[c]);
    *chains[c].error2 = hn::GetLane(e2[c]);
  }
}

template <size_t kChains, class T>
void ShapeChannels(const CQnDither& dither, Chain (&chains)[kChains], T* samples, size_t frames,
                   size_t channels) {
  const bool second = dither.noiseShape != eQNDITHER_SHAPE_FIRST;
  const double factor = dither.noiseShape == eQNDITHER_SHAPE_SECOND_HIGH ? 0.75 : 0.5;
  const auto shape = second ? ShapeBlock<kChains, true> : ShapeBlock<kChains, false>;
  for (size_t done = 0; done < frames; done += kBlock) {
    const size_t part = std::min(frames - done, kBlock);
    T* const block = samples + done * channels;
    for (size_t c = 0; c < kChains; ++c) {
      Chain& chain = chains[c];
      GatherChannel(block + c, channels, part, chain.x);
      dither.noise(chain.random, chain.previous, dither.amplitude, chain.noise, part);
    }
    shape(chains, part, dither.scale, dither.inverseScale, factor);
    for (size_t c = 0; c < kChains; ++c) ScatterChannel(chains[c].x, channels, part, block + c);
  }
}

// Errors that have all but died out would go on as denormal numbers.
double Flushed(double error) {
  constexpr double kLeast = 0x1p-32;
  return std::fabs(error) < kLeast ? 0 : error;
}

// What a channel keeps between calls; those that the object has no room for keep nothing.
struct Errors {
  Errors(CQnDither& dither, size_t channel)
      : error1(channel < CQnDither::kMostShaped ? &dither.error1[channel] : &none1),
        error2(channel < CQnDither::kMostShaped ? &dither.error2[channel] : &none2) {}
  Errors(const Errors&) = delete;
  Errors& operator=(const Errors&) = delete;
  ~Errors() {
    *error1 = Flushed(*error1);
    *error2 = Flushed(*error2);
  }

  double none1 = 0, none2 = 0;
  double* error1;
  double* error2;
};

template <class T>
void ShapeOne(CQnDither& dither, T* samples, size_t channel, size_t frames, size_t channels) {
  Errors errors(dither, channel);
  Chain chains[1];
  chains[0].random = dither.random;
  chains[0].previous = &dither.previous;
  chains[0].error1 = errors.error1;
  chains[0].error2 = errors.error2;
  ShapeChannels(dither, chains, samples + channel, frames, channels);
}

// The noise of the second channel begins where that of the first ends, so the generator runs on there first.
template <class T>
void ShapeTwo(CQnDither& dither, T* samples, size_t channel, size_t frames, size_t channels) {
  Errors errors[2] = {{dither, channel}, {dither, channel + 1}};
  QnRand random = *dither.random;
  double previous = dither.previous;
  Chain chains[2];
  for (size_t done = 0; done < frames; done += kBlock) {
    const size_t part = std::min(frames - done, kBlock);
    dither.noise(dither.random, &dither.previous, dither.amplitude, chains[0].noise, part);
  }
  for (size_t c = 0; c < 2; ++c) {
    chains[c].random = c == 0 ? &random : dither.random;
    chains[c].previous = c == 0 ? &previous : &dither.previous;
    chains[c].error1 = errors[c].error1;
    chains[c].error2 = errors[c].error2;
  }
  ShapeChannels(dither, chains, samples + channel, frames, channels);
}

template <class T>
void DitherAll(CQnDither& dither, T* samples, size_t frames, size_t channels) {
  if (frames == 0) return;
  // Gaussian noise takes too long to be made twice.
  const bool pairs = dither.random && dither.ditherType != eQNDITHER_GAUSSIAN;
  for (size_t channel = 0; channel < channels; ++channel) {
    if (dither.noiseShape == eQNDITHER_SHAPE_NONE) {
      RoundChannel(dither, samples + channel, frames, channels);
    } else if (pairs && channel + 1 < channels) {
      ShapeTwo(dither, samples, channel++, frames, channels);
    } else {
      ShapeOne(dither, samples, channel, frames, channels);
    }
  }
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
