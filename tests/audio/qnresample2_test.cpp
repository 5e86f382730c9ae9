#include "qn/audio/qnresample2.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <tuple>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/dsp/qniir.h"
#include "qn/kernel/qncpu.h"
#include "tests/audio/qncopy_reference.h"

namespace {

using Instance = std::unique_ptr<tQNRESAMPLE2INSTANCE, decltype(&QnAudio_Resample2Close)>;
using namespace qntest;

struct Rates {
  LONG src, dst;
  double ratio = 0;  // nonzero: opened with it
};

Instance Open(int type, LONG channels, const Rates& rates, DWORD flags, HRESULT expected = 0) {
  tQNRESAMPLE2INSTANCE* instance = nullptr;
  const QNSAMPLETYPE sampleType = static_cast<QNSAMPLETYPE>(type);
  const HRESULT status =
      rates.ratio != 0 ? QnAudio_Resample2OpenEx(&instance, sampleType, channels, rates.ratio, flags)
                       : QnAudio_Resample2Open(&instance, sampleType, channels, rates.src, rates.dst, flags);
  EXPECT_EQ(status, expected) << type << ' ' << channels << ' ' << rates.src << ' ' << rates.dst;
  EXPECT_EQ(instance != nullptr, expected == 0);
  return {instance, QnAudio_Resample2Close};
}

struct Counts {
  size_t produced, consumed;
};

Counts Process(const Instance& instance, void* dst, size_t room, const void* src, size_t supply,
               HRESULT expected = 0) {
  DWORD produced = 9, consumed = 9;
  EXPECT_EQ(QnAudio_Resample2Process(instance.get(), dst, static_cast<DWORD>(room), &produced, src,
                                     static_cast<DWORD>(supply), &consumed),
            expected);
  EXPECT_TRUE(produced <= room && consumed <= supply && (expected == 0 || produced + consumed == 0));
  return {produced, consumed};
}

size_t Random(size_t most) {
  return qntest::Random()() % (most + 1);
}

// A stream of `type` from beginning to flushed end, in one call or cut anywhere.
struct Stream {
  int type;
  LONG channels;
  Rates rates;
  DWORD flags;

  size_t FrameBytes() const {
    return static_cast<size_t>(channels * QnAudio_BytesFromSampleType(static_cast<QNSAMPLETYPE>(type)));
  }
  Bytes Run(const Bytes& in, size_t cut, bool inPlace = false) const {
    const Instance instance = Open(type, channels, rates, flags);
    const size_t frameBytes = FrameBytes(), frames = in.size() / frameBytes;
    Bytes out, part;
    for (size_t done = 0;;) {
      size_t supply = cut == 0 ? frames - done : std::min(frames - done, 1 + Random(cut));
      const size_t room = cut == 0 ? 100000 : Random(cut);
      const size_t needed = QnAudio_Resample2GetSrcFromDst(instance.get(), static_cast<DWORD>(room));
      const bool exact = cut != 0 && Random(1) == 0 && needed > 0 && needed <= frames - done;
      if (exact) supply = needed;
      part.assign(std::max(room, supply) * frameBytes + 16, 0xA5);
      std::copy_n(in.data() + done * frameBytes, supply * frameBytes, part.data());
      const uint8_t* src = inPlace ? part.data() : in.data() + done * frameBytes;
      const auto [produced, consumed] = Process(instance, part.data(), room, src, supply);
      // What was told to be needed is enough.
      EXPECT_TRUE(!exact || rates.ratio != 0 || produced == room) << produced << ' ' << room;
      EXPECT_TRUE((produced == room || consumed == supply) && part.back() == 0xA5);
      out.insert(out.end(), part.data(), part.data() + produced * frameBytes);
      done += consumed;
      if (supply > 0 || produced == room) continue;
      EXPECT_EQ(QnAudio_Resample2GetSrcPos(instance.get()), static_cast<int64_t>(frames));
      EXPECT_EQ(QnAudio_Resample2GetDstPos(instance.get()), static_cast<int64_t>(out.size() / frameBytes));
      EXPECT_EQ(Process(instance, part.data(), 1, nullptr, 0).produced, 0u);
      return out;
    }
  }
};

// ---------------------------------------------------------------- the model

constexpr double kPi = std::numbers::pi;

// The output at the time n + t, of a stream whose frames outside are 0.
double Interpolate(DWORD mode, const auto& x, int64_t n, double t) {
  static const std::vector<double> table = [] {
    std::vector<double> points(4001, 1.0);
    for (size_t i = 1; i < 4001; ++i) {
      const double z = std::min<double>(static_cast<double>(i), 3999) * .00325 * kPi, y = z / 13 + kPi;
      points[i] = (.35875 - .48829 * std::cos(y) + .14128 * std::cos(2 * y) - .01168 * std::cos(3 * y)) *
                  std::sin(z) / z;
    }
    return points;
  }();
  if (mode == QNRESAMPLE2_LINEAR) return t == 0 ? x(n) : x(n) * (1 - t) + x(n + 1) * t;
  if (mode == QNRESAMPLE2_CUBIC) {
    const auto inner = [](double u) { return 4 - 6 * u * u + 3 * u * u * u; };
    const double s = 1 - t, outer = s * s * s * x(n - 1) + t * t * t * x(n + 2);
    return t == 0 ? x(n) : (outer + inner(t) * x(n) + inner(s) * x(n + 1)) / 6;
  }
  double sum = 0;
  for (int k = -12; k <= 12; ++k) {
    const double a = std::fabs(k - t) * 4000 / 13;
    const size_t i = static_cast<size_t>(a);
    sum += x(n + k) * (table[i] + (table[i + 1] - table[i]) * (a - std::floor(a)));
  }
  return sum;
}

void ExpectModel(const Stream& stream, const Bytes& in, const Bytes& out) {
  const bool whole = stream.rates.ratio == 0 && stream.rates.src % stream.rates.dst == 0;
  const DWORD mode = whole ? QNRESAMPLE2_LINEAR : stream.flags & 15;
  const std::vector<double> x = Decode(stream.type, in), y = Decode(stream.type, out);
  const int64_t channels = stream.channels, frames = static_cast<int64_t>(x.size()) / channels;
  const int bits = QnAudio_BitsFromSampleType(static_cast<QNSAMPLETYPE>(stream.type));
  const double tolerance = std::ldexp(.51, 1 - bits) + (stream.type == 33 ? 1e-9 : 1e-6);
  size_t at = 0;
  for (int64_t j = 0;; ++j) {
    const auto& [src, dst, ratio] = stream.rates;
    const double time = ratio == 0 ? 0 : static_cast<double>(j) / ratio;
    const int64_t n = ratio == 0 ? j * src / dst : static_cast<int64_t>(time);
    const double t = ratio == 0 ? static_cast<double>(j * src % dst) / dst : time - static_cast<double>(n);
    if (n >= frames || (mode == QNRESAMPLE2_LINEAR && t != 0 && n + 1 == frames)) break;
    for (int64_t c = 0; c < channels; ++c, ++at) {
      ASSERT_LT(at, y.size());
      const auto sample = [&](int64_t i) {
        return i < 0 || i >= frames ? 0 : x[static_cast<size_t>(i * channels + c)];
      };
      ASSERT_NEAR(y[at], Interpolate(mode, sample, n, t), tolerance)
          << src << ' ' << dst << ' ' << stream.type << ' ' << stream.flags << ' ' << j;
    }
  }
  EXPECT_EQ(at, y.size());
}

constexpr Rates kRates[] = {
    {44100, 48000},    {48000, 44100},   {44100, 96000}, {48000, 47999}, {8000, 192000}, {1, 3},
    {192000, 11025},   {3, 2},           {2, 1},         {96000, 8000},  {256, 1},       {1, 256},
    {0, 0, 0.7310585}, {0, 0, 1.4142135}};

TEST(Resample2, GivesTheFormulaOfEachModeHoweverTheStreamIsCut) {
  const std::pair<int, std::vector<DWORD>> kTypes[] = {
      {32, {1, 2, 4}}, {33, {1, 2, 4, 0x104}}, {16, {1}}, {17, {1, 4}},
      {18, {2}},       {19, {1, 4}},           {48, {1}}, {66, {2}}};
  for (const Rates& rates : kRates) {
    for (const auto& [type, modes] : kTypes) {
      for (const DWORD mode : modes) {
        for (const LONG channels : {1, 2, 3, 11}) {
          const size_t frames = Random(1) * Random(1300) + Random(15);
          const Stream stream = {type, channels, rates, mode};
          const Bytes in = Noise(type, frames * static_cast<size_t>(channels), .4), out = stream.Run(in, 0);
          ExpectModel(stream, in, out);
          for (const size_t cut : {1 + Random(20), size_t{600}}) {
            for (const bool inPlace : {false, true})
              ASSERT_EQ(stream.Run(in, cut, inPlace), out) << rates.src << ' ' << type << ' ' << mode;
          }
        }
      }
    }
  }
}

// Integers of the sinc go through floats; decimation filters its input, on a copy, and the others their
// output.
TEST(Resample2, RunsConversionAndLowPassAroundTheKernel) {
  for (const Rates& rates : {Rates{48000, 44100}, {44100, 96000}, {2, 1}}) {
    for (const auto& [flag, order] : {std::pair{0x10u, 4u}, {0x20u, 8u}, {0x40u, 11u}}) {
      CQnIIR filter;
      const double ratio = static_cast<double>(rates.dst) / rates.src;
      filter.Design(QNIIR_LOWPASS, QNIIR_BUTTERWORTH, order, .95 * (ratio < 1 ? ratio * .5 : .5 / ratio), 1,
                    0, 2, 0);
      const Bytes in = Noise(18, 2000, .4), wide = ConvertAll(32, 18, in, 1.0f);
      const auto filtered = [&](Bytes bytes) {
        auto* const audio = reinterpret_cast<float*>(bytes.data());
        filter.ProcessFloat(audio, audio, static_cast<DWORD>(bytes.size() / 8), 0);
        return bytes;
      };
      const Stream plain = {32, 2, rates, 4};
      const Bytes out = ratio < 1 ? plain.Run(filtered(wide), 0) : filtered(plain.Run(wide, 0));
      for (const size_t cut : {0, 300}) {
        EXPECT_EQ((Stream{32, 2, rates, 4 | flag}.Run(wide, cut, cut > 0)), out) << rates.src << ' ' << flag;
        EXPECT_EQ((Stream{18, 2, rates, 4 | flag}.Run(in, cut)), ConvertAll(18, 32, out, 1.0f));
      }
    }
  }
}

TEST(Resample2, HasTheSameBitsOnEachRoad) {
  for (const Rates& rates : {Rates{48000, 44100}, {44100, 48000}, {1, 3}}) {
    const Stream stream = {33, 2, rates, 4};
    Bytes in = Noise(33, 4000, .4);
    const Bytes out = stream.Run(in, 0);
    QnDisallowCPUSupport(QNCPU_SSE2);
    EXPECT_EQ(stream.Run(in, 0), out);
    QnAllowCPUSupport(QNCPU_SSE2);
    // What is not finite spreads to the outputs around it alone, in its own channel.
    for (const double odd : {double{NAN}, double{INFINITY}}) {
      std::memcpy(in.data() + 8 * (2 * 900 + 1), &odd, 8);
      const std::vector<double> with = Decode(33, stream.Run(in, 0)), without = Decode(33, out);
      for (size_t i = 0; i < with.size(); ++i) {
        const double time = static_cast<double>(i / 2) * rates.src / rates.dst;
        const bool apart = i % 2 == 0 || std::fabs(time - 900) >= 13;
        ASSERT_TRUE(!apart || with[i] == without[i]) << i;
        ASSERT_TRUE(apart || std::fabs(time - 900) > 11.9 || !std::isfinite(with[i])) << i;
      }
    }
  }
}

// Floats below 1e-25 are silence in the sinc.
TEST(Resample2, FlushesTinyFloats) {
  for (const float tiny : {9e-26f, 1.1e-25f}) {
    Bytes in(400);
    std::memcpy(in.data() + 200, &tiny, 4);
    const std::vector<double> out = Decode(32, Stream{32, 1, {2, 3}, 4}.Run(in, 0));
    EXPECT_EQ(std::ranges::all_of(out, [](double y) { return y == 0; }), tiny < 1e-25f);
  }
}

TEST(Resample2, NeverDriftsOverADay) {
  constexpr int64_t kHour = 3600, kDay = 24 * kHour;
  for (const auto& [type, mode, seconds] :
       {std::tuple{16, 1u, kDay}, {32, 4u, kHour}, {33, 2u, kHour / 12}}) {
    const Instance instance = Open(type, 1, {48000, 44100}, mode);
    Bytes in(8 << 17), out(8 << 17);
    for (int64_t left = seconds * 48000; left > 0;) {
      const size_t supply = static_cast<size_t>(std::min<int64_t>(left, 1 << 17));
      left -=
          static_cast<int64_t>(Process(instance, out.data(), Random(1 << 17), in.data(), supply).consumed);
    }
    for (int i = 0; i < 3; ++i) Process(instance, out.data(), 9, nullptr, 0);
    EXPECT_EQ(QnAudio_Resample2GetDstPos(instance.get()), seconds * 44100) << mode;
    EXPECT_EQ(QnAudio_Resample2GetSrcPos(instance.get()), seconds * 48000) << mode;
  }
}

TEST(Resample2, TellsTheFramesNeeded) {
  // Mode, rates, outputs, frames.
  const DWORD kRows[][5] = {{1, 48000, 44100, 2, 3},     {1, 1, 2, 3, 2},
                            {2, 48000, 44100, 148, 163}, {4, 48000, 44100, 1, 13},
                            {4, 44100, 48000, 161, 160}, {4, 48000, 44100, 0, 0},
                            {3, 48000, 44100, 5, 0},     {3, 2, 1, 5, 9},
                            {4, 0x7FFFFFFF, 2, ~0u, ~0u}};
  for (const auto& [mode, src, dst, outputs, frames] : kRows) {
    const Instance instance = Open(32, 1, {static_cast<LONG>(src), static_cast<LONG>(dst)}, mode);
    EXPECT_EQ(QnAudio_Resample2GetSrcFromDst(instance.get(), outputs), frames) << mode << ' ' << outputs;
  }
  EXPECT_EQ(QnAudio_Resample2GetSrcFromDst(Open(32, 1, {0, 0, 0.7}, 4).get(), 8), 23u);
  EXPECT_EQ(QnAudio_Resample2GetSrcFromDst(Open(32, 1, {0, 0, 0.7}, 1).get(), 8), 11u);
}

TEST(Resample2, RefusesWhatItCannotDo) {
  for (const int type : {0, 15, 67, 128}) Open(type, 2, {2, 3}, 1, E_INVALIDARG);
  for (const LONG channels : {0, -1, 65536}) Open(32, channels, {2, 3}, 1, E_INVALIDARG);
  for (const Rates& rates :
       {Rates{0, 3}, {3, 0}, {-2, 3}, {2, -3}, {0, 0, -1}, {0, 0, NAN}, {0, 0, INFINITY}, {0, 0, 1e-10}})
    Open(32, 2, rates, 4, E_INVALIDARG);
  Open(20, 2, {2, 3}, 4, E_NOTIMPL);
  EXPECT_EQ(QnAudio_Resample2Open(nullptr, QNST_FLOAT32, 2, 2, 3, 1), E_POINTER);
  QnAudio_Resample2Close(nullptr);
  const int kNone[][2] = {{32, 3}, {18, 1}, {64, 1}, {20, 1}, {32, 0}},
            kSome[][2] = {{18, 0x11}, {64, 2}, {17, 0x31}};
  double in[20] = {}, out[20];
  for (const auto& [type, flags] : kNone)
    Process(Open(type, 1, {2, 3}, static_cast<DWORD>(flags)), out, 9, in, 9, E_NOTIMPL);
  for (const auto& [type, flags] : kSome) {
    const Instance instance = Open(type, 1, {2, 3}, static_cast<DWORD>(flags));
    EXPECT_GT(Process(instance, out, 9, in, 9).produced, 0u) << type;
    Process(instance, nullptr, 9, in, 9, E_POINTER);
    Process(instance, out, 9, nullptr, 9, E_POINTER);
  }
  for (const auto& [type, channels, ratio] : {std::tuple{64, 0, 0.}, {0, -1, 0.}, {0, 0, NAN}, {20, 0, 0.}}) {
    tQNRESAMPLE2INSTANCE* const dead = Open(32, 1, {2, 3}, 2).release();
    EXPECT_LT(QnAudio_Resample2ResetEx(dead, static_cast<QNSAMPLETYPE>(type), channels, ratio, 0, 0), 0);
  }
}

TEST(Resample2, CopiesAtTheRatioOne) {
  const Instance instance = Open(18, 2, {48000, 48000}, 4);
  Bytes in = Noise(18, 20, .4), out(60);
  EXPECT_EQ(Process(instance, out.data(), 9, in.data(), 7).produced, 7u);
  EXPECT_TRUE(std::equal(out.begin(), out.begin() + 42, in.begin()) && out[42] == 0);
  const auto [produced, consumed] = Process(instance, in.data(), 9, in.data(), 7);
  EXPECT_TRUE(produced == 9 && consumed == 7 && QnAudio_Resample2GetDstPos(instance.get()) == 16);
}

// A reset with `clear` is a new stream, of whatever it changes to; without it a stream goes on.
TEST(Resample2, Resets) {
  const Bytes in = Noise(33, 2000, .4);
  const Instance instance = Open(17, 1, {3, 2}, 1 | 0x20);
  tQNRESAMPLE2INSTANCE* const handle = instance.get();
  Bytes junk(8000), out(80000);
  for (const DWORD flags : {4u, 2u, 1u, 0x14u, 0x22u}) {
    for (const auto& [type, channels, src, dst] :
         {std::tuple{33, 1, 48000, 44100}, {32, 2, 44100, 96000}, {33, 2, 1, 2}, {17, 3, 192000, 44100}}) {
      const QNSAMPLETYPE sampleType = static_cast<QNSAMPLETYPE>(type);
      const Stream stream = {type, channels, {src, dst}, flags};
      Bytes source = ConvertAll(type, 33, in, 1.0f);
      const size_t bytes = stream.FrameBytes(), frames = source.size() / bytes, half = frames / 2;
      source.resize(frames * bytes);
      Process(instance, out.data(), 100, junk.data(), 100);
      ASSERT_EQ(QnAudio_Resample2Reset(handle, sampleType, channels, src, dst, flags, 1), 0);
      EXPECT_EQ(QnAudio_Resample2GetSrcPos(handle) + QnAudio_Resample2GetDstPos(handle), 0);
      size_t done = Process(instance, out.data(), 3000, source.data(), half).produced;
      ASSERT_EQ(QnAudio_Resample2Reset(handle, QNST_NONE, 0, 0, 0, 0, 0), 0);
      ASSERT_EQ(QnAudio_Resample2Reset(handle, QNST_NONE, 0, src, 0, 0, 0), 0);
      const uint8_t* const second = source.data() + half * bytes;
      done += Process(instance, out.data() + done * bytes, 3000, second, frames - half).produced;
      done += Process(instance, out.data() + done * bytes, 3000, nullptr, 0).produced;
      ASSERT_EQ(Bytes(out.data(), out.data() + done * bytes), stream.Run(source, 0)) << flags << ' ' << type;
    }
  }
  // A fraction that is found at open, and one that a reset has too tight a limit for, run alike.
  for (const double ratio : {25.0 / 32, 0.5, 27.0 / 128})
    ASSERT_EQ(QnAudio_Resample2ResetEx(handle, QNST_FLOAT32, 1, ratio, 4, 1), 0);
  EXPECT_EQ(QnAudio_Resample2GetSrcFromDst(handle, 28), 13u + 128);
  // A stream that goes on in doubles goes on with its history.
  const Instance other = Open(32, 1, {48000, 44100}, 4);
  size_t frames = Process(other, out.data(), 3000, in.data(), 480).produced;
  ASSERT_EQ(QnAudio_Resample2Reset(other.get(), QNST_FLOAT64, 0, 0, 0, 0, 0), 0);
  frames += Process(other, out.data(), 3000, in.data(), 480).produced;
  EXPECT_EQ(frames + Process(other, out.data(), 3000, nullptr, 0).produced, 882u);
}

}  // namespace
