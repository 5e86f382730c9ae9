// The linear kernel: it walks the audio as it is, behind the last frame of the call before.
#include <algorithm>
#include <limits>
#include <numeric>
#include <type_traits>

#include "qn/audio/qnresample2_kernels.h"

namespace qn {
namespace {

constexpr uint32_t kMostPhases = 8192;
constexpr int32_t kWindow = 16;  // samples that a group is picked from
constexpr uint32_t kLanes = 8;   // samples of a group

template <class T>
T Encode(double y) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(y);
  } else {
    y = std::clamp<double>(y, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    return static_cast<T>(static_cast<uint32_t>(std::bit_cast<uint64_t>(y + kRoundingMagic)));
  }
}

// The cycle of the clock, or null: for long turns, and steps that reach out of the window. Audio of more than
// two channels has groups of one frame, of any step.
LinearCycle* CycleOf(tQNRESAMPLE2INSTANCE& instance) {
  const ResampleClock& clock = instance.clock;
  LinearCycle& cycle = instance.linear;
  const uint32_t channels = static_cast<uint32_t>(instance.channels),
                 frames = channels > 2 ? 1 : kLanes / channels, lanes = channels > 2 ? 1 : kLanes;
  if (!clock.rational) return nullptr;
  if (!cycle.BelongsTo(clock) || cycle.group != frames) {
    cycle = LinearCycle();
    if ((clock.step > 2 && lanes > 1) || !cycle.Lay(clock, frames, kMostPhases)) return nullptr;
    const size_t count = cycle.Groups() * lanes;
    cycle.fractions = AllocateAligned(count);
    std::unique_ptr<int32_t[]> places(new (std::nothrow) int32_t[2 * count]);
    if (!cycle.fractions || !places) return nullptr;
    for (uint32_t i = 0; i < count; ++i) {
      const int64_t units = i * frames / lanes * clock.srcUnits;
      const uint32_t group = i / lanes, lane = i % lanes;
      cycle.fractions[i] = static_cast<double>(units % clock.dstUnits) / static_cast<double>(clock.dstUnits);
      if (lanes == 1) continue;
      const int64_t frame = units / clock.dstUnits - cycle.base[group];
      const int32_t place = static_cast<int32_t>(frame * channels + i % channels);
      places[2 * group * kLanes + lane] = place;
      // A group's last output may lie on the last frame of the window, which is all that it needs.
      places[(2 * group + 1) * kLanes + lane] =
          std::min<int32_t>(place + static_cast<int32_t>(channels), kWindow - 1);
      if (place >= kWindow || (place + static_cast<int32_t>(channels) >= kWindow && cycle.fractions[i] != 0))
        return nullptr;
    }
    cycle.places = std::move(places);
  }
  return cycle.places && cycle.Find(clock) ? &cycle : nullptr;
}

template <class T>
void Run(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call) {
  const T* const src = static_cast<const T*>(call.src);
  T* const dst = static_cast<T*>(call.dst);
  ResampleClock& clock = instance.clock;
  const size_t channels = instance.Channels();
  double* const previous = instance.history.get();
  // Small samples of many channels have no vector code.
  LinearCycle* const cycle = channels > 2 && sizeof(T) < 4 ? nullptr : CycleOf(instance);
  uint64_t done = 0;
  while (done < call.room) {
    // `load` counts the frames up to the one at or before the output; 0 is the previous one.
    const uint64_t load = static_cast<uint64_t>(clock.load);
    if (cycle && cycle->at % cycle->group == 0 && load > 0 && load <= call.supply) {
      const uint64_t frames = RunLinearGroups(*cycle, channels, src, call.supply, load - 1,
                                              dst + done * channels, call.room - done);
      clock.AdvanceBy(static_cast<int64_t>(frames));
      cycle->MoveTo(cycle->at + frames, clock);
      done += frames;
      if (frames > 0) continue;
    }
    const double fraction = clock.Fraction();
    if (load + (fraction != 0) > call.supply) break;
    const T* const right = src + load * channels;
    T* const out = dst + done * channels;
    const auto interpolate = [&](const auto* left) {
      // A frame that is met exactly comes out as it is, whatever follows.
      if (fraction == 0.0) {
        for (size_t c = 0; c < channels; ++c) out[c] = static_cast<T>(left[c]);
        return;
      }
      for (size_t c = 0; c < channels; ++c) {
        const double a = static_cast<double>(left[c]);
        out[c] = Encode<T>(a + (static_cast<double>(right[c]) - a) * fraction);
      }
    };
    if (load > 0) {
      interpolate(right - channels);
    } else {
      interpolate(previous);
    }
    ++done;
    clock.Advance();
    if (cycle) cycle->MoveTo(cycle->at + 1, clock);
  }
  call.produced = done;
  call.consumed = std::min(call.supply, static_cast<uint64_t>(clock.load));
  if (call.consumed == 0) return;
  clock.load -= static_cast<int64_t>(call.consumed);
  for (size_t c = 0; c < channels; ++c)
    previous[c] = static_cast<double>(src[(call.consumed - 1) * channels + c]);
}

}  // namespace

void ResampleLinear(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call) {
  switch (instance.workType) {
    case QNST_PCM8U:
      return Run<uint8_t>(instance, call);
    case QNST_PCM16:
      return Run<int16_t>(instance, call);
    case QNST_FLOAT32:
      return Run<float>(instance, call);
    case QNST_FLOAT64:
      return Run<double>(instance, call);
    default:
      return Run<int32_t>(instance, call);
  }
}

}  // namespace qn
