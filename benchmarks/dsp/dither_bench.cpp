// Dithering float audio for 16 bits, beside libswresample's conversion with dither. Ours stays float; with
// "_to_s16" the conversion follows, which then loses nothing.
// Names: dither/flt_s16/<mono or stereo>/<samples>/<who>.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/dsp/qndither.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

std::vector<float> Noise(size_t samples) {
  std::vector<float> noise(samples);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> distribution(-0.9f, 0.9f);
  for (float& x : noise) x = distribution(random);
  return noise;
}

struct Case {
  size_t samples;
  int channels;
  int Frames() const { return static_cast<int>(samples) / channels; }
};

void Ours(benchmark::State& state, Case of, eQNDITHER_DITHERTYPE type, eQNDITHER_NOISESHAPE shape,
          bool convert) {
  std::vector<float> samples = Noise(of.samples);
  std::vector<int16_t> out(of.samples);
  const QNCOPYFUNCTION copy = QnAudio_GetCopyFunction2(QNST_PCM16, QNST_FLOAT32);
  CQnDither dither(QNST_PCM16, type, shape);
  for (auto _ : state) {
    dither.ProcessFloat(samples.data(), static_cast<DWORD>(of.Frames()), static_cast<DWORD>(of.channels));
    if (convert) copy(out.data(), samples.data(), static_cast<LONG>(of.samples), 1);
    benchmark::ClobberMemory();
  }
}

void Swresample(benchmark::State& state, Case of, const char* method) {
  const std::vector<float> samples = Noise(of.samples);
  std::vector<int16_t> out(of.samples);
  SwrContext* swr = nullptr;
  AVChannelLayout layout;
  av_channel_layout_default(&layout, of.channels);
  swr_alloc_set_opts2(&swr, &layout, AV_SAMPLE_FMT_S16, 48000, &layout, AV_SAMPLE_FMT_FLT, 48000, 0, nullptr);
  av_opt_set(swr, "dither_method", method, 0);
  if (swr_init(swr) < 0) return state.SkipWithError("swr_init");
  auto* to = reinterpret_cast<uint8_t*>(out.data());
  auto* from = reinterpret_cast<const uint8_t*>(samples.data());
  // The first call makes its noise.
  swr_convert(swr, &to, of.Frames(), &from, of.Frames());
  for (auto _ : state) {
    swr_convert(swr, &to, of.Frames(), &from, of.Frames());
    benchmark::ClobberMemory();
  }
  swr_free(&swr);
}

template <class Run>
void Register(const std::string& name, Case of, Run run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    run(state, of);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(of.samples));
  });
}

// Each way of dithering beside the peer's that comes nearest, if there is one.
void RegisterCase(const std::string& layout, Case of) {
  const struct {
    const char* way;
    eQNDITHER_DITHERTYPE type;
    eQNDITHER_NOISESHAPE shape;
    bool convert;
    const char* peer;
  } kWays[] = {
      {"none", eQNDITHER_NONE, eQNDITHER_SHAPE_NONE, false, nullptr},
      {"rectangular", eQNDITHER_RECTANGULAR, eQNDITHER_SHAPE_NONE, false, "rectangular"},
      {"triangular", eQNDITHER_TRIANGULAR, eQNDITHER_SHAPE_NONE, false, "triangular"},
      {"triangular_to_s16", eQNDITHER_TRIANGULAR, eQNDITHER_SHAPE_NONE, true, "triangular"},
      {"highpass", eQNDITHER_HIGHPASS, eQNDITHER_SHAPE_NONE, false, "triangular_hp"},
      {"gaussian", eQNDITHER_GAUSSIAN, eQNDITHER_SHAPE_NONE, false, nullptr},
      {"first_order", eQNDITHER_TRIANGULAR, eQNDITHER_SHAPE_FIRST, false, "shibata"},
      {"second_order", eQNDITHER_TRIANGULAR, eQNDITHER_SHAPE_SECOND_HIGH, false, "shibata"},
  };
  for (const auto& [way, type, shape, convert, peer] : kWays) {
    const std::string name = std::string("dither/") + way + "/" + layout + "/";
    Register(name + "ours", of,
             [type = type, shape = shape, convert = convert](benchmark::State& state, Case each) {
               Ours(state, each, type, shape, convert);
             });
    if (!peer) continue;
    Register(name + "swresample", of,
             [peer = peer](benchmark::State& state, Case each) { Swresample(state, each, peer); });
  }
}

const bool registered = [] {
  for (const int channels : {1, 2}) {
    const std::string layout = channels == 1 ? "mono" : "stereo";
    RegisterCase(layout + "/4K", {4096, channels});
    RegisterCase(layout + "/16M", {size_t{1} << 24, channels});
  }
  return true;
}();

}  // namespace
