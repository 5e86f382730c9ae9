// Preparing transforms, and the choice of the way that each call takes.
#include <bit>

#include "qn/dsp/qnperf.h"
#include "qn/dsp/qnsig_internal.h"
#include "qn/kernel/qncpu.h"
#include "qn/platform/memory.h"
#include "qn/platform/sync.h"

using qn::Direction;

namespace {

constexpr DWORD kProgressInterval = 128;

void FreeSpec(HQNFFT fft) {
  if (fft->spec) QnPerfsFFTFree_R_64f(fft->spec);
  fft->spec = nullptr;
}

void FreeBuffer(HQNFFT fft) {
  if (fft->buffer) GlobalFree(fft->buffer);
  fft->buffer = nullptr;
  fft->bufferSize = 0;
}

bool GrowBuffer(HQNFFT fft, ULONGLONG bytes) {
  if (bytes <= fft->bufferSize) return true;
  FreeBuffer(fft);
  if (bytes > 0xFFFFFFFF) return false;
  fft->buffer = GlobalAlloc(GMEM_FIXED, bytes);
  if (!fft->buffer) return false;
  fft->bufferSize = static_cast<DWORD>(bytes);
  return true;
}

void PrepareFast(HQNFFT fft, DWORD size, bool reports) {
  ULONGLONG required = 0;
  if (QnGetCPUSupport(QNCPU_SSE2) & QNCPU_SSE2) required = ULONGLONG{size} * sizeof(double);
  if (!fft->spec && !reports) {
    const LONG order = std::bit_width(size) - 1;
    const HRESULT status =
        QnPerfsFFTInitAlloc_R_64f(&fft->spec, order, QNPERF_FFT_DIV_FWD_BY_N, QNPERF_HINT_NONE);
    if (FAILED(status)) fft->spec = nullptr;
  }
  // A prepared transform that was kept needs what it needed before, so its buffer stays.
  LONG bytes = 0;
  if (fft->spec && SUCCEEDED(QnPerfsFFTGetBufSize_R_64f(fft->spec, &bytes)))
    required = static_cast<ULONGLONG>(bytes);
  // Without its buffer a prepared transform is of no use, and the passes take its place.
  if (!GrowBuffer(fft, required)) FreeSpec(fft);
  fft->fast = fft->buffer != nullptr;
}

// The passes take any power of 2; they need nothing that is prepared for a size.
bool CanTransform(HQNFFT fft, const void* data, DWORD size) {
  return fft && data && std::has_single_bit(size);
}

BOOL TransformBySpec(HQNFFT fft, double* data, DWORD size, Direction direction) {
  const bool forward = direction == Direction::kForward;
  // The prepared transform has the other sign in its exponent.
  const auto conjugate = [=] {
    return size < 4 || SUCCEEDED(QnPerfsConj_64fc_I(data + 2, static_cast<LONG>(size / 2 - 1)));
  };
  if (!forward && !conjugate()) return 0;
  const auto transform = forward ? QnPerfsFFTFwd_RToPerm_64f_I : QnPerfsFFTInv_PermToR_64f_I;
  if (FAILED(transform(data, fft->spec, static_cast<BYTE*>(fft->buffer)))) return 0;
  return !forward || conjugate();
}

BOOL Transform(HQNFFT fft, double* data, DWORD size, double scale, Direction direction) {
  if (!CanTransform(fft, data, size)) return 0;
  // The prepared transform takes no notice of the scale: hosts rely on it.
  if (fft->spec) return size == fft->size && TransformBySpec(fft, data, size, direction);
  return qn::TransformReal(fft, data, size, scale, direction);
}

BOOL TransformFloat(HQNFFT fft, float* data, DWORD size, float scale, LONG channels, Direction direction) {
  if (!CanTransform(fft, data, size)) return 0;
  if (channels == 1) return qn::TransformReal(fft, data, size, scale, direction);
  return qn::TransformReal(fft, reinterpret_cast<qn::StereoFrame*>(data), size, scale, direction);
}

BOOL TransformComplexFloat(HQNFFT fft, float* data, DWORD points, float scale, Direction direction) {
  if (!CanTransform(fft, data, points)) return 0;
  return qn::TransformComplex(fft, data, points, scale, direction);
}

}  // namespace

namespace qn {

bool ReportPasses(HQNFFT fft, DWORD count) {
  if (!fft->callback) return true;
  fft->pass += count;
  const DWORD now = GetTickCount();
  // The clock wraps, so the distance is compared.
  if (static_cast<LONG>(now - fft->nextTick) < 0) return true;
  fft->nextTick = now + fft->interval;
  return fft->callback(fft->user, fft, fft->pass, fft->passes) != 0;
}

}  // namespace qn

HQNFFT QnSig_PrepareFFT(ULONGLONG user, DWORD size, QNFFTPROGRESS callback, BOOL useFast) {
  return QnSig_ReprepareFFT(nullptr, user, size, callback, useFast);
}

HQNFFT QnSig_ReprepareFFT(HQNFFT fft, ULONGLONG user, DWORD size, QNFFTPROGRESS callback, BOOL useFast) {
  if (!fft) fft = static_cast<HQNFFT>(GlobalAlloc(GPTR, sizeof(tQNFFT)));
  if (!fft) return nullptr;
  if (!useFast || size != fft->size || callback) FreeSpec(fft);
  if (!useFast || size > fft->size) FreeBuffer(fft);
  fft->fast = 0;
  if (useFast) PrepareFast(fft, size, callback != nullptr);
  fft->size = size;
  fft->user = user;
  fft->callback = callback;
  fft->pass = 0;
  fft->interval = kProgressInterval;
  fft->passes = static_cast<DWORD>(std::bit_width(size));
  fft->nextTick = GetTickCount() + kProgressInterval;
  return fft;
}

BOOL QnSig_UnprepareFFT(HQNFFT fft) {
  if (!fft) return 0;
  FreeBuffer(fft);
  FreeSpec(fft);
  GlobalFree(fft);
  return 1;
}

BOOL QnSig_FFT(HQNFFT fft, double* data, DWORD size, double scale) {
  return Transform(fft, data, size, scale, Direction::kForward);
}

BOOL QnSig_InverseFFT(HQNFFT fft, double* data, DWORD size, double scale) {
  return Transform(fft, data, size, scale, Direction::kInverse);
}

BOOL QnSig_FFTProcess(HQNFFT fft, double* data, DWORD size, double forwardScale, double inverseScale,
                      QNFFTPROCESS process, void* argument) {
  return process && QnSig_FFT(fft, data, size, forwardScale) && qn::ReportPasses(fft, 1) &&
         process(fft, data, size, argument) && qn::ReportPasses(fft, 1) &&
         QnSig_InverseFFT(fft, data, size, inverseScale);
}

BOOL QnSig_FFT_Float(HQNFFT fft, float* data, DWORD size, float scale) {
  return TransformFloat(fft, data, size, scale, 1, Direction::kForward);
}

BOOL QnSig_InverseFFT_Float(HQNFFT fft, float* data, DWORD size, float scale) {
  return TransformFloat(fft, data, size, scale, 1, Direction::kInverse);
}

BOOL QnSig_FFTProcess_Float(HQNFFT fft, float* data, DWORD size, float forwardScale, float inverseScale,
                            QNFFTPROCESSFLOAT process, void* argument) {
  return QnSig_FFTProcess_Interleaved_Float(fft, data, size, forwardScale, inverseScale, process, 1,
                                            argument);
}

BOOL QnSig_FFT_Interleaved_Float(HQNFFT fft, float* data, DWORD size, float scale, LONG channels) {
  return TransformFloat(fft, data, size, scale, channels, Direction::kForward);
}

BOOL QnSig_InverseFFT_Interleaved_Float(HQNFFT fft, float* data, DWORD size, float scale, LONG channels) {
  return TransformFloat(fft, data, size, scale, channels, Direction::kInverse);
}

BOOL QnSig_FFTProcess_Interleaved_Float(HQNFFT fft, float* data, DWORD size, float forwardScale,
                                        float inverseScale, QNFFTPROCESSFLOAT process, LONG channels,
                                        void* argument) {
  if (!process || !CanTransform(fft, data, size)) return 0;
  // Neither a stop nor the answer of the process function is looked at: hosts rely on the 1.
  TransformFloat(fft, data, size, forwardScale, channels, Direction::kForward);
  process(fft, data, size, argument);
  TransformFloat(fft, data, size, inverseScale, channels, Direction::kInverse);
  return 1;
}

BOOL QnSig_FFT_Complex_Float(HQNFFT fft, float* data, DWORD points, float scale) {
  return TransformComplexFloat(fft, data, points, scale, Direction::kForward);
}

BOOL QnSig_InverseFFT_Complex_Float(HQNFFT fft, float* data, DWORD points, float scale) {
  return TransformComplexFloat(fft, data, points, scale, Direction::kInverse);
}
