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

struct Row {
  int type;
  size_t bytes;
  double decode;
  double encode;
  double low, high;
};

constexpr Row kRows[] = {
    {16, 1, 0.0078125, 128.0, -128, 127},
    {49, 1, 0.0078125, 128.0, -128, 127},
    {17, 2, 3.0517578125e-5, 32768.0, -32768, 32767},
    {64, 2, 3.0517578125e-5, 32768.0, -32768, 32767},
    {18, 3, 1.1920928955078125e-7, 8388608.0, -8388608, 8388607},
    {65, 3, 1.1920928955078125e-7, 8388608.0, -8388608, 8388607},
    {48, 4, 1.1920928955078125e-7, 8388608.0, -8388608, 8388607},
    {19, 4, 4.656612873077393e-10, 2147483648.0, -2147483648.0, 2147483647.0},
    {66, 4, 4.656612873077393e-10, 2147483648.0, -2147483648.0, 2147483647.0},
    {32, 4, 1, 1, 0, 0},
    {33, 8, 1, 1, 0, 0},
};

const Row& RowOf(int type) {
  return *std::find_if(std::begin(kRows), std::end(kRows), [=](const Row& row) { return row.type == type; });
}

bool IsBigEndian(int type) {
  return type >= 64 && type <= 66;
}
bool IsInteger(int type) {
  return type != 32 && type != 33;
}

int32_t ReadInteger(int type, const uint8_t* from) {
  const size_t count = BytesOf(type);
  uint32_t word = 0;  // the sample in the top bytes
  for (size_t i = 0; i < count; ++i) {
    const uint8_t byte = from[IsBigEndian(type) ? count - 1 - i : i] ^ (type == 16 ? 0x80 : 0);
    word |= uint32_t{byte} << (8 * (4 - count + i));
  }
  return static_cast<int32_t>(word) >> (32 - 8 * count);
}

void WriteInteger(int type, uint8_t* to, uint64_t bits) {
  const size_t count = BytesOf(type);
  for (size_t i = 0; i < count; ++i) to[i] = static_cast<uint8_t>(bits >> (8 * i));
  if (type == 16) to[0] ^= 0x80;
  if (IsBigEndian(type)) std::reverse(to, to + count);
}

void WriteRounded(int type, uint8_t* to, double y) {
  if (std::isnan(y)) return WriteInteger(type, to, std::bit_cast<uint64_t>(y));
  y = std::clamp(y, RowOf(type).low, RowOf(type).high);
  WriteInteger(type, to, static_cast<uint64_t>(static_cast<int64_t>(std::nearbyint(y))));
}

template <typename T>
T Load(const uint8_t* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <typename T>
void Append(Bytes& bytes, T value) {
  const size_t at = bytes.size();
  bytes.resize(at + sizeof value);
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

void AppendInteger(Bytes& bytes, int type, int64_t value) {
  bytes.resize(bytes.size() + BytesOf(type));
  WriteInteger(type, bytes.data() + bytes.size() - BytesOf(type), static_cast<uint64_t>(value));
}

void AppendIntegers(Bytes& bytes, int type, size_t noise) {
  if (BytesOf(type) <= 2) {
    for (int64_t value = 0; value < (1 << (8 * BytesOf(type))); ++value) AppendInteger(bytes, type, value);
    return;
  }
  for (int bit = 0; bit < 32; ++bit) {
    for (const int64_t near : {-2, -1, 0, 1, 2}) {
      for (const int64_t power : {int64_t{1} << bit, int64_t{3} << bit >> 1}) {
        AppendInteger(bytes, type, power + near);
        AppendInteger(bytes, type, -power - near);
      }
    }
  }
  // Words with few low bits meet ties when they are narrowed; words of few bits are typical of quiet audio.
  for (size_t i = 0; i < noise; ++i) {
    const int64_t word = static_cast<int32_t>(Random()());
    AppendInteger(bytes, type, i % 4 == 0 ? word & ~0x7FFF : i % 4 == 1 ? word >> (i % 31) : word);
  }
}

template <typename T, typename Bits>
void AppendFloats(Bytes& bytes, size_t noise) {
  using Limits = std::numeric_limits<T>;
  const auto both = [&](T value) {
    Append(bytes, value);
    Append(bytes, -value);
  };
  for (const Bits payload : {0, 1, 0x3A5, 0x155557}) {
    both(std::bit_cast<T>(std::bit_cast<Bits>(Limits::quiet_NaN()) | payload));
  }
  Append(bytes, std::bit_cast<Bits>(Limits::signaling_NaN()) | 5);
  for (const T x : {Limits::denorm_min(), Limits::min(), Limits::max(), Limits::infinity(), T{0}, T{1e30}})
    both(x);
  for (const double unit : {128.0, 32768.0, 8388608.0, 2147483648.0}) {
    for (const double steps :
         {0.5, 1.0, 1.5, 2.5, 101.5, unit - 1.5, unit - 1.0, unit - 0.5, unit, 1.5 * unit}) {
      const T x = static_cast<T>(steps / unit);
      for (const T near : {x, std::nextafter(x, Limits::max()), std::nextafter(x, Limits::lowest())})
        both(near);
    }
  }
  for (size_t i = 0; i < noise; ++i) {
    const double x = static_cast<double>(static_cast<int64_t>(Random()())) * 0x1.4p-63;
    if (i % 8 == 0) {
      Append(bytes, static_cast<Bits>(Random()()));
    } else {
      Append(bytes, static_cast<T>(i % 8 == 1 ? std::floor(x * 65536) / 131072 : x));
    }
  }
}

}  // namespace

size_t BytesOf(int type) {
  return type >= 128 ? 4 : RowOf(type).bytes;
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
  const double gain = scale;
  const double encode = RowOf(dst).encode;
  double x = 0;      // of a double destination or, times `encode`, of an integer one
  float single = 0;  // of a float destination
  if (IsInteger(src)) {
    const int32_t sample = ReadInteger(src, from);
    x = sample * RowOf(src).decode;
    if (scale != 1.0f) x = x * gain;
    single = static_cast<float>(x);
    if (src == 19 && scale != 1.0f) {
      single = static_cast<float>(sample) * static_cast<float>(gain * 4.656612873077393e-10);
    }
  } else if (src == 32) {
    const float sample = Load<float>(from);
    single = scale * sample;
    x = dst == 33 ? static_cast<double>(sample) * gain : static_cast<double>(single);
  } else {
    x = Load<double>(from);
    x = x * gain;
    single = static_cast<float>(x);
  }
  if (dst == 32) {
    std::memcpy(to, &single, sizeof single);
  } else if (dst == 33) {
    std::memcpy(to, &x, sizeof x);
  } else {
    WriteRounded(dst, to, x * encode);
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

Bytes SamplesOf(int type, bool few) {
  constexpr size_t kFewSamples = 4000;
  const size_t noise = few ? 1000 : 20000;
  Bytes bytes;
  if (type == 32) {
    AppendFloats<float, uint32_t>(bytes, noise);
  } else if (type == 33) {
    AppendFloats<double, uint64_t>(bytes, noise);
  } else {
    AppendIntegers(bytes, type, noise);
  }
  if (few) {
    Bytes some;
    const size_t size = BytesOf(type), count = bytes.size() / size;
    for (size_t i = 0; i < kFewSamples; ++i) {
      const uint8_t* const sample = bytes.data() + i * 17 % count * size;
      some.insert(some.end(), sample, sample + size);
    }
    return some;
  }
  return bytes;
}

void ForEachTarget(const std::function<void()>& body) {
  const int64_t supported = hwy::SupportedTargets();
  std::vector<int64_t> targets;
#if HWY_ARCH_X86
  for (const int64_t target : {HWY_AVX3_DL, HWY_AVX2}) {
    if (supported & target) targets.push_back(target);
  }
#endif
  targets.push_back(HWY_STATIC_TARGET);
  std::set<qn::ConvertFunction> reached;
  for (const int64_t target : targets) {
    SCOPED_TRACE(hwy::TargetName(target));
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    reached.insert(qn::FindConverter(qn::SampleFormIndex(16), qn::SampleFormIndex(32)).gain);
    body();
  }
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  EXPECT_EQ(reached.size(), targets.size()) << "targets that were not dispatched to";
}

void ForEachDenormalMode(const std::function<void()>& body) {
#if defined(__x86_64__)
  const unsigned saved = _mm_getcsr();
  for (const unsigned flush : {0x0000u, 0x8040u}) {
    _mm_setcsr((saved & ~0x8040u) | flush);
    SCOPED_TRACE(flush ? "denormals flushed" : "denormals kept");
    body();
  }
  _mm_setcsr(saved);
#else
  body();
#endif
}

std::vector<QNCOPYFUNCTION> KernelsOf(const qn::CopyKernel& pair) {
  std::vector<QNCOPYFUNCTION> kernels;
  if (pair.scalar) kernels.push_back(pair.scalar);
  if (pair.vector) kernels.push_back(pair.vector);
  return kernels;
}

namespace {
constexpr size_t kGuard = 64;
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kGuardBehind = 0;
#else
constexpr size_t kGuardBehind = 64;
#endif
constexpr uint8_t kGuardByte = 0xA5;
}  // namespace

GuardedBuffer::GuardedBuffer(size_t size, size_t offset)
    : front_(kGuard + offset), size_(size), block_(front_ + size + kGuardBehind, kGuardByte) {}

bool GuardedBuffer::Intact() const {
  const auto isGuard = [](uint8_t byte) { return byte == kGuardByte; };
  const auto first = block_.begin(), behind = first + static_cast<ptrdiff_t>(front_ + size_);
  return std::all_of(first, first + static_cast<ptrdiff_t>(front_), isGuard) &&
         std::all_of(behind, block_.end(), isGuard);
}

std::string Describe(const qn::CopyKernel& pair, float scale) {
  return std::string(qn::SampleTypeName(pair.dst)) + "_from_" + qn::SampleTypeName(pair.src) + ", scale " +
         std::to_string(scale);
}

}  // namespace qntest
