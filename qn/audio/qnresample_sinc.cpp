// The sinc of 25 taps, its table and its history.
#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

#include "qn/audio/qnresample_internal.h"
#include "qn/audio/qnresample_vector.h"
#include "qn/kernel/qnkernel_internal.h"

namespace {

using Instance = tQNRESAMPLEINSTANCE;
constexpr size_t kTablePoints = 1003;

// One table serves all instances, and goes with the first of them that is closed.
constinit qn::SincPoint* g_table = nullptr;

__attribute__((constructor(101))) void Register() {
  qn::Steps().releaseSincTable = qn::ReleaseSincTable;
}

// 13 lobes of a sinc under the four-term Blackman-Harris window; the points behind them are 0.
double TablePoint(int i) {
  if (i == 0) return 1.0;
  const double x = static_cast<double>(qn::kSincPrime) * i / qn::kSincPoints * std::numbers::pi;
  const double y = x / qn::kSincPrime + std::numbers::pi;
  return (0.35875 - 0.48829 * std::cos(y) + 0.14128 * std::cos(2 * y) - 0.01168 * std::cos(3 * y)) *
         (std::sin(x) / x);
}

// Where some outputs of a call lie: the newest of the frames that each is made of, counted from the call's
// first frame that is not in the ring yet, and how far the output lies behind the frame in the middle.
struct Block {
  static constexpr size_t kOutputs = 64;
  static constexpr size_t kBehind = 16;  // samples that vectors read behind the last one
  int64_t newest[kOutputs];
  double fractions[kOutputs];
  size_t count;
};

template <class T>
class Sinc {
 public:
  Sinc(Instance& instance, T* dst, const T* src, int64_t frames)
      : instance_(instance),
        channels_(static_cast<size_t>(instance.channels)),
        dst_(dst),
        src_(src),
        frames_(frames),
        isFlush_(frames == 0) {}

  // Puts frames into the ring until it is full enough for the first output. False while it is not.
  bool Prime() {
    if (!instance_.needsPrime) return true;
    if (instance_.ringFill == 0) {
      instance_.ringPos = 0;
      instance_.ringIndex = 0;
    }
    for (; instance_.ringFill < qn::kSincPrime && frames_ > 0; Skip(1)) {
      const int slot = qn::kSincPrime - 1 - instance_.ringFill++;
      for (size_t i = 0; i < channels_; ++i) instance_.ring[i * qn::kSincTaps + slot] = src_[i];
    }
    // A flush takes zeros, which the ring is full of, for the frames that never came.
    if (instance_.ringFill < qn::kSincPrime && (!isFlush_ || instance_.ringFill == 0)) return false;
    instance_.needsPrime = false;
    return true;
  }

  // Makes up to `outputs` outputs and takes all frames that are left into the ring. The outputs made.
  int64_t Run(const qn::SincPoint* table, int64_t outputs, double hop) {
    int64_t made = 0;
    double clock = 0;
    ringPos_ = instance_.ringPos;
    Block block;
    do {
      block.count = 0;
      while (made + static_cast<int64_t>(block.count) < outputs && block.count < Block::kOutputs &&
             FeedUpTo(clock)) {
        block.newest[block.count] = fed_ - 1;
        block.fractions[block.count++] = clock - ringPos_;
        clock += hop;
      }
      MakeBlock(table, block, dst_ + static_cast<size_t>(made) * channels_);
      made += static_cast<int64_t>(block.count);
    } while (block.count != 0);
    instance_.ringPos = ringPos_;
    TakeRest();
    return made;
  }

  void TakeRest() {
    if (fed_ < frames_) {
      instance_.ringPos += static_cast<double>(frames_ - fed_);
      fed_ = frames_;
    }
    for (int64_t frame = std::max<int64_t>(fed_ - qn::kSincTaps, 0); frame < fed_; ++frame) {
      instance_.ringIndex = instance_.wrap[instance_.ringIndex];
      for (size_t i = 0; i < channels_; ++i)
        instance_.ring[i * qn::kSincTaps + static_cast<size_t>(instance_.ringIndex)] = SourceFrame(frame, i);
    }
  }

 private:
  void Skip(int64_t frames) {
    src_ += static_cast<size_t>(frames) * channels_;
    frames_ -= frames;
  }

  // Moves the ring on until the time lies less than a frame behind its middle. False when no frame is left
  // for that; a flush goes on with zeros for as many frames as the ring holds, and one that found the end
  // finds nothing more.
  bool FeedUpTo(double clock) {
    if (isFlush_ && instance_.ringFill < 0) return false;
    while (clock - ringPos_ - 1.0 >= 0) {
      if (fed_ == frames_ && !isFlush_) return false;
      ringPos_ += 1.0;
      ++fed_;
      if (isFlush_ && --instance_.ringFill < 0) return false;
    }
    return true;
  }

  double SourceFrame(int64_t frame, size_t channel) const {
    return frame < frames_ ? src_[static_cast<size_t>(frame) * channels_ + channel] : 0.0;
  }

  // Frames before the call's first come from the ring.
  double Sample(int64_t frame, size_t channel) const {
    if (frame >= 0) return SourceFrame(frame, channel);
    const int64_t slot = (instance_.ringIndex - 1 - frame) % qn::kSincTaps;
    return instance_.ring[channel * qn::kSincTaps + static_cast<size_t>(slot)];
  }

  // The frames of a block one after the other, without those between that no output is made of. `places` are
  // those of the newest frames.
  void GatherSamples(const Block& block, size_t channel, double* samples, int64_t* places) const {
    const int64_t oldest = block.newest[0] - (qn::kSincTaps - 1), newest = block.newest[block.count - 1];
    int64_t used = 0;
    if (oldest >= 0 && newest < frames_ && newest - oldest < qn::kSincTaps * int64_t{Block::kOutputs}) {
      const T* from = src_ + static_cast<size_t>(oldest) * channels_ + channel;
      for (; used <= newest - oldest; from += channels_) samples[used++] = *from;
      for (size_t n = 0; n < block.count; ++n) places[n] = block.newest[n] - oldest;
    } else {
      int64_t next = oldest;
      for (size_t n = 0; n < block.count; ++n) {
        next = std::max(next, block.newest[n] - (qn::kSincTaps - 1));
        for (; next <= block.newest[n]; ++next) samples[used++] = Sample(next, channel);
        places[n] = used - 1;
      }
    }
    std::fill_n(samples + used, Block::kBehind, 0.0);
  }

  void MakeBlock(const qn::SincPoint* table, Block& block, T* dst) const {
    if (block.count == 0) return;
    double weights[qn::kSincTaps * Block::kOutputs];
    // Whole vectors are made of the last output once more, and vectors reach behind the samples.
    std::fill(block.fractions + block.count, std::end(block.fractions), block.fractions[block.count - 1]);
    qn::SincWeights(table, block.fractions, block.count, Block::kOutputs, instance_.tableScale, weights);
    double samples[qn::kSincTaps * Block::kOutputs + Block::kBehind], sums[Block::kOutputs];
    int64_t places[Block::kOutputs];
    for (size_t channel = 0; channel < channels_; ++channel) {
      GatherSamples(block, channel, samples, places);
      std::fill(places + block.count, std::end(places), places[block.count - 1]);
      qn::SincSums(weights, Block::kOutputs, samples, places, block.count, sums);
      for (size_t n = 0; n < block.count; ++n) dst[n * channels_ + channel] = static_cast<T>(sums[n]);
    }
  }

  Instance& instance_;
  size_t channels_;
  T* dst_;
  const T* src_;
  int64_t frames_;
  bool isFlush_;
  int64_t fed_ = 0;
  double ringPos_ = 0;  // the instance's, while outputs are counted
};

template <class T>
LONG Fit(Instance& instance, QNSAMPLETYPE type, T* dst, LONG dstFrames, const T* src, LONG srcFrames) {
  const qn::SincPoint* const table = qn::MakeSincTable() ? g_table : nullptr;
  if (!table) return 0;
  const double hop = srcFrames == 0 ? instance.step : static_cast<double>(srcFrames) / dstFrames;
  if (hop < 1.0 && instance.IsFiltering())
    qn::FilterFrames(instance, type, const_cast<T*>(src), src, srcFrames);
  Sinc<T> sinc(instance, dst, src, srcFrames);
  const bool wasPrimed = !instance.needsPrime;
  const bool isPrimed = sinc.Prime();
  LONG made = 0;
  if (dstFrames == 0) {
    // The clock of the outputs goes on over frames that are too few for one, from the first output on.
    if (isPrimed) sinc.TakeRest();
    if (wasPrimed) instance.ringPos -= srcFrames;
  } else if (isPrimed) {
    made = static_cast<LONG>(sinc.Run(table, dstFrames, hop));
    instance.ringPos -= made * hop;
  }
  if (hop > 1.0 && instance.IsFiltering()) qn::FilterFrames(instance, type, dst, dst, made);
  return made;
}

}  // namespace

namespace qn {

bool MakeSincTable() {
  if (g_table) return true;
  g_table = new (std::nothrow) SincPoint[kTablePoints]();
  if (!g_table) return false;
  for (int i = 0; i < kSincPoints; ++i) g_table[i].value = TablePoint(i);
  for (int i = 0; i < kSincPoints - 1; ++i) g_table[i].rise = g_table[i + 1].value - g_table[i].value;
  return true;
}

void ReleaseSincTable() {
  delete[] g_table;
  g_table = nullptr;
}

}  // namespace qn

LONG QnAudio_Resample_Sinc(QNSAMPLETYPE type, LONG channels, void* dst, LONG dstFrames, const void* src,
                           LONG srcFrames, tQNRESAMPLEINSTANCE* instance) {
  if (!instance || !instance->ring || channels != instance->channels) return 0;
  if (src == dst || dstFrames < 0 || srcFrames < 0 || (dstFrames > 0 && !dst) || (srcFrames > 0 && !src))
    return 0;
  if (type == QNST_FLOAT32)
    return Fit(*instance, type, static_cast<float*>(dst), dstFrames, static_cast<const float*>(src),
               srcFrames);
  if (type == QNST_FLOAT64)
    return Fit(*instance, type, static_cast<double*>(dst), dstFrames, static_cast<const double*>(src),
               srcFrames);
  return 0;
}
