#include "tests/audio/qncopy_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "hwy/targets.h"
#include "qn/audio/qncopy_rule.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace qntest {
namespace {

bool IsBigEndian(int type) {
  return type >= 64 && type <= 66;
}
bool IsFloat(int type) {
  return type == 32 || type == 33;
}

double FullScaleOf(int type) {
  const int bits = type == 48 ? 24 : static_cast<int>(8 * BytesOf(type));
  return IsFloat(type) ? 1.0 : std::ldexp(1.0, bits - 1);
}

int64_t ReadInteger(int type, const uint8_t* from) {
  const size_t count = BytesOf(type);
  int64_t word = 0;
  for (size_t i = 0; i < count; ++i) word = word * 256 + from[IsBigEndian(type) ? i : count - 1 - i];
  if (type == 16) return word - 128;
  const int64_t half = int64_t{1} << (8 * count - 1);
  return word < half ? word : word - 2 * half;
}

void WriteInteger(int type, uint8_t* to, uint64_t bits) {
  const size_t count = BytesOf(type);
  for (size_t i = 0; i < count; ++i, bits >>= 8) to[IsBigEndian(type) ? count - 1 - i : i] = bits & 0xFF;
  if (type == 16) to[0] ^= 0x80;
}

constexpr int kNoise = 20000;

Bytes Integers(int type) {
  Bytes bytes;
  const size_t size = BytesOf(type);
  const auto add = [&](int64_t value) {
    bytes.resize(bytes.size() + size);
    WriteInteger(type, bytes.data() + bytes.size() - size, static_cast<uint64_t>(value));
  };
  for (int64_t value = 0; size <= 2 && value < int64_t{1} << (8 * size); ++value) add(value);
  for (int bit = 0; size > 2 && bit < 32; ++bit) {
    for (const int64_t near : {-2, -1, 0, 1, 2}) add((int64_t{1} << bit) + near);
    for (const int64_t near : {-2, -1, 0, 1, 2}) add(near - (int64_t{1} << bit));
  }
  // Words with few low bits meet ties when they are narrowed; words of few bits are typical of quiet audio.
  for (int i = 0; size > 2 && i < kNoise; ++i) {
    const int64_t word = static_cast<int32_t>(Random()());
    add(i % 4 == 0 ? word & ~0x7F : i % 4 == 1 ? word & ~0x7FFF : i % 4 == 2 ? word >> (i % 31) : word);
  }
  return bytes;
}

template <typename T, typename Bits>
Bytes Floats() {
  using Limits = std::numeric_limits<T>;
  std::vector<T> floats = {Limits::quiet_NaN(), -Limits::quiet_NaN()};
  const auto around = [&](T x) {
    for (const T near : {x, std::nextafter(x, Limits::max()), std::nextafter(x, Limits::lowest())}) {
      floats.insert(floats.end(), {near, -near});
    }
  };
  for (const T x : {T(0), T(2), T(65536), T(1e30), Limits::min(), Limits::max(), Limits::infinity()})
    around(x);
  for (const double unit : {128.0, 32768.0, 8388608.0, 2147483648.0}) {
    for (int halves = -3; halves < 9; ++halves) {
      around(static_cast<T>(halves / 2.0 / unit));
      around(static_cast<T>(1.0 - halves / 2.0 / unit));
    }
  }
  // Values within full scale and a bit above, ties of 16 bits, and any bits: NaNs, denormals, and others.
  const Bits exponent = std::bit_cast<Bits>(Limits::infinity());
  for (int i = 0; i < kNoise; ++i) {
    const double x = static_cast<double>(static_cast<int64_t>(Random()())) * 0x1.4p-63;
    const Bits bits = static_cast<Bits>(Random()());
    floats.push_back(static_cast<T>(i % 8 == 1 ? std::floor(x * 65536) / 65536 : x));
    if (i % 8 == 0) floats.push_back(std::bit_cast<T>(bits));
    if (i % 8 == 2) floats.push_back(std::bit_cast<T>(bits | exponent));
    if (i % 8 == 4) floats.push_back(std::bit_cast<T>(bits & ~exponent));
  }
  Bytes bytes(floats.size() * sizeof(T));
  std::memcpy(bytes.data(), floats.data(), bytes.size());
  return bytes;
}

}  // namespace

size_t BytesOf(int type) {
  if (type == 33) return 8;
  return type == 16 || type == 49 ? 1 : type == 17 || type == 64 ? 2 : type == 18 || type == 65 ? 3 : 4;
}

WAVEFORMATEX Format(int type, size_t channels, DWORD rate) {
  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, rate, static_cast<QNSAMPLETYPE>(type), static_cast<DWORD>(channels));
  return format;
}

Bytes Encode(int type, const std::vector<double>& values) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(values.data());
  return ConvertAll(type, 33, Bytes(bytes, bytes + values.size() * sizeof(double)), 1.0f);
}

std::vector<double> Decode(int type, const Bytes& samples) {
  std::vector<double> values(samples.size() / BytesOf(type));
  std::ranges::copy(ConvertAll(33, type, samples, 1.0f), reinterpret_cast<uint8_t*>(values.data()));
  return values;
}

Bytes Noise(int type, size_t samples, double level) {
  std::vector<double> values(samples);
  for (double& x : values) x = level * (std::ldexp(static_cast<double>(Random()() >> 11), -52) - 1.0);
  return Encode(type, values);
}

bool RunsBackward(int dst, int src) {
  static const std::set<std::pair<int, int>> others = {{18, 65}, {65, 18}, {19, 48}, {32, 48},
                                                       {32, 66}, {66, 32}, {66, 48}, {66, 33}};
  return BytesOf(dst) > BytesOf(src) || others.count({dst, src}) > 0;
}

void ConvertOne(int dst, uint8_t* to, int src, const uint8_t* from, float scale) {
  if (scale == 1.0f && dst == src) {
    std::copy_n(from, BytesOf(src), to);
    return;
  }
  // A shared swap kernel of 16 or 32 bits reads and writes big-endian on both sides when there is a gain.
  if (scale != 1.0f && std::abs(dst - src) == 47 && dst + src != 18 + 65) dst = src = std::max(dst, src);
  const double gain = scale, decode = 1.0 / FullScaleOf(src), fullScale = FullScaleOf(dst);
  double x;
  if (src == 33) {
    x = qn::LoadAs<double>(from) * gain;
  } else if (src == 32) {
    const float sample = qn::LoadAs<float>(from);
    x = dst == 33 ? static_cast<double>(sample) * gain : static_cast<double>(scale * sample);
  } else if (src == 19 && dst == 32) {
    x = static_cast<double>(static_cast<float>(ReadInteger(src, from)) * static_cast<float>(gain * decode));
  } else {
    x = static_cast<double>(ReadInteger(src, from)) * decode * gain;
  }
  const float single = static_cast<float>(x);
  if (dst == 32) {
    std::memcpy(to, &single, sizeof single);
  } else if (dst == 33) {
    std::memcpy(to, &x, sizeof x);
  } else {
    const double rounded = std::nearbyint(std::clamp(x * fullScale, -fullScale, fullScale - 1));
    WriteInteger(dst, to, std::isnan(x) ? std::bit_cast<uint64_t>(x) : static_cast<int64_t>(rounded));
  }
}

Bytes ConvertAll(int dst, int src, const Bytes& samples, float scale) {
  const size_t count = samples.size() / BytesOf(src);
  Bytes result(count * BytesOf(dst));
  for (size_t i = 0; i < count; ++i) {
    ConvertOne(dst, result.data() + i * BytesOf(dst), src, samples.data() + i * BytesOf(src), scale);
  }
  return result;
}

Bytes SamplesOf(int type) {
  const Bytes bytes = type == 32   ? Floats<float, uint32_t>()
                      : type == 33 ? Floats<double, uint64_t>()
                                   : Integers(type);
  const size_t size = BytesOf(type), count = bytes.size() / size, step = 7919;  // a prime
  Bytes mixed(bytes.size());
  for (size_t i = 0; i < count; ++i) {
    std::copy_n(bytes.data() + i * step % count * size, size, mixed.data() + i * size);
  }
  return mixed;
}

Bytes TameSamplesOf(int type, size_t count) {
  Bytes samples = IsFloat(type) ? ConvertAll(type, 19, SamplesOf(19), 1.0f) : SamplesOf(type);
  const size_t once = samples.size();
  samples.resize(count * BytesOf(type));
  for (size_t i = once; i < samples.size(); ++i) samples[i] = samples[i - once];
  return samples;
}

std::vector<qn::CopyKernel> Pairs() {
  std::vector<qn::CopyKernel> pairs(qn::CopyKernels().begin(), qn::CopyKernels().end());
  std::erase_if(pairs, [](const qn::CopyKernel& pair) { return pair.scalar == nullptr; });
  return pairs;
}

void ForEachTarget(const std::function<void()>& body) {
  const int64_t supported = hwy::SupportedTargets() | HWY_STATIC_TARGET;
  std::set<qn::ConvertFunction> reached;
  size_t targets = 0;
  for (const int64_t target : {HWY_AVX3_DL, HWY_AVX2, HWY_STATIC_TARGET}) {
    if (!(supported & target)) continue;
    SCOPED_TRACE(hwy::TargetName(target));
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    reached.insert(qn::FindConverter(qn::SampleFormIndex(16), qn::SampleFormIndex(32)).gain);
    EXPECT_EQ(reached.size(), ++targets) << "a target that was not dispatched to";
    body();
  }
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

void ForEachKernel(const qn::CopyKernel& pair, const std::function<void(QNCOPYFUNCTION)>& body) {
  SCOPED_TRACE(std::string(qn::SampleTypeName(pair.dst)) + "_from_" + qn::SampleTypeName(pair.src));
  ForEachTarget([&] {
    body(pair.scalar);
    if (pair.vector != nullptr) body(pair.vector);
  });
}

void ForEachDenormalMode(const std::function<void()>& body) {
  body();
#if defined(__x86_64__)
  SCOPED_TRACE("denormals flushed");
  const unsigned saved = _mm_getcsr();
  _mm_setcsr(saved | 0x8040);
  body();
  _mm_setcsr(saved);
#endif
}

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kGuardBehind = 0;
#else
constexpr size_t kGuardBehind = 64;
#endif

GuardedBuffer::GuardedBuffer(size_t size, size_t offset)
    : front_(64 + offset), size_(size), block_(front_ + size + kGuardBehind, 0xA5) {}

bool GuardedBuffer::Intact() const {
  for (size_t i = 0; i < block_.size(); ++i) {
    if ((i < front_ || i >= front_ + size_) && block_[i] != 0xA5) return false;
  }
  return true;
}

}  // namespace qntest
