// The kernels with a history: the cubic spline and the windowed sinc. Both walk the stream in segments; each
// channel of a segment lies in a block of doubles behind the frames that came before it.
#include "qn/audio/qnresample2_kernels.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "qn/dsp/qnfir_vector.h"
#include "qn/kernel/qncpu.h"

namespace qn {

bool PhaseCycle::Lay(const ResampleClock& clock, uint32_t outputsOfGroup, uint32_t longest) {
  *this = PhaseCycle();
  srcUnits = clock.srcUnits;
  dstUnits = clock.dstUnits;
  const int64_t grid = std::gcd(srcUnits, dstUnits);
  const int64_t phases = dstUnits / grid;
  if (phases > longest) return false;
  // Of a short turn several make one, so that groups are full; in a long one the last may have places left.
  constexpr int64_t kShort = 64;
  const int64_t turns = phases < kShort ? outputsOfGroup / std::gcd<int64_t>(phases, outputsOfGroup) : 1;
  group = outputsOfGroup;
  period = static_cast<uint32_t>(phases * turns);
  srcPeriod = static_cast<uint32_t>(srcUnits / grid * turns);
  base.reset(new (std::nothrow) uint32_t[Groups()]);
  if (!base) return false;
  for (uint32_t i = 0; i < Groups(); ++i)
    base[i] = static_cast<uint32_t>(static_cast<int64_t>(i) * group * srcUnits / dstUnits);
  return true;
}

bool PhaseCycle::Find(const ResampleClock& clock) {
  if (phase == clock.phase) return true;
  for (uint32_t place = 0; place < period; ++place) {
    if (place * srcUnits % dstUnits == clock.phase) {
      MoveTo(place, clock);
      return true;
    }
  }
  return false;
}

namespace {

constexpr size_t kSegment = 1280;  // frames in, and frames out, of a piece of a call
constexpr size_t kMostSpan = 64;   // of a group of the sinc; larger steps go output by output
constexpr size_t kMostTapBytes = 4 << 20;
constexpr uint32_t kMostPhases = 8192;
// What a segment holds of groups, of which the last of each turn of 64 or more outputs is cut off.
constexpr size_t kMostGroups = kSegment / kSincGroup + kSegment / 64 + 2;
constexpr size_t kTogether = 2;  // channels that share a pass over the taps

// A block: places before and behind it that only taps of 0 meet, the history, and the frames of a segment.
constexpr size_t kHistoryAt = kMostSpan;
constexpr size_t kFramesAt = kHistoryAt + kSincTaps;
constexpr size_t kBlock = kFramesAt + kSegment + kMostSpan;

// One segment: its outputs with the frames that each must have seen, and their fractions.
struct Segment {
  size_t frames;
  size_t outputs;
  size_t taken;  // frames
  bool cyclic;   // the outputs are those of a turn; the arrays are not filled
  uint32_t at;   // place of the first in it
  int64_t load;  // of the first
  uint32_t loads[kSegment];
  double fractions[kSegment];
};

// Plans the outputs that `frames` frames and `room` places give, and moves the clock behind them.
void Plan(Segment& segment, size_t frames, size_t room, ResampleClock& clock, SincCycle* cycle) {
  segment.frames = frames;
  segment.cyclic = cycle;
  segment.load = clock.load;
  const int64_t limit = static_cast<int64_t>(frames);
  int64_t last = clock.load;
  size_t outputs = 0;
  if (cycle) {
    if (clock.load <= limit) {
      const int64_t units = (limit - clock.load + 1) * clock.dstUnits - clock.phase;
      outputs = static_cast<size_t>(
          std::min((units + clock.srcUnits - 1) / clock.srcUnits, static_cast<int64_t>(room)));
    }
    if (outputs > 0) last = clock.LoadAfter(static_cast<int64_t>(outputs) - 1);
    segment.at = cycle->at;
    clock.AdvanceBy(static_cast<int64_t>(outputs));
    cycle->MoveTo(cycle->at + outputs, clock);
  } else {
    for (; outputs < room && clock.load <= limit; ++outputs) {
      last = clock.load;
      segment.loads[outputs] = static_cast<uint32_t>(last);
      segment.fractions[outputs] = clock.Fraction();
      clock.Advance();
    }
  }
  segment.outputs = outputs;
  // With room left over, all frames go to the history.
  segment.taken = outputs > 0 && outputs == room ? static_cast<size_t>(last) : frames;
  clock.load -= static_cast<int64_t>(segment.taken);
}

void RunCubic(const Segment& segment, double (*blocks)[kBlock], size_t channels, double* const* out) {
  for (size_t i = 0; i < segment.outputs; ++i) {
    const double t = segment.fractions[i], t2 = t * t, t3 = t2 * t;
    const double before = 1 - 3 * t + 3 * t2 - t3, left = 4 - 6 * t2 + 3 * t3,
                 right = 1 + 3 * t + 3 * t2 - 3 * t3;
    for (size_t c = 0; c < channels; ++c) {
      const double* const x = blocks[c] + kFramesAt - 4 + segment.loads[i];
      // On a frame, the frame itself and not the mean of its neighbourhood: hosts know the difference.
      out[c][kSincGroup + i] =
          t == 0.0 ? x[1] : (before * x[0] + left * x[1] + right * x[2] + t3 * x[3]) * 0.16666666666667;
    }
  }
}

// ---------------------------------------------------------------- sinc

// Output by output, for any clock and any values.
void RunSingly(const Segment& segment, const double* table, bool vector, double (*blocks)[kBlock],
               size_t channels, double* const* out) {
  double taps[32];
  for (size_t i = 0; i < segment.outputs; ++i) {
    const double distance = kSincDelay - 1 - segment.fractions[i];
    if (vector) {
      SincTaps(distance, table, taps);
    } else {
      for (size_t k = 0; k < kSincTaps; ++k) taps[k] = SincTap(distance - static_cast<double>(k), table);
    }
    const size_t newest = kFramesAt - 1 + segment.loads[i];
    for (size_t c = 0; c < channels; ++c) {
      double sum = 0;
      for (size_t k = 0; k < kSincTaps; ++k) sum += taps[k] * blocks[c][newest - k];
      out[c][i] = sum;
    }
  }
}

// The outputs in whole groups: those before the first and behind the last output are computed too, and end up
// in the slack of `out`. The group of one place in several turns comes in a row, as it has the same taps;
// what is left of that runs at the end. (What a turn's last group has behind its end is the start of the next
// turn and gives the same values, so the order does not matter.)
void RunGroups(const Segment& segment, const SincCycle& cycle, double (*blocks)[kBlock], size_t channels,
               double* const* out) {
  const double* const frames[kTogether] = {blocks[0], blocks[channels - 1]};
  SincGroup together[kSincTogether], rest[kMostGroups];
  size_t count = 0;
  const int64_t first = static_cast<int64_t>(kFramesAt - 1 + cycle.span) + segment.load -
                        segment.at * cycle.srcUnits / cycle.dstUnits;
  for (uint32_t group = 0; group < cycle.Groups(); ++group) {
    // Places count from kSincGroup before the first output.
    const bool passed = (group + 1) * kSincGroup <= segment.at;
    size_t place = (group + 1) * kSincGroup + (passed ? cycle.period : 0) - segment.at;
    int64_t newest = first + cycle.base[group] + (passed ? cycle.srcPeriod : 0);
    size_t turns = 0;
    for (; place < segment.outputs + kSincGroup; place += cycle.period, newest += cycle.srcPeriod) {
      together[turns++] = {cycle.taps.get() + group * cycle.rows * kSincGroup, static_cast<size_t>(newest),
                           place};
      if (turns < kSincTogether) continue;
      RunSincGroups(together, turns, cycle.rows, frames, out, channels);
      turns = 0;
    }
    count = static_cast<size_t>(std::copy_n(together, turns, rest + count) - rest);
  }
  RunSincGroups(rest, count, cycle.rows, frames, out, channels);
}

// The cycle of the clock, made when it is not there; null for a clock without one.
SincCycle* CycleOf(tQNRESAMPLE2INSTANCE& instance) {
  const ResampleClock& clock = instance.clock;
  SincCycle& cycle = instance.sinc;
  if (!clock.rational) return nullptr;
  if (!cycle.BelongsTo(clock)) {
    cycle = SincCycle();
    if (clock.step * kSincGroup > kMostSpan || !cycle.Lay(clock, kSincGroup, kMostPhases)) return nullptr;
    const auto frameOf = [&](uint32_t place) { return place * clock.srcUnits / clock.dstUnits; };
    cycle.span = 0;
    for (uint32_t i = 0; i < cycle.Groups(); ++i)
      cycle.span =
          std::max(cycle.span, static_cast<uint32_t>(frameOf((i + 1) * kSincGroup - 1) - cycle.base[i]));
    cycle.rows = cycle.span + kSincTaps;
    const size_t count = static_cast<size_t>(cycle.Groups()) * cycle.rows * kSincGroup;
    if (count * sizeof(double) > kMostTapBytes || !(cycle.taps = AllocateAligned(count))) return nullptr;
    std::fill_n(cycle.taps.get(), count, 0.0);
    double taps[32];
    for (uint32_t place = 0; place < cycle.Groups() * kSincGroup; ++place) {
      const uint32_t group = place / kSincGroup, lane = place % kSincGroup;
      const double fraction =
          static_cast<double>(place * clock.srcUnits % clock.dstUnits) / static_cast<double>(clock.dstUnits);
      SincTaps(kSincDelay - 1 - fraction, instance.table.get(), taps);
      const size_t row = cycle.span - static_cast<size_t>(frameOf(place) - cycle.base[group]);
      for (size_t k = 0; k < kSincTaps; ++k)
        cycle.taps[(group * cycle.rows + row + k) * kSincGroup + lane] = taps[k];
    }
  }
  return cycle.taps && cycle.Find(clock) ? &cycle : nullptr;
}

// ---------------------------------------------------------------- the frame of both

struct SincRunner {
  SincCycle* cycle;
  const double* table;
  bool vector;
  double least;  // smaller values are stored as 0

  void Run(Segment& segment, ResampleClock start, double (*blocks)[kBlock], size_t channels,
           double* const* out, bool finite) const {
    if (segment.cyclic && finite) return RunGroups(segment, *cycle, blocks, channels, out);
    double* const places[kTogether] = {out[0] + kSincGroup, out[channels - 1] + kSincGroup};
    if (segment.cyclic) {
      for (size_t i = 0; i < segment.outputs; ++i, start.Advance()) {
        segment.loads[i] = static_cast<uint32_t>(start.load);
        segment.fractions[i] = start.Fraction();
      }
    }
    RunSingly(segment, table, vector, blocks, channels, places);
  }
};

struct CubicRunner {
  SincCycle* cycle = nullptr;
  double least = 0;

  void Run(Segment& segment, ResampleClock, double (*blocks)[kBlock], size_t channels, double* const* out,
           bool) const {
    RunCubic(segment, blocks, channels, out);
  }
};

// Puts `taken` frames of each channel behind its history.
template <class T>
void RunChannels(tQNRESAMPLE2INSTANCE& instance, const auto& runner, Segment& segment,
                 const ResampleClock& start, const T* src, T* dst) {
  const size_t channels = instance.Channels();
  alignas(64) double blocks[kTogether][kBlock];
  alignas(64) double outputs[kTogether][kSegment + 3 * kSincGroup];
  double* const out[kTogether] = {outputs[0], outputs[1]};
  for (size_t first = 0; first < channels; first += kTogether) {
    const size_t together = std::min(channels - first, kTogether);
    bool finite = true;
    for (size_t c = 0; c < together; ++c) {
      double* const block = blocks[c];
      double* const history = instance.history.get() + (first + c) * kSincTaps;
      std::fill_n(block, kHistoryAt, 0.0);
      std::copy_n(history, kSincTaps, block + kHistoryAt);
      if (src) {
        TakeChannel(src + first + c, channels, segment.frames, block + kFramesAt);
      } else {
        std::fill_n(block + kFramesAt, segment.frames, 0.0);
      }
      std::fill_n(block + kFramesAt + segment.frames, kMostSpan, 0.0);
      finite &= TidyValues(block + kHistoryAt, kSincTaps + segment.frames, runner.least);
      std::copy_n(block + kHistoryAt + segment.taken, kSincTaps, history);
    }
    if (segment.outputs == 0) continue;
    runner.Run(segment, start, blocks, together, out, finite);
    for (size_t c = 0; c < together; ++c)
      GiveChannel(outputs[c] + kSincGroup, channels, segment.outputs, dst + first + c);
  }
}

template <class T>
void Run(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call, const auto& runner) {
  const T* const src = call.flush ? nullptr : static_cast<const T*>(call.src);
  T* const dst = static_cast<T*>(call.dst);
  ResampleClock& clock = instance.clock;
  const size_t channels = instance.Channels();
  // A flush makes up frames, of which the last one ends the stream: the output that needs it would lie behind
  // the end.
  if (call.flush && instance.flushLeft <= 0) return;
  const uint64_t supply = call.flush ? static_cast<uint64_t>(instance.flushLeft - 1) : call.supply;
  Segment segment;
  uint64_t consumed = 0;
  const auto run = [&](size_t frames, size_t room) {
    const ResampleClock start = clock;
    Plan(segment, frames, room, clock, runner.cycle);
    RunChannels(instance, runner, segment, start, src ? src + consumed * channels : nullptr,
                dst + call.produced * channels);
    call.produced += segment.outputs;
    consumed += segment.taken;
  };
  const auto part = [](uint64_t left) { return static_cast<size_t>(std::min<uint64_t>(left, kSegment)); };
  while (call.produced < call.room) {
    const size_t room = part(call.room - call.produced);
    run(part(supply - consumed), room);
    if (segment.outputs < room && consumed == supply) break;
  }
  if (call.flush) {
    instance.flushLeft -= static_cast<int64_t>(consumed);
    if (call.produced < call.room) instance.flushLeft = 0;
    return;
  }
  // A decimation's frames have gone through the low-pass, so none is left to be offered again: a real clock
  // may be off the count by one, which the next output needs in any case.
  if (instance.ratio < 1.0 && consumed < supply && clock.load > 0) run(1, 0);
  call.consumed = consumed;
}

}  // namespace

void ResampleCubic(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call) {
  const CubicRunner runner;
  if (instance.workType == QNST_FLOAT32) {
    Run<float>(instance, call, runner);
  } else {
    Run<double>(instance, call, runner);
  }
}

void ResampleSinc(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call) {
  if (instance.workType == QNST_FLOAT32) {
    // Without denormals in the sums. The bits are the same on both roads, so the processor masks play no
    // part.
    Run<float>(instance, call, SincRunner{CycleOf(instance), instance.table.get(), true, 1e-25});
    return;
  }
  const bool vector = (QnGetCPUSupport(QNCPU_SSE2) & QNCPU_SSE2) != 0 && instance.filterFlag == 0;
  Run<double>(instance, call,
              SincRunner{vector ? CycleOf(instance) : nullptr, instance.table.get(), vector, 0.0});
}

}  // namespace qn
