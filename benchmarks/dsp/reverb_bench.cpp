// A reverberator beside the loop that a program would have without a library: frame by frame, comb after
// comb, in the same arithmetic. Names: effects/reverb_<samples>_<channels>_<filters>/<frames>/<who>
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "qn/dsp/qnreverb.h"

namespace {

constexpr LONG kRate = 44100;

double Flushed(double v) {
  return std::abs(v) < 0x1p-32 ? 0 : v;
}

template <class Ring>
void Step(double*& cursor, const Ring& ring) {
  if (++cursor == ring.end) cursor = ring.start;
}

template <bool kFlush>
double RunComb(tQNREVERB_COMB& comb, double s, double a, double b) {
  const double v = *comb.cursor;
  comb.state = v * b + comb.state * a;
  if (kFlush) comb.state = Flushed(comb.state);
  *comb.cursor = (comb.state + s) * comb.gain;
  Step(comb.cursor, comb);
  return v;
}

template <size_t kChannels, class T>
void PlainReverb(HQNREVERB& r, T* out, const T* in, size_t frames) {
  for (; frames > 0; --frames, in += kChannels, out += kChannels) {
    double x[kChannels], sum[kChannels], tap[3];
    for (size_t c = 0; c < kChannels; ++c) x[c] = in[c] * r.inputScale;
    const double mono = kChannels == 2 ? (x[0] + x[kChannels - 1]) * 0.5 : x[0];
    double s = r.highCutState = Flushed(mono * r.highCutB + r.highCutState * r.highCutA);
    if (r.lowCutOn) {
      const double y = Flushed(s * r.lowCutR + r.lowCutState[0] * r.lowCutP - r.lowCutState[1] * r.lowCutQ);
      r.lowCutState[1] = r.lowCutState[0];
      r.lowCutState[0] = y;
      s -= static_cast<float>(y);
    }
    double shared = 0;
    for (DWORD i = kChannels == 2 ? 2 : 0; i < r.combCount; ++i)
      shared += RunComb<false>(r.combs[i], s, r.highCutA, r.highCutB);
    for (size_t c = 0; c < kChannels; ++c) {
      sum[c] = shared;
      tQNREVERB_COMB* const own = c == 0 ? r.combs : r.rightCombs;
      for (size_t i = 0; kChannels == 2 && i < 2; ++i)
        sum[c] += RunComb<true>(own[i], s, r.highCutA, r.highCutB);
      *r.lines[c].cursor = sum[c];
      Step(r.lines[c].cursor, r.lines[c]);
    }
    for (size_t k = 0; k < 3; ++k) {
      tap[k] = *r.taps[0].tap[k];
      if (kChannels == 2) tap[k] += *r.taps[1].tap[k];
    }
    for (size_t c = 0; c < kChannels; ++c) {
      const double* const g = r.tapGains[c];
      out[c] = static_cast<T>((tap[0] * g[0] + tap[1] * g[1] + tap[2] * g[2]) * r.earlyLevel +
                              *r.lines[c].cursor * r.reverbLevel + x[c] * r.dryLevel);
      *r.taps[c].tap[2] = x[c];
      for (double*& reader : r.taps[c].tap) Step(reader, r.taps[c]);
    }
  }
}

template <size_t kChannels, class T>
void Ours(HQNREVERB& reverb, T* out, const T* in, size_t frames) {
  QnReverbProcess(&reverb, out, in, static_cast<DWORD>(frames));
}

template <class T>
void Reverberate(benchmark::State& state, DWORD channels, bool filters, size_t frames,
                 void (*run)(HQNREVERB&, T*, const T*, size_t)) {
  _reverb_props props = {-60, -60, -60, 0, 0, 15, 20, filters, 200, filters, 6000};
  HQNREVERB* reverb = nullptr;
  if (QnReverbInit(&reverb, 1, &props, kRate, channels, 0) != 0)
    return state.SkipWithError("no reverberator");
  std::vector<T> in(frames * channels), out(frames * channels);
  std::mt19937 random(1);
  std::uniform_real_distribution<T> noise(-1, 1);
  for (T& x : in) x = noise(random);
  for (auto _ : state) {
    run(*reverb, out.data(), in.data(), frames);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(frames));
  QnReverbClose(reverb);
}

template <size_t kChannels, class T>
void Register(const std::string& name) {
  for (const bool filters : {false, true}) {
    for (const size_t frames : {256, 65536}) {
      const struct {
        const char* who;
        void (*run)(HQNREVERB&, T*, const T*, size_t);
      } kRuns[] = {{"ours", Ours<kChannels, T>}, {"loop", PlainReverb<kChannels, T>}};
      for (const auto& [who, run] : kRuns) {
        const std::string full = "effects/reverb_" + name + (filters ? "_cut/" : "_open/") +
                                 (frames == 256 ? "256/" : "64K/") + who;
        benchmark::RegisterBenchmark(full.c_str(), [=, run = run](benchmark::State& state) {
          Reverberate<T>(state, kChannels, filters, frames, run);
        });
      }
    }
  }
}

const bool registered = [] {
  Register<1, float>("flt_mono");
  Register<2, float>("flt_stereo");
  Register<2, double>("dbl_stereo");
  return true;
}();

}  // namespace
