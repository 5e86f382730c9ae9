// Prepared transforms of real and complex signals, with progress; the windows and the spectral product of
// overlapping blocks.
//
// The spectrum of N real values takes their place: element 0 is DC, element 1 the Nyquist bin, and elements
// 2k and 2k + 1 are the real and imaginary part of bin k. The forward transform is
//   X[k] = s / N * sum over n of x[n] * exp(+2 pi i k n / N),
// with the positive exponent, and the inverse one x[n] = s * sum over k of X[k] * exp(-2 pi i k n / N).
#pragma once

#include "qn/platform/types.h"

struct tQNFFT;
using HQNFFT = tQNFFT*;

// Told of the passes done, at most every 128 ms; 0 cancels the transform.
using QNFFTPROGRESS = BOOL (*)(ULONGLONG user, HQNFFT fft, DWORD pass, DWORD passes);

// Works on a spectrum. Nonzero goes on, which only the form for doubles looks at.
using QNFFTPROCESS = BOOL (*)(HQNFFT fft, double* data, DWORD size, void* argument);
using QNFFTPROCESSFLOAT = BOOL (*)(HQNFFT fft, float* data, DWORD size, void* argument);

struct COMPLEX {
  double re;
  double im;
};

// The result of compute_fft.
enum tStatus : LONG { FFT_OK = 0, FFT_NO_MEMORY = 8, FFT_BAD_ARGUMENT = 12 };

extern "C" {

// Prepares transforms of `size` real points, a power of 2, for one thread at a time; free the handle with
// QnSig_UnprepareFFT. `useFast` allows an aligned work buffer, and, without a callback, a faster transform
// that takes no notice of the scale. Null when there is no memory for the handle. A size that is no power of
// 2 gives a handle that transforms nothing.
QN_API HQNFFT QnSig_PrepareFFT(ULONGLONG user, DWORD size, QNFFTPROGRESS callback, BOOL useFast);

// The same in a handle that is there, which keeps what it has prepared for the same size without a callback;
// null makes a new one.
QN_API HQNFFT QnSig_ReprepareFFT(HQNFFT fft, ULONGLONG user, DWORD size, QNFFTPROGRESS callback,
                                 BOOL useFast);

// 1, or 0 for null.
QN_API BOOL QnSig_UnprepareFFT(HQNFFT fft);

// Transform `size` values, a power of 2, in place. 1, or 0 when the callback stopped it, with the data in no
// useful state; 0 with the data as they were for a null pointer, for a size that is no power of 2, and for
// another size than the prepared one where the faster transform is in use.
QN_API BOOL QnSig_FFT(HQNFFT fft, double* data, DWORD size, double scale);
QN_API BOOL QnSig_InverseFFT(HQNFFT fft, double* data, DWORD size, double scale);
QN_API BOOL QnSig_FFT_Float(HQNFFT fft, float* data, DWORD size, float scale);
QN_API BOOL QnSig_InverseFFT_Float(HQNFFT fft, float* data, DWORD size, float scale);

// Forward, the process function, and back. 0 when any step stopped it; the form for floats goes on then, and
// is 0 only for what cannot be transformed.
QN_API BOOL QnSig_FFTProcess(HQNFFT fft, double* data, DWORD size, double forwardScale, double inverseScale,
                             QNFFTPROCESS process, void* argument);
QN_API BOOL QnSig_FFTProcess_Float(HQNFFT fft, float* data, DWORD size, float forwardScale,
                                   float inverseScale, QNFFTPROCESSFLOAT process, void* argument);

// For 1 channel the transforms above; for any other count `size` interleaved frames of two channels, each
// transformed by itself.
QN_API BOOL QnSig_FFT_Interleaved_Float(HQNFFT fft, float* data, DWORD size, float scale, LONG channels);
QN_API BOOL QnSig_InverseFFT_Interleaved_Float(HQNFFT fft, float* data, DWORD size, float scale,
                                               LONG channels);
QN_API BOOL QnSig_FFTProcess_Interleaved_Float(HQNFFT fft, float* data, DWORD size, float forwardScale,
                                               float inverseScale, QNFFTPROCESSFLOAT process, LONG channels,
                                               void* argument);

// Transform `points` complex numbers, pairs of floats, in place; a power of 2, which need not be the size
// prepared. Forward they are divided by twice `points`, and back doubled:
//   X[k] = s / (2 * points) * sum over n of x[n] * exp(+2 pi i k n / points),
//   x[n] = 2 * s * sum over k of X[k] * exp(-2 pi i k n / points).
QN_API BOOL QnSig_FFT_Complex_Float(HQNFFT fft, float* data, DWORD points, float scale);
QN_API BOOL QnSig_InverseFFT_Complex_Float(HQNFFT fft, float* data, DWORD points, float scale);

// A plain complex transform of a power of 2 from 2 points on, in place. `direction` 1 multiplies by
// exp(-2 pi i k n / N) without a scale, -1 goes back and divides by the points. Its twiddle factors have the
// precision of floats.
QN_API tStatus compute_fft(COMPLEX* data, LONG points, LONG direction);

// The analysis and the synthesis window of overlapping blocks: Hamming windows of `length` values, of which
// the second is normalised for steps of `hop`; longer than the transform, both are multiplied by a sinc.
// Nothing is done for a `hop` below 1.
QN_API void makewindows(double* first, double* second, LONG length, LONG fftSize, LONG hop);
QN_API void makewindows_float(float* first, float* second, LONG length, LONG fftSize, LONG hop);

// Multiply a spectrum of `size` values by that of a kernel, `size` doubles: process functions. 1, or 0 for a
// null pointer.
QN_API BOOL fnConvolution(HQNFFT fft, double* data, DWORD size, void* kernel);
QN_API BOOL fnConvolution_float(HQNFFT fft, float* data, DWORD size, void* kernel);
}
