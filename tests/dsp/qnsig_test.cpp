#include "qn/dsp/qnsig.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

#include "qn/dsp/qnsig_internal.h"
#include "qn/kernel/qncpu.h"
#include "qn/platform/sync.h"
#include "tests/support/support.h"

namespace {

using Wide = std::complex<long double>;
constexpr long double kPi = std::numbers::pi_v<long double>;

// A callback that keeps what it is told and cancels at call number `user`, for 0 never.
std::vector<DWORD> reported;
BOOL Report(ULONGLONG user, HQNFFT, DWORD pass, DWORD) {
  reported.push_back(pass);
  return reported.size() != user;
}

enum Kind { kReal, kTwo, kComplex, kPlain };

// A transform of unaligned data against its sum, all bins of small ones and some of large ones, and back.
template <class T>
void CheckTransform(HQNFFT fft, Kind kind, auto forward, auto inverse, auto... channels) {
  SCOPED_TRACE(testing::Message() << "size " << fft->size << " bytes " << sizeof(T) << " kind " << kind);
  const bool pairs = kind >= kComplex, scaled = sizeof(T) == sizeof(float) || !(fft->spec || kind == kPlain);
  const size_t n = fft->size, lanes = kind == kReal ? 1 : 2, signals = kind == kTwo ? 2 : 1;
  std::vector<T> block(n * lanes + 2, T{7}), in(n * lanes);
  T* const x = block.data() + 1;
  for (size_t i = 0; i < in.size(); ++i) x[i] = in[i] = static_cast<T>(std::sin(qntest::Random()()));
  // The complex transform divides by twice its points, and the plain one computes with factors of floats.
  const long double scale = (scaled ? 1.75L : 1) / (kind == kComplex ? 2 * n : n), whole = scaled ? 1.4L : 1;
  const double limit = (8 + 4 * std::log2(n)) * (kind == kPlain ? 1e-7 : std::numeric_limits<T>::epsilon());
  ASSERT_TRUE(forward(fft, x, fft->size, T{1.75}, channels...));
  for (size_t bin = 0; bin < (pairs ? n : n / 2 + 1) * signals; bin += (n / 1024) | 1) {
    const size_t k = bin / signals, lane = bin % signals;
    const bool single = !pairs && (k == 0 || 2 * k == n);
    const size_t at = pairs ? 2 * k : (single ? k != 0 : 2 * k) * lanes + lane;
    const Wide root = std::polar(1.0L, 2 * kPi * k / n), got = {x[at], single ? T{} : x[at + signals]};
    Wide sum = 0;
    for (size_t i = n; i-- > 0;) sum = sum * root + Wide(in[i * lanes + lane], pairs ? in[2 * i + 1] : T{});
    ASSERT_LE(std::abs(got - sum * scale) * std::sqrt(n), limit) << k;
  }
  ASSERT_TRUE(inverse(fft, x, fft->size, T(0.8), channels...));
  for (size_t i = 0; i < in.size(); ++i) ASSERT_NEAR(x[i], in[i] * whole, limit) << i;
  EXPECT_TRUE(block.front() == 7 && block.back() == 7);
}

template <LONG kDirection>
BOOL Plain(HQNFFT, double* x, DWORD size, double) {
  return compute_fft(reinterpret_cast<COMPLEX*>(x), static_cast<LONG>(size), kDirection) == FFT_OK;
}

TEST(Sig, TransformsEqualTheirSums) {
  for (DWORD size = 1; size <= 1 << 14; size *= size < 2048 ? 2 : 4) {
    for (const auto& [callback, useFast] : {std::pair<QNFFTPROGRESS, BOOL>{}, {nullptr, 1}, {Report, 1}}) {
      const HQNFFT fft = QnSig_PrepareFFT(0, size, callback, useFast);
      CheckTransform<double>(fft, kReal, QnSig_FFT, QnSig_InverseFFT);
      CheckTransform<float>(fft, kReal, QnSig_FFT_Float, QnSig_InverseFFT_Float);
      CheckTransform<float>(fft, kTwo, QnSig_FFT_Interleaved_Float, QnSig_InverseFFT_Interleaved_Float, 2);
      CheckTransform<float>(fft, kComplex, QnSig_FFT_Complex_Float, QnSig_InverseFFT_Complex_Float);
      if (size > 1) CheckTransform<double>(fft, kPlain, Plain<-1>, Plain<1>);
      QnSig_UnprepareFFT(fft);
    }
  }
}

TEST(Sig, ReportsPassesAndStops) {
  const auto answer = [](HQNFFT, auto*, DWORD, void* argument) -> BOOL { return argument != nullptr; };
  // Forward, the two sides of the process function, and the passes of the inverse transform.
  for (const auto& [size, passes] :
       {std::pair<DWORD, std::vector<DWORD>>{16, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
        {32, {1, 3, 5, 6, 7, 8, 9, 11, 13, 14}},
        {64, {1, 3, 5, 6, 7, 8, 9, 10, 11, 13, 15, 16}}}) {
    double x[64] = {};
    float y[128] = {};
    const HQNFFT fft = QnSig_PrepareFFT(0, size, Report, 1);
    EXPECT_TRUE(fft->interval == 128 && 2 * fft->passes + 2 == passes.back());
    // The first pass is due, the others are just counted.
    fft->interval = 100000;
    fft->nextTick = GetTickCount();
    reported.clear();
    EXPECT_EQ(QnSig_FFTProcess(fft, x, size, 1, 1, answer, x), 1);
    EXPECT_TRUE(reported.size() == 1 && fft->pass == passes.back());
    fft->nextTick = GetTickCount();
    for (size_t stop = passes.size() + 1; stop > 0; --stop) {
      fft->user = stop;
      fft->interval = fft->pass = 0;
      reported.clear();
      EXPECT_EQ(QnSig_FFTProcess(fft, x, size, 1, 1, answer, x), stop > passes.size());
      EXPECT_EQ(reported, std::vector(passes.begin(), passes.begin() + std::min(stop, passes.size())));
    }
    EXPECT_EQ(QnSig_FFTProcess(fft, x, size, 1, 1, answer, nullptr), 0);
    // The forms for floats look neither at a stop nor at the answer, and add no counts.
    reported.clear();
    EXPECT_EQ(QnSig_FFTProcess_Interleaved_Float(fft, y, size, 1, 1, answer, 2, nullptr), 1);
    EXPECT_EQ(reported.size(), passes.size() / 2);
    EXPECT_EQ(QnSig_ReprepareFFT(fft, 0, size, Report, 1)->pass, 0u);
    QnSig_UnprepareFFT(fft);
  }
}

TEST(Sig, ReprepareKeepsWhatStillFits) {
  for (const DWORD bits : {0x40u, 0u}) {
    QnOnlyAllowCPUSupport(bits);
    const HQNFFT fft = QnSig_PrepareFFT(5, 256, nullptr, 1);
    const tQNFFT old = *fft;
    EXPECT_TRUE(old.spec && old.buffer && old.fast && old.user == 5 && old.size == 256 && old.passes == 9);
    EXPECT_EQ(QnSig_ReprepareFFT(fft, 6, 256, nullptr, 1), fft);
    EXPECT_TRUE(fft->spec == old.spec && fft->buffer == old.buffer && fft->fast && fft->user == 6);
    EXPECT_FALSE(QnSig_ReprepareFFT(fft, 0, 256, Report, 1)->spec);
    QnSig_ReprepareFFT(fft, 0, 512, Report, 1);
    EXPECT_TRUE(!fft->spec && !fft->fast == !bits && fft->bufferSize == (bits ? 4096 : 0));
    QnSig_ReprepareFFT(fft, 0, 128, nullptr, 1);
    EXPECT_TRUE(fft->spec && fft->fast && !fft->callback);
    QnSig_ReprepareFFT(fft, 0, 128, nullptr, 0);
    EXPECT_TRUE(!fft->spec && !fft->fast && !fft->buffer && fft->bufferSize == 0);
    QnSig_UnprepareFFT(fft);
  }
  QnAllowCPUSupport(0xFF0);
}

TEST(Sig, RefusesWhatItCannotTransform) {
  double x[8] = {};
  float y[16] = {};
  const auto go = [](HQNFFT, auto*, DWORD, void*) -> BOOL { return 1; };
  for (const DWORD size : {0u, 3u, 6u, 0x80000001u, 4u, 16u, 8u}) {
    const HQNFFT fft = size == 8 ? nullptr : QnSig_PrepareFFT(0, size, nullptr, 1);
    const DWORD other = std::has_single_bit(size) ? 8 : size;
    EXPECT_FALSE(QnSig_FFT(fft, x, other, 1) || QnSig_FFTProcess(fft, x, other, 1, 1, go, x)) << size;
    // The passes take any power of 2.
    const BOOL isFloatTaken = fft && std::has_single_bit(other);
    EXPECT_EQ(QnSig_FFT_Float(fft, y, other, 1), isFloatTaken);
    EXPECT_EQ(QnSig_FFTProcess_Float(fft, y, other, 1, 1, go, x), isFloatTaken);
    EXPECT_FALSE(QnSig_FFT(fft, nullptr, size, 1) || QnSig_FFT_Complex_Float(fft, y, 6, 1));
    EXPECT_FALSE(QnSig_FFTProcess(fft, x, size, 1, 1, nullptr, x) || QnSig_UnprepareFFT(fft) != (size != 8));
  }
  COMPLEX z[8] = {{0, 0}, {1, 0}};
  for (const auto& [points, direction] : {std::pair{8, 0}, {8, 2}, {1, 1}, {0, 1}, {-8, 1}, {6, 1}})
    EXPECT_EQ(compute_fft(z, points, direction), FFT_BAD_ARGUMENT) << points;
  compute_fft(z, 8, 1);
  EXPECT_EQ(z[1].re, std::sqrt(0.5f)) << "the precision of floats";
}

TEST(Sig, WindowsAreNormalisedOrLowPass) {
  double first[9], second[9];
  float narrow[9], narrowSecond[9];
  makewindows(first, second, 4, 8, 0);  // comes to an end
  for (const auto& [length, size, hop] : {std::tuple{4, 8, 2}, {8, 8, 3}, {9, 4, 2}, {8, 4, 2}}) {
    makewindows(first, second, length, size, hop);
    makewindows_float(narrow, narrowSecond, length, size, hop);
    const auto hamming = [n = length - 1](int i) { return 0.54L - 0.46L * std::cos(2 * kPi * i / n); };
    long double squares = 0;
    for (int i = 0; i < length; i += hop) squares += hamming(i) * hamming(i);
    for (int i = 0; i < length; ++i) {
      const long double x = (i - (length - 1) / 2.0L) * kPi;
      const auto sinc = [x](int width) { return x == 0 ? 1 : std::sin(x / width) / (x / width); };
      EXPECT_NEAR(first[i], hamming(i) * (length <= size ? 1 : sinc(size)), 1e-15) << i;
      EXPECT_NEAR(second[i], hamming(i) * (length <= size ? 1 / squares : sinc(hop)), 1e-15) << i;
      EXPECT_TRUE(std::abs(narrow[i] - first[i]) < 1e-7 && std::abs(narrowSecond[i] - second[i]) < 1e-7);
    }
  }
}

TEST(Sig, SpectraMultiplyAsComplexNumbers) {
  double kernel[] = {2, 3, 4, 5, 6, 7, 8}, products[] = {2, 6, -8, 31, -12, 71};
  for (DWORD size = 0; size <= 7; ++size) {
    double x[] = {1, 2, 3, 4, 5, 6, 7};
    float y[] = {1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(fnConvolution(nullptr, x, size, kernel) + fnConvolution_float(nullptr, y, size, kernel), 2);
    for (DWORD i = 0; i < 7; ++i) {
      const bool done = i < size && (i < 2 || (i | 1) < size);
      EXPECT_TRUE(x[i] == (done ? products[i] : i + 1) && y[i] == x[i]) << size << ' ' << i;
    }
  }
}

}  // namespace
