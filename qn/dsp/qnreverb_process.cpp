// A reverberator at work, piece by piece. A piece is so short that no comb and no tap reads in it what the
// piece itself writes; so each step runs over all of it before the next one begins.
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

constexpr size_t kPiece = 128;
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

// A piece of the audio on its way through.
struct Piece {
  size_t frames = 0;
  double dry[2][kPiece];  // the input, and in the end the output
  double fed[kPiece];     // to the combs
  double wet[2][kPiece];
};

// The filters before the combs. Their frames wait for each other; so they run while the combs are at work on
// the piece before, which fills the pauses.
class InputFilter {
 public:
  explicit InputFilter(const HQNREVERB& reverb)
      : a_(reverb.highCutA),
        b_(reverb.highCutB),
        p_(reverb.lowCutP),
        q_(reverb.lowCutQ),
        r_(reverb.lowCutR),
        h_(reverb.highCutState),
        y1_(reverb.lowCutState[0]),
        y2_(reverb.lowCutState[1]),
        lowCut_(reverb.lowCutOn != 0) {}

  void GiveBack(HQNREVERB& reverb) const {
    reverb.highCutState = h_;
    reverb.lowCutState[0] = y1_;
    reverb.lowCutState[1] = y2_;
  }

  void Take(Piece& piece) {
    at_ = piece.fed;
    end_ = piece.fed + piece.frames;
  }

  HWY_INLINE void Run(ptrdiff_t frames) {
    for (double* const stop = at_ + std::min(frames, end_ - at_); at_ != stop; ++at_) {
      h_ = Flushed(*at_ * b_ + h_ * a_);
      *at_ = h_;
      if (!lowCut_) continue;
      const double y = Flushed(h_ * r_ + y1_ * p_ - y2_ * q_);
      y2_ = y1_;
      y1_ = y;
      *at_ -= static_cast<float>(y);  // hosts rely on single precision, for double audio too
    }
  }

 private:
  double a_, b_, p_, q_, r_, h_, y1_, y2_;
  bool lowCut_;
  double* at_ = nullptr;
  double* end_ = nullptr;
};

// Some frames of a ring in one run. They lie in a copy when the ring comes to its end in them.
class Window {
 public:
  template <class Ring>
  double* Open(const Ring& ring, double* cursor, size_t frames) {
    const auto first = static_cast<size_t>(ring.end - cursor);
    if (frames <= first) return cursor;
    std::copy_n(cursor, first, copy_);
    std::copy_n(ring.start, frames - first, copy_ + first);
    return copy_;
  }

  // Puts back what was written to a copy.
  template <class Ring>
  void Close(const Ring& ring, double* cursor, size_t frames) const {
    const auto first = static_cast<size_t>(ring.end - cursor);
    if (frames <= first) return;
    std::copy_n(copy_, first, cursor);
    std::copy_n(copy_ + first, frames - first, ring.start);
  }

 private:
  double copy_[kPiece];
};

template <class Ring>
void Advance(double*& cursor, const Ring& ring, size_t frames) {
  const ptrdiff_t left = ring.end - cursor - static_cast<ptrdiff_t>(frames);
  cursor = left > 0 ? ring.end - left : ring.start - left;
}

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

  void Open(size_t frames) {
    for (size_t i = 0; i < count; ++i) lines[i] = windows[i].Open(*combs[i], combs[i]->cursor, frames);
  }
  void Close(size_t frames) {
    for (size_t i = 0; i < count; ++i) {
      windows[i].Close(*combs[i], combs[i]->cursor, frames);
      Advance(combs[i]->cursor, *combs[i], frames);
    }
  }

  tQNREVERB_COMB* combs[kMostCombs + 2];
  double* lines[kMostCombs + 2];  // of the piece
  size_t shared = 0;
  size_t count;
  Window windows[kMostCombs + 2];
};

// Some combs from frame `at` on, one after the other. Adds what comes out of them to `sum`.
template <bool kFlush>
void RunCombs(tQNREVERB_COMB* const* combs, double* const* lines, size_t count, double a, double b,
              const double* in, double* sum, size_t at, size_t frames) {
  for (size_t c = 0; c < count; ++c) {
    tQNREVERB_COMB& comb = *combs[c];
    double* const line = lines[c];
    for (size_t i = at; i < frames; ++i) {
      const double v = line[i];
      sum[i] += v;
      comb.state = v * b + comb.state * a;
      if (kFlush) comb.state = Flushed(comb.state);
      line[i] = (comb.state + in[i]) * comb.gain;
    }
  }
}

// The lines of combs that are missing in a group.
struct Idle {
  double silence[kPiece] = {};
  double ignored[kPiece];
};

// As many combs as a vector has lanes: their recursions wait for themselves, so they run side by side.
class CombGroup {
 public:
  void Take(tQNREVERB_COMB* const* combs, double* const* lines, size_t count, Idle& idle) {
    combs_ = combs;
    count_ = std::min(count, kLanes);
    for (size_t i = 0; i < kLanes; ++i) {
      lines_[i] = i < count_ ? lines[i] : idle.silence;
      written_[i] = i < count_ ? lines[i] : idle.ignored;
      gains_[i] = i < count_ ? combs[i]->gain : 0;
      states_[i] = i < count_ ? combs[i]->state : 0;
    }
  }
  void GiveBack() const {
    for (size_t i = 0; i < count_; ++i) combs_[i]->state = states_[i];
  }

  // Runs over kLanes frames from `at` on. Gives what comes out of each comb, frames in the lanes: of a
  // missing one zeros, which change no sum.
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
    for (size_t i = 0; i < kLanes; ++i) hn::StoreU(v[i], d, written_[i] + at);
  }

 private:
  HWY_ALIGN double gains_[kLanes];
  HWY_ALIGN double states_[kLanes];
  const double* lines_[kLanes];
  double* written_[kLanes];
  tQNREVERB_COMB* const* combs_;
  size_t count_;
};

// Runs the combs over a piece, and the filters ahead on the next one.
template <bool kStereo>
void RunBank(const HQNREVERB& reverb, Bank<kStereo>& bank, Idle& idle, Piece& piece, InputFilter& filter) {
  const D d;
  const size_t frames = piece.frames;
  bank.Open(frames);
  CombGroup shared[(kMostCombs + kLanes - 1) / kLanes], own[4 / kLanes];
  size_t groups = 0;
  for (size_t i = 0; i < bank.shared; i += kLanes)
    shared[groups++].Take(bank.combs + i, bank.lines + i, bank.shared - i, idle);
  for (size_t g = 0; kStereo && g < 4 / kLanes; ++g) {
    const size_t first = bank.shared + g * kLanes;
    own[g].Take(bank.combs + first, bank.lines + first, kLanes, idle);
  }

  const V a = hn::Set(d, reverb.highCutA), b = hn::Set(d, reverb.highCutB);
  InputFilter ahead = filter;
  size_t i = 0;
  for (; i + kLanes <= frames; i += kLanes) {
    V sum = hn::Zero(d), out[4];
    for (size_t g = 0; g < groups; ++g) {
      shared[g].template Run<false>(a, b, piece.fed, i, out);
      QN_UNROLL
      for (size_t k = 0; k < kLanes; ++k) sum = hn::Add(sum, out[k]);
    }
    if constexpr (kStereo) {
      QN_UNROLL
      for (size_t g = 0; g < 4 / kLanes; ++g) own[g].template Run<true>(a, b, piece.fed, i, out + g * kLanes);
      hn::StoreU(hn::Add(hn::Add(sum, out[2]), out[3]), d, piece.wet[1] + i);
      sum = hn::Add(hn::Add(sum, out[0]), out[1]);
    }
    hn::StoreU(sum, d, piece.wet[0] + i);
    ahead.Run(kLanes);
  }
  filter = ahead;
  for (size_t g = 0; g < groups; ++g) shared[g].GiveBack();
  for (size_t g = 0; kStereo && g < 4 / kLanes; ++g) own[g].GiveBack();

  std::fill(piece.wet[0] + i, piece.wet[0] + frames, 0.0);
  const auto leftOver = [&]<bool kFlush>(size_t first, size_t count, double* sum) {
    RunCombs<kFlush>(bank.combs + first, bank.lines + first, count, reverb.highCutA, reverb.highCutB,
                     piece.fed, sum, i, frames);
  };
  leftOver.template operator()<false>(0, bank.shared, piece.wet[0]);
  if constexpr (kStereo) {
    std::copy(piece.wet[0] + i, piece.wet[0] + frames, piece.wet[1] + i);
    for (size_t c = 0; c < 2; ++c) leftOver.template operator()<true>(bank.shared + 2 * c, 2, piece.wet[c]);
  }
  bank.Close(frames);
}

// Runs over a line up to its end at once: what is read there lies a frame before what is written next.
void RunLine(tQNREVERB_LINE& line, double* wet, size_t frames) {
  const D d;
  for (size_t at = 0; at < frames;) {
    double* const cursor = line.cursor;
    const size_t toLast = std::min(frames - at, static_cast<size_t>(line.end - cursor - 1));
    size_t i = 0;
    const auto exchange = [&](auto lanes) HWY_ATTR {
      const auto written = hn::LoadU(lanes, wet + at + i);
      hn::StoreU(hn::LoadU(lanes, cursor + i + 1), lanes, wet + at + i);
      hn::StoreU(written, lanes, cursor + i);
      i += hn::MaxLanes(lanes);
    };
    while (i + kLanes <= toLast) exchange(d);
    while (i < toLast) exchange(hn::CappedTag<double, 1>());
    at += toLast;
    line.cursor = cursor + toLast;
    if (at == frames) break;
    *line.cursor = wet[at];
    line.cursor = line.start;
    wet[at++] = *line.start;
  }
}

// The taps' lines over a piece, by channel.
using TapLines = double* [2][3];

// Adds everything up over the lanes of `d`, and takes the input into the taps' rings.
template <size_t kChannels, class OutD>
HWY_INLINE void Mix(OutD d, const HQNREVERB& reverb, const TapLines& lines, Piece& piece, size_t at) {
  using Lanes = hn::Vec<OutD>;
  Lanes tap[3];
  QN_UNROLL
  for (size_t k = 0; k < 3; ++k) {
    tap[k] = hn::LoadU(d, lines[0][k] + at);
    if (kChannels == 2) tap[k] = hn::Add(tap[k], hn::LoadU(d, lines[1][k] + at));
  }
  for (size_t c = 0; c < kChannels; ++c) {
    const double* const gains = reverb.tapGains[c];
    const Lanes x = hn::LoadU(d, piece.dry[c] + at);
    Lanes sum = hn::Mul(tap[0], hn::Set(d, gains[0]));
    QN_UNROLL
    for (size_t k = 1; k < 3; ++k) sum = hn::Add(sum, hn::Mul(tap[k], hn::Set(d, gains[k])));
    sum = hn::Mul(sum, hn::Set(d, reverb.earlyLevel));
    sum = hn::Add(sum, hn::Mul(hn::LoadU(d, piece.wet[c] + at), hn::Set(d, reverb.reverbLevel)));
    sum = hn::Add(sum, hn::Mul(x, hn::Set(d, reverb.dryLevel)));
    hn::StoreU(x, d, lines[c][2] + at);
    hn::StoreU(sum, d, piece.dry[c] + at);
  }
}

template <size_t kChannels>
void MixPiece(HQNREVERB& reverb, Piece& piece) {
  const size_t frames = piece.frames;
  Window windows[kChannels][3];
  TapLines lines;
  for (size_t c = 0; c < kChannels; ++c)
    for (size_t k = 0; k < 3; ++k)
      lines[c][k] = windows[c][k].Open(reverb.taps[c], reverb.taps[c].tap[k], frames);
  size_t i = 0;
  for (; i + kLanes <= frames; i += kLanes) Mix<kChannels>(D(), reverb, lines, piece, i);
  for (; i < frames; ++i) Mix<kChannels>(hn::CappedTag<double, 1>(), reverb, lines, piece, i);
  for (size_t c = 0; c < kChannels; ++c) {
    tQNREVERB_TAPS& ring = reverb.taps[c];
    windows[c][2].Close(ring, ring.tap[2], frames);
    for (double*& tap : ring.tap) Advance(tap, ring, frames);
  }
}

// No longer than any comb, and than any tap is behind the input.
template <bool kStereo>
size_t LongestPiece(const HQNREVERB& reverb, const Bank<kStereo>& bank) {
  auto most = static_cast<ptrdiff_t>(kPiece);
  for (size_t i = 0; i < bank.count; ++i) most = std::min(most, bank.combs[i]->end - bank.combs[i]->start);
  const auto& [start, tap, end] = reverb.taps[0];
  for (const double* reader : tap) {
    const ptrdiff_t delay = tap[2] - reader;
    most = std::min(most, delay > 0 ? delay : delay + (end - start));
  }
  return static_cast<size_t>(most);
}

template <size_t kChannels, class T>
void TakeIn(const HQNREVERB& reverb, const T* in, size_t frames, Piece& piece) {
  const D d;
  const V scale = hn::Set(d, reverb.inputScale), half = hn::Set(d, 0.5);
  piece.frames = frames;
  for (size_t c = 0; c < kChannels; ++c) GatherChannel(in + c, kChannels, piece.frames, piece.dry[c]);
  // What stands behind the frames does no harm.
  for (size_t i = 0; i < piece.frames; i += kLanes) {
    V sum = hn::Zero(d);
    for (size_t c = 0; c < kChannels; ++c) {
      const V x = hn::Mul(hn::LoadU(d, piece.dry[c] + i), scale);
      hn::StoreU(x, d, piece.dry[c] + i);
      sum = c == 0 ? x : hn::Add(sum, x);
    }
    hn::StoreU(kChannels == 2 ? hn::Mul(sum, half) : sum, d, piece.fed + i);
  }
}

template <size_t kChannels, class T>
void Run(HQNREVERB& reverb, T* out, const T* in, size_t frames) {
  Bank<kChannels == 2> bank(reverb);
  const size_t longest = LongestPiece(reverb, bank);
  Piece pieces[2];
  Idle idle;
  InputFilter filter(reverb);
  TakeIn<kChannels>(reverb, in, std::min(frames, longest), pieces[0]);
  filter.Take(pieces[0]);
  filter.Run(kPiece);
  for (size_t done = 0, turn = 0; done < frames; turn ^= 1) {
    Piece& piece = pieces[turn];
    const size_t next = done + piece.frames;
    TakeIn<kChannels>(reverb, in + next * kChannels, std::min(frames - next, longest), pieces[turn ^ 1]);
    filter.Take(pieces[turn ^ 1]);
    RunBank(reverb, bank, idle, piece, filter);
    filter.Run(kPiece);
    for (size_t c = 0; c < kChannels; ++c) RunLine(reverb.lines[c], piece.wet[c], piece.frames);
    MixPiece<kChannels>(reverb, piece);
    for (size_t c = 0; c < kChannels; ++c)
      ScatterChannel(piece.dry[c], kChannels, piece.frames, out + done * kChannels + c);
    done = next;
  }
  filter.GiveBack(reverb);
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
