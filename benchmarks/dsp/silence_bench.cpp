// A long silence after a signal, in which what is fed back dies out, beside signal all the way: it is to cost
// no more. Each run copies its 64K samples first.
// Names: <group>/<case>_after_signal/64K/<who>, ours with silence.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qn/audio/qnmix.h"
#include "qn/dsp/qndither.h"
#include "qn/dsp/qnfir.h"
#include "qn/dsp/qniir.h"

namespace {

constexpr DWORD kSamples = 65536, kSignal = 1024;

using Process = std::function<void(float* samples)>;

Process Recursive() {
  const auto filter = std::make_shared<CQnIIR>();
  filter->Design(QNIIR_LOWPASS, QNIIR_BUTTERWORTH, 8, 0.1, 1, 0, 2, 0);
  return [=](float* samples) { filter->ProcessFloat(samples, samples, kSamples / 2, 0); };
}

Process Biquad() {
  const tQNBIQUAD_PARAMETERS parameters{48000, 1000, 6, 1, 1, 4};
  tQNBIQUAD biquad{};
  QnMakeBiquad(&parameters, &biquad.b0);
  return [=](float* samples) mutable { QnBiquadFloatEx(samples, samples, kSamples, 1, &biquad, 1); };
}

Process LinearPhase() {
  const auto filter = std::make_shared<CQnFIR>();
  filter->Design(QNFIR_LOWPASS, QNFIR_HAMMING, 1023, 0.1, 0.1, 2, 0);
  return [=](float* samples) { filter->ProcessFloat(samples, samples, kSamples / 2, 0); };
}

template <eQNDITHER_DITHERTYPE kNoise>
Process Dither() {
  const auto dither = std::make_shared<CQnDither>(QNST_PCM16, kNoise, eQNDITHER_SHAPE_SECOND_HIGH);
  // The first sample of a run takes up the error of the last one.
  return [=](float* samples) { dither->ProcessFloat(samples, kSamples, 1); };
}

// A mix that is faded out by a curve.
Process Envelope() {
  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, 48000, QNST_FLOAT32, 2);
  constexpr int64_t kTime = int64_t{kSamples / 2} * 10'000'000 / 48000;
  const tQNASR envelope{1, 0, kTime, 2, 1, 2, 0};
  const auto mixed = std::make_shared<std::vector<float>>(kSamples);
  return [=](float* samples) {
    tQNASRCOOKED cooked;
    QnAudio_ASRCook(&format, &envelope, &cooked, 0, kTime, 1);
    QnAudio_MixEx(&format, mixed->data(), &format, samples, kSamples / 2, &cooked);
  };
}

void Run(benchmark::State& state, Process (*make)(), DWORD signal) {
  std::vector<float> in(kSamples), work(kSamples);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> distribution(-0.9f, 0.9f);
  std::generate_n(in.begin(), signal, [&] { return distribution(random); });
  const Process process = make();
  for (auto _ : state) {
    std::ranges::copy(in, work.begin());
    process(work.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kSamples);
}

const bool registered = [] {
  const std::pair<const char*, Process (*)()> kCases[] = {
      {"iir/4biquads_stereo_flt", Recursive},
      {"iir/biquad_flt", Biquad},
      {"fir/1023taps_stereo", LinearPhase},
      {"dither/second_order", Dither<eQNDITHER_TRIANGULAR>},
      {"dither/second_order_without_noise", Dither<eQNDITHER_NONE>},
      {"mix/envelope_flt", Envelope}};
  for (const auto& [name, make] : kCases) {
    for (const auto& [who, signal] : {std::pair{"/ours", kSignal}, {"/signal", kSamples}}) {
      benchmark::RegisterBenchmark(
          (std::string(name) + "_after_signal/64K" + who).c_str(),
          [make = make, signal = signal](benchmark::State& state) { Run(state, make, signal); });
    }
  }
  return true;
}();

}  // namespace
