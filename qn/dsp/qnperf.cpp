// Vector operations on arrays, with their arguments checked.
#include "qn/dsp/qnperf.h"

#include <chrono>
#include <cmath>

#include "hwy/aligned_allocator.h"
#include "qn/dsp/qnperf_internal.h"

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace {

// Runs `body` unless a pointer is null or the length is below 1.
template <typename F, typename... P>
HRESULT Checked(LONG count, F body, P*... pointers) {
  if ((... || !pointers)) return QnPerfMapStatus(QNPERF_STATUS_NULL);
  if (count < 1) return QnPerfMapStatus(QNPERF_STATUS_SIZE);
  body(static_cast<size_t>(count));
  return QnPerfMapStatus(QNPERF_STATUS_OK);
}

template <typename T>
T* Allocate(LONG count) {
  return count > 0 ? hwy::AllocateAligned<T>(static_cast<size_t>(count)).release() : nullptr;
}

template <typename T>
HRESULT MinMax(const T* in, LONG count, T* min, T* max) {
  return Checked(
      count, [=](size_t n) { qn::FindMinMax(in, n, min, max); }, in, min, max);
}

// A number of 24 bits from the state, a Weyl sequence, by the last steps of MurmurHash3.
DWORD Scatter(DWORD x) {
  x = (x ^ x >> 16) * 0x85EBCA6B;
  x = (x ^ x >> 13) * 0xC2B2AE35;
  return (x ^ x >> 16) >> 8;
}

}  // namespace

HRESULT QnPerf_Initialize() {
  return QnPerfMapStatus(QNPERF_STATUS_OK);
}

ULONGLONG QnPerfGetCpuClocks() {
#if defined(__x86_64__)
  return __rdtsc();
#else
  return static_cast<ULONGLONG>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

BYTE* QnPerfsMalloc_8u(LONG count) {
  return Allocate<BYTE>(count);
}

float* QnPerfsMalloc_32f(LONG count) {
  return Allocate<float>(count);
}

void QnPerfsFree(void* block) {
  hwy::FreeAlignedBytes(block, nullptr, nullptr);
}

HRESULT QnPerfsRandUniform_Direct_32f(float* out, LONG count, float low, float high, DWORD* seed) {
  const auto fill = [=](size_t n) {
    constexpr DWORD kStep = 0x9E3779B9;  // 2^32 by the golden ratio
    const double range = static_cast<double>(high) - low;
    const float last = std::nextafter(high, low);
    DWORD state = *seed;
    for (size_t i = 0; i < n; ++i, state += kStep) {
      const float x = static_cast<float>(low + range * (Scatter(state) * 0x1p-24));
      out[i] = x == high ? last : x;
    }
    *seed = state;
  };
  return Checked(count, fill, out, seed);
}

HRESULT QnPerfsSqrt_32f(const float* in, float* out, LONG count) {
  return Checked(
      count, [=](size_t n) { qn::SquareRoots(in, out, n); }, in, out);
}

HRESULT QnPerfsMinMax_32f(const float* in, LONG count, float* min, float* max) {
  return MinMax(in, count, min, max);
}

HRESULT QnPerfsMinMax_64f(const double* in, LONG count, double* min, double* max) {
  return MinMax(in, count, min, max);
}

HRESULT QnPerfsMul_64fc_I(const void* in, void* inOut, LONG count) {
  const auto multiply = [=](size_t n) {
    qn::MultiplyPairs(static_cast<const double*>(in), static_cast<double*>(inOut), n);
  };
  return Checked(count, multiply, in, inOut);
}

HRESULT QnPerfsConj_64fc_I(void* inOut, LONG count) {
  return Checked(
      count, [=](size_t n) { qn::ConjugatePairs(static_cast<double*>(inOut), n); }, inOut);
}

HRESULT QnPerfsDeinterleave_32f(const float* in, LONG channels, LONG frames, float** out) {
  if (!in || !out || channels < 1 || frames < 1) return 0;
  const auto width = static_cast<size_t>(channels), length = static_cast<size_t>(frames);
  if (width == 2 && out[0] && out[1]) {
    qn::DeinterleaveStereo(in, length, out[0], out[1]);
    return 0;
  }
  for (size_t c = 0; c < width; ++c) {
    for (size_t i = 0; out[c] && i < length; ++i) out[c][i] = in[i * width + c];
  }
  return 0;
}
