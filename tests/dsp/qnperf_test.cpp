#include "qn/dsp/qnperf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <numbers>
#include <set>
#include <tuple>
#include <vector>

#include "hwy/highway.h"
#include "qn/dsp/fft_internal.h"
#include "tests/support/support.h"

namespace {

using Wide = std::complex<long double>;

constexpr DWORD kOk = 0x4E600;

DWORD Code(HRESULT status) {
  return static_cast<DWORD>(status);
}

// The transform of every `step`th element by halves; `roots` are the factors of the largest one.
void Transform(const Wide* x, size_t n, size_t step, const std::vector<Wide>& roots, Wide* out) {
  if (n == 1) {
    *out = *x;
    return;
  }
  Transform(x, n / 2, 2 * step, roots, out);
  Transform(x + step, n / 2, 2 * step, roots, out + n / 2);
  for (size_t k = 0; k < n / 2; ++k) {
    const Wide even = out[k], w = roots[k * step], odd = out[k + n / 2];
    const Wide turned = {w.real() * odd.real() - w.imag() * odd.imag(),
                         w.real() * odd.imag() + w.imag() * odd.real()};
    out[k] = even + turned;
    out[k + n / 2] = even - turned;
  }
}

std::vector<Wide> Reference(const std::vector<Wide>& x, int sign) {
  std::vector<Wide> roots(x.size()), all(x.size());
  for (size_t k = 0; k < x.size(); ++k) {
    roots[k] = std::polar(1.0L, sign * 2 * std::numbers::pi_v<long double> * k / x.size());
  }
  Transform(x.data(), x.size(), 1, roots, all.data());
  return all;
}

void ForEachTarget(const std::function<void()>& body) {
  std::set<const void*> reached;
  for (const int64_t target : {HWY_AVX3_DL, HWY_AVX2, HWY_STATIC_TARGET}) {
    if (!((hwy::SupportedTargets() | HWY_STATIC_TARGET) & target)) continue;
    SCOPED_TRACE(hwy::TargetName(target));
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    EXPECT_TRUE(reached.insert(&qn::FindFftKernels<float>(1 << 20)).second) << "not dispatched to";
    body();
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
}

// The two kinds of transform under the same names, and their arrays as complex numbers.
struct ComplexFloat {
  using Value = float;
  static constexpr size_t kValues = 2;
  static constexpr auto Init = QnPerfsFFTInitAlloc_C_32fc;
  static constexpr auto Free = QnPerfsFFTFree_C_32fc;
  static HRESULT Size(void* spec, LONG* size) { return QnPerfsFFTGetBufSize_C_32fc(spec, size); }
  static HRESULT Run(float* x, const void* spec, BYTE* work, bool forward) {
    return (forward ? QnPerfsFFTFwd_CToC_32fc : QnPerfsFFTInv_CToC_32fc)(x, x, spec, work);
  }
  static std::vector<Wide> Spectrum(const float* x, size_t n) {
    std::vector<Wide> all(n);
    for (size_t k = 0; k < n; ++k) all[k] = {x[2 * k], x[2 * k + 1]};
    return all;
  }
  static std::vector<Wide> Signal(const float* x, size_t n) { return Spectrum(x, n); }
};

struct RealDouble {
  using Value = double;
  static constexpr size_t kValues = 1;
  static constexpr auto Init = QnPerfsFFTInitAlloc_R_64f;
  static constexpr auto Free = QnPerfsFFTFree_R_64f;
  static HRESULT Size(void* spec, LONG* size) { return QnPerfsFFTGetBufSize_R_64f(spec, size); }
  static HRESULT Run(double* x, const void* spec, BYTE* work, bool forward) {
    return (forward ? QnPerfsFFTFwd_RToPerm_64f_I : QnPerfsFFTInv_PermToR_64f_I)(x, spec, work);
  }
  static std::vector<Wide> Spectrum(const double* x, size_t n) {
    std::vector<Wide> all(n, x[0]);
    if (n > 1) all[n / 2] = x[1];
    for (size_t k = 1; 2 * k < n; ++k) all[n - k] = std::conj(all[k] = {x[2 * k], x[2 * k + 1]});
    return all;
  }
  static std::vector<Wide> Signal(const double* x, size_t n) { return {x, x + n}; }
};

// Data and buffer are not aligned, and what lies behind them stays. With an odd order there is no buffer.
template <class Kind>
void CheckTransform(int order, bool forward, LONG flag) {
  using T = typename Kind::Value;
  SCOPED_TRACE(testing::Message() << "order " << order << " flag " << flag << " forward " << forward);
  const size_t n = size_t{1} << order;
  void* spec = nullptr;
  LONG bytes = 0;
  ASSERT_EQ(Code(Kind::Init(&spec, order, flag, QNPERF_HINT_NONE)), kOk);
  ASSERT_EQ(Code(Kind::Size(spec, &bytes)), kOk);
  std::vector<BYTE> work(static_cast<size_t>(bytes) + 4, 0xA5);
  std::vector<T> data(1 + n * Kind::kValues + 1, T{7});
  std::uniform_real_distribution<T> values(-1, 1);
  T* const x = data.data() + 1;
  for (size_t i = 0; i < n * Kind::kValues; ++i) x[i] = values(qntest::Random());
  const auto expected = Reference(forward ? Kind::Signal(x, n) : Kind::Spectrum(x, n), forward ? -1 : 1);
  const bool divides = flag == (forward ? QNPERF_FFT_DIV_FWD_BY_N : QNPERF_FFT_DIV_INV_BY_N);
  const long double root = flag == QNPERF_FFT_DIV_BY_SQRTN ? 1 / std::sqrt(1.0L * n) : 1.0L;
  const long double scale = divides ? 1.0L / n : root;
  EXPECT_EQ(Code(Kind::Run(x, spec, order % 2 ? nullptr : work.data() + 3, forward)), kOk);
  const auto got = forward ? Kind::Spectrum(x, n) : Kind::Signal(x, n);
  long double power = 0, worst = 0;
  for (size_t k = 0; k < n; ++k) {
    power += std::norm(expected[k] * scale);
    worst = std::max(worst, std::abs(got[k] - expected[k] * scale));
  }
  EXPECT_LE(worst, (2 + order) * std::numeric_limits<T>::epsilon() * std::sqrt(power / n));
  EXPECT_TRUE(data.front() == 7 && data.back() == 7 && work.back() == 0xA5);
  EXPECT_EQ(Code(Kind::Free(spec)), kOk);
}

TEST(Perf, TransformsEqualTheirSums) {
  ForEachTarget([] {
    for (int order = 0; order <= 20; order += order < 16 ? 1 : 4) {
      for (int row = 0; row < (order <= 9 ? 8 : 2); ++row) {
        CheckTransform<ComplexFloat>(order, row % 2, 1 << (row / 2 + order) % 4);
        CheckTransform<RealDouble>(order, row % 2, 1 << (row / 2 + order) % 4);
      }
    }
  });
}

template <class Kind>
void CheckArguments() {
  const auto status = [](LONG number) { return Code(QnPerfMapStatus(number)); };
  void* spec = &spec;
  LONG size = 0;
  typename Kind::Value x[2] = {};
  for (const auto& [order, flag, expected] : {std::tuple{-1, 1, QNPERF_STATUS_FFT_ORDER},
                                              {28, 1, QNPERF_STATUS_FFT_ORDER},
                                              {4, 0, QNPERF_STATUS_FFT_FLAG},
                                              {4, 3, QNPERF_STATUS_FFT_FLAG}}) {
    EXPECT_EQ(Code(Kind::Init(&spec, order, flag, QNPERF_HINT_NONE)), status(expected));
    EXPECT_EQ(spec, &spec);
  }
  EXPECT_EQ(Code(Kind::Init(nullptr, 4, 1, QNPERF_HINT_NONE)), status(QNPERF_STATUS_NULL));
  uint64_t other[8] = {};
  for (const auto& [given, expected] :
       {std::pair<void*, LONG>{nullptr, QNPERF_STATUS_NULL}, {other, QNPERF_STATUS_CONTEXT}}) {
    EXPECT_EQ(Code(Kind::Size(given, &size)), status(expected));
    EXPECT_EQ(Code(Kind::Run(x, given, nullptr, true)), status(expected));
    EXPECT_EQ(Code(Kind::Run(x, given, nullptr, false)), status(expected));
    EXPECT_EQ(Code(Kind::Free(given)), status(expected));
  }
  ASSERT_EQ(Code(Kind::Init(&spec, 0, 1, QNPERF_HINT_FAST)), kOk);
  EXPECT_EQ(Code(Kind::Size(spec, nullptr)), status(QNPERF_STATUS_NULL));
  EXPECT_EQ(Code(Kind::Run(nullptr, spec, nullptr, true)), status(QNPERF_STATUS_NULL));
  Kind::Free(spec);
}

TEST(Perf, TransformsRefuseBadArguments) {
  CheckArguments<ComplexFloat>();
  CheckArguments<RealDouble>();
}

template <typename T>
void CheckMinMax(HRESULT (*minMax)(const T*, LONG, T*, T*), const std::vector<T>& x) {
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const LONG count = static_cast<LONG>(x.size());
  T low = 0, high = 0;
  EXPECT_EQ(Code(minMax(x.data(), count, &low, &high)), kOk);
  const auto [least, most] = std::ranges::minmax(x);
  EXPECT_TRUE(low == least && high == most) << count;
  auto mixed = x;
  mixed.insert(mixed.begin() + count / 2, nan);
  minMax(mixed.data(), count + 1, &low, &high);
  EXPECT_TRUE(low == least && high == most) << count;
  std::ranges::fill(mixed, nan);
  minMax(mixed.data(), count + 1, &low, &high);
  EXPECT_TRUE(std::isnan(low) && std::isnan(high)) << count;
}

TEST(Perf, ArraysOfEveryLengthGiveTheSameAsLoops) {
  ForEachTarget([] {
    for (LONG count = 1; count < 200; ++count) {
      const auto n = static_cast<size_t>(count);
      std::uniform_real_distribution<float> values(-1, 1);
      std::vector<float> x(2 * n), roots(2 * n), parts(2 * n);
      for (size_t i = 0; i < 2 * n; ++i) roots[i] = std::sqrt(std::abs(x[i] = values(qntest::Random())));
      const std::vector<double> wide(x.begin(), x.end());
      CheckMinMax<float>(QnPerfsMinMax_32f, x);
      CheckMinMax<double>(QnPerfsMinMax_64f, wide);

      std::vector<double> product = wide, expected = wide, conjugates = wide;
      for (size_t i = 0; i < 2 * n; i += 2) {
        expected[i] = wide[i] * wide[i] - wide[i + 1] * wide[i + 1];
        expected[i + 1] = wide[i] * wide[i + 1] + wide[i + 1] * wide[i];
      }
      EXPECT_EQ(Code(QnPerfsMul_64fc_I(wide.data(), product.data(), count)), kOk);
      EXPECT_EQ(product, expected) << count;
      EXPECT_EQ(Code(QnPerfsConj_64fc_I(conjugates.data(), count)), kOk);
      for (size_t i = 0; i < 2 * n; ++i) ASSERT_EQ(conjugates[i], i % 2 ? -wide[i] : wide[i]) << count;

      for (const size_t channels : {size_t{1}, size_t{2}, n}) {
        const size_t frames = 2 * n / channels;
        std::vector<float*> out(channels);
        for (size_t c = 0; c < channels; ++c) out[c] = &parts[c * frames];
        EXPECT_EQ(QnPerfsDeinterleave_32f(x.data(), static_cast<LONG>(channels), static_cast<LONG>(frames),
                                          out.data()),
                  0);
        for (size_t i = 0; i < 2 * n; ++i)
          ASSERT_EQ(parts[i % channels * frames + i / channels], x[i]) << channels;
      }
      for (float& value : x) value = std::abs(value);
      EXPECT_EQ(Code(QnPerfsSqrt_32f(x.data(), x.data(), 2 * count)), kOk);
      EXPECT_EQ(x, roots) << count;
    }
  });
}

TEST(Perf, RandomNumbersFillTheirRangeAndGoOn) {
  constexpr LONG kCount = 100000;
  std::vector<float> whole(kCount), parts(kCount);
  DWORD seed = 12345, again = 12345;
  EXPECT_EQ(Code(QnPerfsRandUniform_Direct_32f(whole.data(), kCount, -2, 3, &seed)), kOk);
  for (LONG i = 0; i < kCount; i += kCount / 4)
    QnPerfsRandUniform_Direct_32f(&parts[static_cast<size_t>(i)], kCount / 4, -2, 3, &again);
  EXPECT_EQ(whole, parts);
  EXPECT_EQ(seed, again);
  // Ten equal parts of the range, each within six standard deviations of its share.
  std::vector<int> share(10);
  for (const float x : whole) {
    ASSERT_TRUE(x >= -2 && x < 3);
    ++share[static_cast<size_t>((x + 2) * 2)];
  }
  for (const int count : share) EXPECT_NEAR(count, kCount / 10, 6 * 95);
  // A range of two neighbours never gives the upper one.
  QnPerfsRandUniform_Direct_32f(whole.data(), kCount, 1, std::nextafter(1.0f, 2.0f), &seed);
  EXPECT_EQ(std::ranges::count(whole, 1.0f), kCount);
}

TEST(Perf, OperationsRefuseBadArguments) {
  double pair[2] = {1, 2};
  float x[1] = {4};
  DWORD seed = 1;
  float* none[1] = {};
  for (const HRESULT status :
       {QnPerfsSqrt_32f(nullptr, x, 1), QnPerfsMinMax_32f(x, 1, x, nullptr),
        QnPerfsMinMax_64f(nullptr, 1, pair, pair), QnPerfsMul_64fc_I(pair, nullptr, 1),
        QnPerfsConj_64fc_I(nullptr, 1), QnPerfsRandUniform_Direct_32f(x, 1, 0, 1, nullptr)})
    EXPECT_EQ(Code(status), 0x8004E608);
  for (const HRESULT status :
       {QnPerfsSqrt_32f(x, x, 0), QnPerfsMinMax_32f(x, -1, x, x), QnPerfsMul_64fc_I(pair, pair, 0),
        QnPerfsConj_64fc_I(pair, 0), QnPerfsRandUniform_Direct_32f(x, 0, 0, 1, &seed)})
    EXPECT_EQ(Code(status), 0x8004E606);
  EXPECT_EQ(QnPerfsDeinterleave_32f(x, 0, 1, nullptr), 0);
  EXPECT_EQ(QnPerfsDeinterleave_32f(x, 1, 1, none), 0);
  EXPECT_EQ(QnPerfsMalloc_8u(-1), nullptr);
  void* const block = QnPerfsMalloc_32f(3);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
  QnPerfsFree(block);
  QnPerfsFree(nullptr);
  EXPECT_EQ(Code(QnPerf_Initialize()), kOk);
  const ULONGLONG before = QnPerfGetCpuClocks();
  EXPECT_LT(before, QnPerfGetCpuClocks());
}

TEST(Perf, StatusesMapToResultCodes) {
  const std::pair<LONG, DWORD> kRows[] = {{0, 0x4E600},        {1, 0x4E601},        {255, 0x4E6FF},
                                          {256, 0x4E700},      {-1, 0x8004E601},    {-8, 0x8004E608},
                                          {-9998, 0x8004E700}, {-9999, 0x8004E6FF}, {-9997, 0x80050D0D}};
  for (const auto& [status, code] : kRows)
    EXPECT_EQ(static_cast<DWORD>(QnPerfMapStatus(status)), code) << status;
}

}  // namespace
