// The second resampler over a stream of float audio in blocks of 4,096 frames, beside other libraries at
// their usual settings, and its linear mode over a large buffer beside memcpy of as many bytes as it reads
// and writes. Items are frames out.
// Names: resample/<source rate>_<destination rate>/<mono or stereo>/<case>/<who>.
#include <benchmark/benchmark.h>
#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qn/audio/qnresample2.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr size_t kBlock = 4096, kLarge = 1 << 23;

struct Rates {
  int src, dst, channels;
  size_t Room(size_t frames) const {
    return frames * static_cast<size_t>(dst) / static_cast<size_t>(src) + 64;
  }
};

std::vector<float> Noise(size_t samples) {
  std::vector<float> noise(samples);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> distribution(-.5f, .5f);
  for (float& x : noise) x = distribution(random);
  return noise;
}

// Each peer converts the next block and returns the frames that came out.
class Ours {
 public:
  Ours(const Rates& rates, int mode) {
    QnAudio_Resample2Open(&instance_, QNST_FLOAT32, rates.channels, rates.src, rates.dst,
                          static_cast<DWORD>(mode));
  }
  ~Ours() { QnAudio_Resample2Close(instance_); }
  size_t Run(float* out, size_t room, const float* in, size_t frames) {
    DWORD produced = 0;
    QnAudio_Resample2Process(instance_, out, static_cast<DWORD>(room), &produced, in,
                             static_cast<DWORD>(frames), nullptr);
    return produced;
  }

 private:
  tQNRESAMPLE2INSTANCE* instance_ = nullptr;
};

class Soxr {
 public:
  Soxr(const Rates& rates, int quality) {
    const soxr_quality_spec_t spec = soxr_quality_spec(static_cast<unsigned long>(quality), 0);
    soxr_ = soxr_create(rates.src, rates.dst, static_cast<unsigned>(rates.channels), nullptr, nullptr, &spec,
                        nullptr);
  }
  ~Soxr() { soxr_delete(soxr_); }
  size_t Run(float* out, size_t room, const float* in, size_t frames) {
    size_t produced = 0;
    soxr_process(soxr_, in, frames, nullptr, out, room, &produced);
    return produced;
  }

 private:
  soxr_t soxr_;
};

class Samplerate {
 public:
  Samplerate(const Rates& rates, int type) : ratio_(static_cast<double>(rates.dst) / rates.src) {
    int error = 0;
    state_ = src_new(type, rates.channels, &error);
  }
  ~Samplerate() { src_delete(state_); }
  size_t Run(float* out, size_t room, const float* in, size_t frames) {
    SRC_DATA data = {in, out, static_cast<long>(frames), static_cast<long>(room), 0, 0, 0, ratio_};
    src_process(state_, &data);
    return static_cast<size_t>(data.output_frames_gen);
  }

 private:
  double ratio_;
  SRC_STATE* state_;
};

class Speex {
 public:
  Speex(const Rates& rates, int quality) {
    int error = 0;
    state_ = speex_resampler_init(static_cast<unsigned>(rates.channels), static_cast<unsigned>(rates.src),
                                  static_cast<unsigned>(rates.dst), quality, &error);
  }
  ~Speex() { speex_resampler_destroy(state_); }
  size_t Run(float* out, size_t room, const float* in, size_t frames) {
    auto taken = static_cast<unsigned>(frames), produced = static_cast<unsigned>(room);
    speex_resampler_process_interleaved_float(state_, in, &taken, out, &produced);
    return produced;
  }

 private:
  SpeexResamplerState* state_;
};

class Swresample {
 public:
  Swresample(const Rates& rates, int) {
    AVChannelLayout layout;
    av_channel_layout_default(&layout, rates.channels);
    swr_alloc_set_opts2(&swr_, &layout, AV_SAMPLE_FMT_FLT, rates.dst, &layout, AV_SAMPLE_FMT_FLT, rates.src,
                        0, nullptr);
    swr_init(swr_);
  }
  ~Swresample() { swr_free(&swr_); }
  size_t Run(float* out, size_t room, const float* in, size_t frames) {
    auto* to = reinterpret_cast<uint8_t*>(out);
    auto* from = reinterpret_cast<const uint8_t*>(in);
    const int produced = swr_convert(swr_, &to, static_cast<int>(room), &from, static_cast<int>(frames));
    return produced < 0 ? 0 : static_cast<size_t>(produced);
  }

 private:
  SwrContext* swr_ = nullptr;
};

class Memcpy {
 public:
  Memcpy(const Rates& rates, int) : rates_(rates) {}
  size_t Run(float* out, size_t, const float* in, size_t frames) {
    const size_t produced = frames * static_cast<size_t>(rates_.dst) / static_cast<size_t>(rates_.src);
    std::memcpy(out, in, (frames + produced) / 2 * static_cast<size_t>(rates_.channels) * sizeof(float));
    return produced;
  }

 private:
  Rates rates_;
};

template <class Peer>
void Register(const Rates& rates, const std::string& name, const std::string& who, int setting,
              size_t block) {
  const std::string full = "resample/" + std::to_string(rates.src) + "_" + std::to_string(rates.dst) +
                           (rates.channels == 1   ? "/mono/"
                            : rates.channels == 2 ? "/stereo/"
                                                  : "/5.1/") +
                           name + "/" + who;
  benchmark::RegisterBenchmark(full.c_str(), [=](benchmark::State& state) {
    const size_t channels = static_cast<size_t>(rates.channels);
    // memcpy moves the mean of both sizes.
    const std::vector<float> in = Noise(std::max(block, rates.Room(block)) * channels);
    std::vector<float> out(in.size());
    Peer peer(rates, setting);
    size_t produced = 0;
    for (auto _ : state) {
      produced += peer.Run(out.data(), rates.Room(block), in.data(), block);
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(produced));
  });
}

const bool registered = [] {
  for (const auto& [src, dst] : {std::pair{44100, 48000}, {48000, 44100}, {44100, 96000}}) {
    for (const int channels : {1, 2, 6}) {
      const Rates rates = {src, dst, channels};
      Register<Ours>(rates, "sinc", "ours", QNRESAMPLE2_SINC, kBlock);
      Register<Soxr>(rates, "sinc", "soxr_lq", SOXR_LQ, kBlock);
      Register<Soxr>(rates, "sinc", "soxr_mq", SOXR_MQ, kBlock);
      Register<Soxr>(rates, "sinc", "soxr_hq", SOXR_HQ, kBlock);
      Register<Samplerate>(rates, "sinc", "src_fastest", SRC_SINC_FASTEST, kBlock);
      Register<Speex>(rates, "sinc", "speex_q0", 0, kBlock);
      Register<Speex>(rates, "sinc", "speex_q5", 5, kBlock);
      Register<Swresample>(rates, "sinc", "swresample", 0, kBlock);
      Register<Ours>(rates, "cubic", "ours", QNRESAMPLE2_CUBIC, kBlock);
      Register<Ours>(rates, "linear", "ours", QNRESAMPLE2_LINEAR, kBlock);
      Register<Samplerate>(rates, "linear", "src_linear", SRC_LINEAR, kBlock);
      if (channels > 2) continue;
      Register<Ours>(rates, "linear_large", "ours", QNRESAMPLE2_LINEAR, kLarge);
      Register<Memcpy>(rates, "linear_large", "memcpy", 0, kLarge);
    }
  }
  return true;
}();

}  // namespace
