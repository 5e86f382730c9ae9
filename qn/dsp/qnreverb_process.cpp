// A reverberator at work, block by block. A block is so short that no ring comes to its end in it and that no
// tap reads what the block writes; so each step runs over all of it before the next one begins.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qnreverb_process.cpp"
// Vectors of four doubles are enough: there are no more than three groups of four combs.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <bit>
#include <cstdint>

#include "qn/dsp/frames-inl.h"
#include "qn/dsp/qnreverb.h"

// Loops over a few vectors must be unrolled, or the vectors take the way through memory.
#ifndef QN_UNROLL
#define QN_UNROLL _Pragma("GCC unroll 4")
#endif

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

constexpr size_t kBlock = 256;
constexpr size_t kMostCombs = 10;

using D = hn::CappedTag<double, 4>;
using V = hn::Vec<D>;
constexpr size_t kLanes = hn::MaxLanes(D());

// A state below 2 to the power of -32 is 0, which keeps it from decaying into denormals.
constexpr double kTiny = 0x1p-32;

// In the bits, and not as a value: a branch that is foretold does not make the next frame wait.
HWY_INLINE double Flushed(double state) {
  if (std::bit_cast<uint64_t>(state) << 1 < std::bit_cast<uint64_t>(kTiny) << 1) return 0;
  return state;
}

HWY_INLINE V FlushedLanes(V states) {
  return hn::IfThenZeroElse(hn::Lt(hn::Abs(states), hn::Set(D(), kTiny)), states);
}

// v[i] lane j becomes v[j] lane i.
HWY_INLINE void Transpose([[maybe_unused]] V* v) {
#if HWY_TARGET != HWY_SCALAR
  const D d;
  if constexpr (kLanes == 2) {
    const V low = hn::InterleaveLower(d, v[0], v[1]);
    v[1] = hn::InterleaveUpper(d, v[0], v[1]);
    v[0] = low;
  } else if constexpr (kLanes == 4) {
    const V low01 = hn::InterleaveLower(d, v[0], v[1]), high01 = hn::InterleaveUpper(d, v[0], v[1]);
    const V low23 = hn::InterleaveLower(d, v[2], v[3]), high23 = hn::InterleaveUpper(d, v[2], v[3]);
    v[0] = hn::ConcatLowerLower(d, low23, low01);
    v[1] = hn::ConcatLowerLower(d, high23, high01);
    v[2] = hn::ConcatUpperUpper(d, low23, low01);
    v[3] = hn::ConcatUpperUpper(d, high23, high01);
  }
#endif
}

// What a block passes through.
struct Work {
  double dry[2][kBlock];  // the input, and in the end the output
  double fed[kBlock];     // to the combs
  double wet[2][kBlock];
  double idle[kBlock];  // where the lanes without a comb work
};

// The combs of a reverberator in the order in which they are added up: those of all channels, and for stereo
// four of which two belong to each.
template <bool kStereo>
struct Bank {
  explicit Bank(HQNREVERB& reverb) {
    for (DWORD i = kStereo ? 2 : 0; i < reverb.combCount; ++i) combs[shared++] = &reverb.combs[i];
    count = shared;
    if constexpr (kStereo) {
      for (tQNREVERB_COMB* own : {reverb.combs, reverb.rightCombs})
        for (size_t i = 0; i < 2; ++i) combs[count++] = &own[i];
    }
  }

  tQNREVERB_COMB* combs[kMostCombs + 2];
  size_t shared = 0;
  size_t count;
};

// Some combs from frame `at` on, one after the other. Adds what comes out of them to `sum`.
template <bool kFlush>
void RunCombs(tQNREVERB_COMB* const* combs, size_t count, double a, double b, const double* in, double* sum,
              size_t at, size_t frames) {
  for (tQNREVERB_COMB* const* comb = combs; comb != combs + count; ++comb) {
    auto& [start, line, end, gain, state, length] = **comb;
    for (size_t i = at; i < frames; ++i) {
      const double v = line[i];
      sum[i] += v;
      state = v * b + state * a;
      if (kFlush) state = Flushed(state);
      line[i] = (state + in[i]) * gain;
    }
  }
}

// As many combs as a vector has lanes: their recursions wait for themselves, so they run side by side.
class CombGroup {
 public:
  void Take(tQNREVERB_COMB* const* combs, size_t count, double* idle) {
    combs_ = combs;
    count_ = std::min(count, kLanes);
    for (size_t i = 0; i < kLanes; ++i) {
      lines_[i] = i < count_ ? combs[i]->cursor : idle;
      gains_[i] = i < count_ ? combs[i]->gain : 0;
      states_[i] = i < count_ ? combs[i]->state : 0;
    }
  }
  void GiveBack() const {
    for (size_t i = 0; i < count_; ++i) combs_[i]->state = states_[i];
  }

  // Runs over kLanes frames from `at` on. Gives what comes out of each comb, frames in the lanes.
  template <bool kFlush>
  HWY_INLINE void Run(V a, V b, const double* in, size_t at, V* out) {
    const D d;
    V v[kLanes];
    QN_UNROLL
    for (size_t i = 0; i < kLanes; ++i) out[i] = v[i] = hn::LoadU(d, lines_[i] + at);
    Transpose(v);
    const V gains = hn::Load(d, gains_);
    V states = hn::Load(d, states_);
    QN_UNROLL
    for (size_t i = 0; i < kLanes; ++i) {
      states = hn::Add(hn::Mul(v[i], b), hn::Mul(states, a));
      if constexpr (kFlush) states = FlushedLanes(states);
      v[i] = hn::Mul(hn::Add(states, hn::Set(d, in[at + i])), gains);
    }
    hn::Store(states, d, states_);
    Transpose(v);
    QN_UNROLL
    for (size_t i = 0; i < kLanes; ++i) hn::StoreU(v[i], d, lines_[i] + at);
  }

  HWY_INLINE V AddTo(V sum, const V* out) const {
    for (size_t i = 0; i < count_; ++i) sum = hn::Add(sum, out[i]);
    return sum;
  }

 private:
  HWY_ALIGN double gains_[kLanes];
  HWY_ALIGN double states_[kLanes];
  double* lines_[kLanes];
  tQNREVERB_COMB* const* combs_;
  size_t count_;
};

template <bool kStereo>
void RunBank(const HQNREVERB& reverb, const Bank<kStereo>& bank, Work& work, size_t frames) {
  const D d;
  CombGroup shared[(kMostCombs + kLanes - 1) / kLanes], own[4 / kLanes];
  size_t groups = 0;
  for (size_t i = 0; i < bank.shared; i += kLanes)
    shared[groups++].Take(bank.combs + i, bank.shared - i, work.idle);
  for (size_t g = 0; kStereo && g < 4 / kLanes; ++g)
    own[g].Take(bank.combs + bank.shared + g * kLanes, kLanes, work.idle);

  const V a = hn::Set(d, reverb.highCutA), b = hn::Set(d, reverb.highCutB);
  size_t i = 0;
  for (; i + kLanes <= frames; i += kLanes) {
    V sum = hn::Zero(d), out[4];
    for (size_t g = 0; g < groups; ++g) {
      shared[g].template Run<false>(a, b, work.fed, i, out);
      sum = shared[g].AddTo(sum, out);
    }
    if constexpr (kStereo) {
      for (size_t g = 0; g < 4 / kLanes; ++g) own[g].template Run<true>(a, b, work.fed, i, out + g * kLanes);
      hn::StoreU(hn::Add(hn::Add(sum, out[2]), out[3]), d, work.wet[1] + i);
      sum = hn::Add(hn::Add(sum, out[0]), out[1]);
    }
    hn::StoreU(sum, d, work.wet[0] + i);
  }
  for (size_t g = 0; g < groups; ++g) shared[g].GiveBack();
  for (size_t g = 0; kStereo && g < 4 / kLanes; ++g) own[g].GiveBack();

  std::fill(work.wet[0] + i, work.wet[0] + frames, 0.0);
  const double oneA = reverb.highCutA, oneB = reverb.highCutB;
  RunCombs<false>(bank.combs, bank.shared, oneA, oneB, work.fed, work.wet[0], i, frames);
  if constexpr (kStereo) {
    std::copy(work.wet[0] + i, work.wet[0] + frames, work.wet[1] + i);
    for (size_t channel = 0; channel < 2; ++channel) {
      RunCombs<true>(bank.combs + bank.shared + 2 * channel, 2, oneA, oneB, work.fed, work.wet[channel], i,
                     frames);
    }
  }
}

template <bool kStereo>
void FilterInput(HQNREVERB& reverb, Work& work, size_t frames) {
  const double a = reverb.highCutA, b = reverb.highCutB;
  const double p = reverb.lowCutP, q = reverb.lowCutQ, r = reverb.lowCutR;
  double h = reverb.highCutState, y1 = reverb.lowCutState[0], y2 = reverb.lowCutState[1];
  for (size_t i = 0; i < frames; ++i) {
    const double x = kStereo ? (work.dry[0][i] + work.dry[1][i]) * 0.5 : work.dry[0][i];
    h = Flushed(x * b + h * a);
    double s = h;
    if (reverb.lowCutOn) {
      const double y = Flushed(s * r + y1 * p - y2 * q);
      y2 = y1;
      y1 = y;
      s -= static_cast<float>(y);  // hosts rely on single precision, for double audio too
    }
    work.fed[i] = s;
  }
  reverb.highCutState = h;
  reverb.lowCutState[0] = y1;
  reverb.lowCutState[1] = y2;
}

void RunLine(tQNREVERB_LINE& line, double* wet, size_t frames) {
  double* cursor = line.cursor;
  for (size_t i = 0; i < frames; ++i) {
    *cursor = wet[i];
    if (++cursor == line.end) cursor = line.start;
    wet[i] = *cursor;
  }
  line.cursor = cursor;
}

// Adds everything up over the lanes of `d`, and takes the input into the taps' rings.
template <size_t kChannels, class OutD>
HWY_INLINE void Mix(OutD d, HQNREVERB& reverb, Work& work, size_t at) {
  using Lanes = hn::Vec<OutD>;
  Lanes tap[3];
  QN_UNROLL
  for (size_t k = 0; k < 3; ++k) {
    tap[k] = hn::LoadU(d, reverb.taps[0].tap[k] + at);
    if (kChannels == 2) tap[k] = hn::Add(tap[k], hn::LoadU(d, reverb.taps[1].tap[k] + at));
  }
  for (size_t c = 0; c < kChannels; ++c) {
    const double* const gains = reverb.tapGains[c];
    const Lanes x = hn::LoadU(d, work.dry[c] + at);
    Lanes sum = hn::Mul(tap[0], hn::Set(d, gains[0]));
    QN_UNROLL
    for (size_t k = 1; k < 3; ++k) sum = hn::Add(sum, hn::Mul(tap[k], hn::Set(d, gains[k])));
    sum = hn::Mul(sum, hn::Set(d, reverb.earlyLevel));
    sum = hn::Add(sum, hn::Mul(hn::LoadU(d, work.wet[c] + at), hn::Set(d, reverb.reverbLevel)));
    sum = hn::Add(sum, hn::Mul(x, hn::Set(d, reverb.dryLevel)));
    hn::StoreU(x, d, reverb.taps[c].tap[2] + at);
    hn::StoreU(sum, d, work.dry[c] + at);
  }
}

template <size_t kChannels>
void MixAll(HQNREVERB& reverb, Work& work, size_t frames) {
  size_t i = 0;
  for (; i + kLanes <= frames; i += kLanes) Mix<kChannels>(D(), reverb, work, i);
  for (; i < frames; ++i) Mix<kChannels>(hn::CappedTag<double, 1>(), reverb, work, i);
}

// How many frames lie before the end of a ring, or before a tap meets what the block writes.
template <bool kStereo>
size_t BlockOf(const HQNREVERB& reverb, const Bank<kStereo>& bank) {
  ptrdiff_t most = kBlock;
  for (size_t i = 0; i < bank.count; ++i) most = std::min(most, bank.combs[i]->end - bank.combs[i]->cursor);
  const auto& [start, tap, end] = reverb.taps[0];
  for (const double* reader : tap) {
    const ptrdiff_t delay = tap[2] - reader;
    most = std::min({most, end - reader, delay > 0 ? delay : delay + (end - start)});
  }
  return static_cast<size_t>(most);
}

template <class Ring>
void Advance(double*& cursor, const Ring& ring, size_t frames) {
  cursor += frames;
  if (cursor == ring.end) cursor = ring.start;
}

template <size_t kChannels, class T>
void Run(HQNREVERB& reverb, T* out, const T* in, size_t frames) {
  constexpr bool kStereo = kChannels == 2;
  const Bank<kStereo> bank(reverb);
  Work work;
  std::ranges::fill(work.idle, 0.0);
  for (size_t done = 0, block; done < frames; done += block) {
    block = std::min(frames - done, BlockOf(reverb, bank));
    for (size_t c = 0; c < kChannels; ++c) {
      GatherChannel(in + done * kChannels + c, kChannels, block, work.dry[c]);
      for (size_t i = 0; i < block; ++i) work.dry[c][i] *= reverb.inputScale;
    }
    FilterInput<kStereo>(reverb, work, block);
    RunBank(reverb, bank, work, block);
    for (size_t c = 0; c < kChannels; ++c) RunLine(reverb.lines[c], work.wet[c], block);
    MixAll<kChannels>(reverb, work, block);
    for (size_t c = 0; c < kChannels; ++c) {
      ScatterChannel(work.dry[c], kChannels, block, out + done * kChannels + c);
      for (double*& tap : reverb.taps[c].tap) Advance(tap, reverb.taps[c], block);
    }
    for (size_t i = 0; i < bank.count; ++i) Advance(bank.combs[i]->cursor, *bank.combs[i], block);
  }
}

template <class T>
void Process(HQNREVERB& reverb, T* out, const T* in, DWORD frames) {
  if (reverb.channels == 1) Run<1>(reverb, out, in, frames);
  if (reverb.channels == 2) Run<2>(reverb, out, in, frames);
}

void ProcessFloats(HQNREVERB& reverb, float* out, const float* in, DWORD frames) {
  Process(reverb, out, in, frames);
}
void ProcessDoubles(HQNREVERB& reverb, double* out, const double* in, DWORD frames) {
  Process(reverb, out, in, frames);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {
namespace {

HWY_EXPORT(ProcessFloats);
HWY_EXPORT(ProcessDoubles);

void Process(HQNREVERB& reverb, float* out, const float* in, DWORD frames) {
  HWY_DYNAMIC_DISPATCH(ProcessFloats)(reverb, out, in, frames);
}
void Process(HQNREVERB& reverb, double* out, const double* in, DWORD frames) {
  HWY_DYNAMIC_DISPATCH(ProcessDoubles)(reverb, out, in, frames);
}

}  // namespace
}  // namespace qn

void QnReverbProcess(HQNREVERB* handle, float* out, const float* in, DWORD frames) {
  if (handle && out && in) qn::Process(*handle, out, in, frames);
}

void QnReverbProcess(HQNREVERB* handle, double* out, const double* in, DWORD frames) {
  if (handle && out && in) qn::Process(*handle, out, in, frames);
}
#endif
