// Vector operations on arrays, and transforms of prepared sizes.
//
// Operations that have a status give it mapped by QnPerfMapStatus, success too: that is 0x4E600, so callers
// test for a negative result and never for zero. A null pointer gives QNPERF_STATUS_NULL and a count below 1
// QNPERF_STATUS_SIZE; then nothing is written. Arrays need not be aligned for vectors.
#pragma once

#include "qn/platform/types.h"

// How a transform is worked out. It is a wish: all give the same.
enum QnPerfHintAlgorithm : LONG {
  QNPERF_HINT_NONE = 0,
  QNPERF_HINT_FAST = 1,
  QNPERF_HINT_ACCURATE = 2,
};

// Statuses of the operations, as QnPerfMapStatus takes them.
constexpr LONG QNPERF_STATUS_OK = 0;
constexpr LONG QNPERF_STATUS_SIZE = -6;        // a length below 1
constexpr LONG QNPERF_STATUS_NULL = -8;        // a null pointer
constexpr LONG QNPERF_STATUS_MEMORY = -9;      // no memory
constexpr LONG QNPERF_STATUS_FFT_ORDER = -15;  // an order that no transform has
constexpr LONG QNPERF_STATUS_FFT_FLAG = -16;   // an unknown scale flag
constexpr LONG QNPERF_STATUS_CONTEXT = -17;    // a `spec` of another kind

// Where a transform divides by its points.
constexpr LONG QNPERF_FFT_DIV_FWD_BY_N = 1;
constexpr LONG QNPERF_FFT_DIV_INV_BY_N = 2;
constexpr LONG QNPERF_FFT_DIV_BY_SQRTN = 4;
constexpr LONG QNPERF_FFT_NODIV_BY_ANY = 8;

extern "C" {

// Starts the vector operations; its mapped status.
QN_API HRESULT QnPerf_Initialize();

// A status as a result code: from 0 on a success, with 0 itself 0x4E600; -9999 is 0x8004E6FF, -9998 is
// 0x8004E700, any other negative number a failure of its own.
QN_API HRESULT QnPerfMapStatus(LONG status);
QN_API HRESULT QnPerfStatusToHRESULT(LONG status);

// The number that the transforms take for a hint; 0 for a hint that there is not.
QN_API LONG QnPerfMapHintAlgorithm(LONG hint);

// The processor's cycle counter.
QN_API ULONGLONG QnPerfGetCpuClocks();

// A block for `count` bytes or floats, aligned to 64 bytes or more; free it with QnPerfsFree, which takes
// null. Null on failure and for a count below 1.
QN_API BYTE* QnPerfsMalloc_8u(LONG count);
QN_API float* QnPerfsMalloc_32f(LONG count);
QN_API void QnPerfsFree(void* block);

// `count` uniform random numbers from `low` up to below `high`, in steps of 1 / 2^24 of the range. `*seed`
// starts the sequence and is moved on, so that the next call goes on with it; the same seed gives the same
// numbers on every processor.
QN_API HRESULT QnPerfsRandUniform_Direct_32f(float* out, LONG count, float low, float high, DWORD* seed);

// The `count` square roots, NaN for negative numbers. `in` may be `out`.
QN_API HRESULT QnPerfsSqrt_32f(const float* in, float* out, LONG count);

// The smallest and the largest of `count` elements. NaNs are passed over; when there is nothing else, both
// results are NaN.
QN_API HRESULT QnPerfsMinMax_32f(const float* in, LONG count, float* min, float* max);
QN_API HRESULT QnPerfsMinMax_64f(const double* in, LONG count, double* min, double* max);

// Multiplies `count` complex numbers, pairs of doubles with the real part first, into `inOut`. `in` may be
// `inOut`.
QN_API HRESULT QnPerfsMul_64fc_I(const void* in, void* inOut, LONG count);

// Negates the imaginary parts of `count` pairs of doubles.
QN_API HRESULT QnPerfsConj_64fc_I(void* inOut, LONG count);

// out[c][i] = in[i * channels + c]. Always 0, unmapped; nothing is done for fewer than 1 channel, and a
// channel whose array is null is left out.
QN_API HRESULT QnPerfsDeinterleave_32f(const float* in, LONG channels, LONG frames, float** out);

// Prepares a complex transform of 2 to the power of `order` points, 0 to 27, in `*spec`, which is freed with
// QnPerfsFFTFree_C_32fc; on failure it stays as it was. `flag` is one of QNPERF_FFT_*: where it divides. A
// `spec` does not change, so several threads may transform with it at a time, each with its own buffer.
// Errors stay below (2 + order) units in the last place of the result's root mean square.
QN_API HRESULT QnPerfsFFTInitAlloc_C_32fc(void** spec, LONG order, LONG flag, QnPerfHintAlgorithm hint);

// The bytes of the work buffer that the transform takes.
QN_API HRESULT QnPerfsFFTGetBufSize_C_32fc(const void* spec, LONG* size);

// The transform of pairs of floats: the forward one has the negative exponent, exp(-2 pi i k n / N), the
// inverse one the positive. `in` may be `out`. `buffer` has the bytes told, at any address, or is null, and
// then memory is allocated for the call.
QN_API HRESULT QnPerfsFFTFwd_CToC_32fc(const void* in, void* out, const void* spec, BYTE* buffer);
QN_API HRESULT QnPerfsFFTInv_CToC_32fc(const void* in, void* out, const void* spec, BYTE* buffer);
QN_API HRESULT QnPerfsFFTFree_C_32fc(void* spec);

// The same for real doubles, in place. The spectrum of N values lies packed: element 0 is DC, element 1 the
// Nyquist bin, elements 2k and 2k + 1 are bin k. Order 0 and 1 have just the first and the first two.
QN_API HRESULT QnPerfsFFTInitAlloc_R_64f(void** spec, LONG order, LONG flag, QnPerfHintAlgorithm hint);
QN_API HRESULT QnPerfsFFTGetBufSize_R_64f(void* spec, LONG* size);
QN_API HRESULT QnPerfsFFTFwd_RToPerm_64f_I(double* inOut, const void* spec, BYTE* buffer);
QN_API HRESULT QnPerfsFFTInv_PermToR_64f_I(double* inOut, const void* spec, BYTE* buffer);
QN_API HRESULT QnPerfsFFTFree_R_64f(void* spec);
}
