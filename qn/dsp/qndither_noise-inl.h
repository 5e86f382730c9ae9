// The words of the dither's generator, and the noise that is made of them, for one instruction set.

#if defined(QN_DSP_QNDITHER_NOISE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_DSP_QNDITHER_NOISE_INL_H_
#undef QN_DSP_QNDITHER_NOISE_INL_H_
#else
#define QN_DSP_QNDITHER_NOISE_INL_H_
#endif

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>

#include "hwy/highway.h"
#include "qn/dsp/qndither.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Full = hn::ScalableTag<double>;
using One = hn::CappedTag<double, 1>;

constexpr size_t kBlock = 1024;  // samples that are worked on at a time: whole vectors

// ---------------------------------------------------------------- words

constexpr size_t kHistory = 250, kLag = 103;  // of the generator
static_assert(sizeof(QnRand::x) == kHistory * sizeof(uint32_t));

// The words of a block of samples. Those that were drawn before are in front of them.
template <size_t kWordsPerSample>
class Words {
 public:
  const int32_t* Draw(QnRand& random, size_t samples);

 private:
  static constexpr size_t kRoom = (kHistory + 15) / 16 * 16;
  alignas(64) uint32_t all_[kRoom + kWordsPerSample * kBlock];
};

// Each word is the exclusive or of two before it. Once both were made that way, the rule holds for twice the
// distances as well, and so on: it is "squared" then. A word that is needed later has reached memory by then,
// and is not waited for.
template <size_t kWordsPerSample>
const int32_t* Words<kWordsPerSample>::Draw(QnRand& random, size_t samples) {
  const hn::ScalableTag<uint32_t> d;
  const size_t lanes = hn::Lanes(d), count = kWordsPerSample * samples;
  uint32_t* const x = random.x;
  uint32_t* const words = all_ + kRoom;
  std::copy(x + random.i, x + kHistory, words - kHistory);
  std::copy(x, x + random.i, words - random.i);
  size_t at = 0;
  for (size_t power = 1; at < count; power *= 2) {
    constexpr size_t kMostPower = 4;
    const size_t end = power < kMostPower ? std::min(count, at + power * kHistory) : count;
    const size_t far = power * kHistory, near = power * (kHistory - kLag);
    const uint32_t* const oldest = words - far;
    for (; at + lanes <= end; at += lanes)
      hn::StoreU(hn::Xor(hn::LoadU(d, oldest + at), hn::LoadU(d, oldest + (far - near) + at)), d, words + at);
    for (; at < end; ++at) words[at] = oldest[at] ^ oldest[far - near + at];
  }
  random.i = static_cast<uint32_t>((random.i + count) % kHistory);
  random.j = static_cast<uint32_t>((random.i + kLag) % kHistory);
  std::copy(words + count - kHistory, words + count - random.i, x + random.i);
  std::copy(words + count - random.i, words + count, x);
  return reinterpret_cast<const int32_t*>(words);
}

// ---------------------------------------------------------------- noise

// Words count as numbers from -1 to 1.
constexpr double kUnit = 0x1p-31;

// The kinds of noise that are the same for all samples; in units of kUnit, which changes no bit of what
// follows.

struct Rectangular {
  static constexpr size_t kWords = 1;
  template <class D>
  static HWY_INLINE hn::Vec<D> Make(D d, const int32_t* words) {
    return hn::PromoteTo(d, hn::LoadU(hn::Rebind<int32_t, D>(), words));
  }
};

struct Triangular {
  static constexpr size_t kWords = 2;
  template <class D>
  static HWY_INLINE hn::Vec<D> Make(D d, const int32_t* words) {
    const auto pair = hn::LoadU(hn::Rebind<int64_t, D>(), reinterpret_cast<const int64_t*>(words));
    // The sum of both words is exact, and so is that of the numbers.
    return hn::ConvertTo(d, hn::Add(hn::ShiftRight<32>(hn::ShiftLeft<32>(pair)), hn::ShiftRight<32>(pair)));
  }
};

struct HighPass {
  static constexpr size_t kWords = 1;
  template <class D>
  static HWY_INLINE hn::Vec<D> Make(D d, const int32_t* words) {
    const auto before = hn::Mul(hn::Set(d, 0.99), Rectangular::Make(d, words - 1));
    return hn::Sub(Rectangular::Make(d, words), before);
  }
};

double LastNumber(const QnRand& random) {
  return static_cast<int32_t>(random.x[(random.i + kHistory - 1) % kHistory]) * kUnit;
}

// Calls `step` for whole vectors and then for single samples.
template <class Step>
HWY_INLINE void InSteps(size_t count, const Step& step) {
  size_t at = 0;
  for (; at + hn::Lanes(Full()) <= count; at += hn::Lanes(Full())) step(Full(), at);
  for (; at < count; ++at) step(One(), at);
}

void NoNoise(QnRand*, double*, double, double* noise, size_t count) {
  std::fill_n(noise, count, 0.0);
}

template <class Kind>
void NoiseOfKind(QnRand* random, double* previous, double amplitude, double* noise, size_t count) {
  Words<Kind::kWords> words;
  for (size_t done = 0; done < count; done += kBlock) {
    const size_t part = std::min(count - done, kBlock);
    const int32_t* const from = words.Draw(*random, part);
    double* const to = noise + done;
    InSteps(part, [&](auto d, size_t at) HWY_ATTR {
      const auto r = Kind::Make(d, from + Kind::kWords * at);
      hn::StoreU(hn::Mul(r, hn::Set(d, amplitude * kUnit)), d, to + at);
    });
    if constexpr (std::is_same_v<Kind, HighPass>) {
      to[0] = (from[0] * kUnit - 0.99 * *previous) * amplitude;
      *previous = LastNumber(*random);
    }
  }
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
  constexpr QNDITHERNOISE kNoises[] = {NoNoise,
                                       NoiseOfKind<Rectangular>,
                                       NoiseOfKind<Rectangular>,
                                       NoiseOfKind<Triangular>,
                                       NoiseOfKind<HighPass>,
                                       GaussianNoise};
  return ditherType < std::size(kNoises) ? kNoises[ditherType] : NoNoise;
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif
