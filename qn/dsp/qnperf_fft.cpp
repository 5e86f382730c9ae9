// The prepared transforms at the library's interface.
#include <cmath>
#include <memory>
#include <new>

#include "qn/dsp/fft_internal.h"
#include "qn/dsp/qnperf.h"

namespace {

// A work buffer's size is a LONG, which 2 to the power of 28 points would exceed.
constexpr LONG kMostOrder = 27;

// What a caller's `spec` points to. The mark tells the two kinds apart.
template <typename T>
struct Spec {
  static constexpr bool kReal = sizeof(T) == sizeof(double);
  static constexpr uint32_t kMark = kReal ? 0x36345246 : 0x32334346;

  uint32_t mark = kMark;
  T forwardScale = 1, inverseScale = 1;
  LONG order = 0;
  qn::FftPlan<T> plan;

  size_t WorkBytes() const { return plan.workCount * sizeof(T) + HWY_ALIGNMENT; }
};

template <typename T>
LONG Check(const void* spec) {
  if (!spec) return QNPERF_STATUS_NULL;
  return static_cast<const Spec<T>*>(spec)->mark == Spec<T>::kMark ? QNPERF_STATUS_OK : QNPERF_STATUS_CONTEXT;
}

template <typename T>
LONG InitAlloc(void** spec, LONG order, LONG flag) {
  if (!spec) return QNPERF_STATUS_NULL;
  if (order < 0 || order > kMostOrder) return QNPERF_STATUS_FFT_ORDER;
  if (flag != QNPERF_FFT_DIV_FWD_BY_N && flag != QNPERF_FFT_DIV_INV_BY_N && flag != QNPERF_FFT_DIV_BY_SQRTN &&
      flag != QNPERF_FFT_NODIV_BY_ANY) {
    return QNPERF_STATUS_FFT_FLAG;
  }
  std::unique_ptr<Spec<T>> made(new (std::nothrow) Spec<T>);
  if (!made) return QNPERF_STATUS_MEMORY;
  const double part = std::ldexp(1.0, -order);
  const double root = flag == QNPERF_FFT_DIV_BY_SQRTN ? std::sqrt(part) : 1.0;
  made->forwardScale = static_cast<T>(flag == QNPERF_FFT_DIV_FWD_BY_N ? part : root);
  made->inverseScale = static_cast<T>(flag == QNPERF_FFT_DIV_INV_BY_N ? part : root);
  made->order = order;
  const bool halved = Spec<T>::kReal && order > 0;
  if (!qn::MakeFftPlan(made->plan, halved ? order - 1 : order)) return QNPERF_STATUS_MEMORY;
  *spec = made.release();
  return QNPERF_STATUS_OK;
}

template <typename T>
LONG GetBufSize(const void* spec, LONG* size) {
  if (!size) return QNPERF_STATUS_NULL;
  if (const LONG status = Check<T>(spec)) return status;
  *size = static_cast<LONG>(static_cast<const Spec<T>*>(spec)->WorkBytes());
  return QNPERF_STATUS_OK;
}

template <typename T>
LONG Free(void* spec) {
  if (const LONG status = Check<T>(spec)) return status;
  delete static_cast<Spec<T>*>(spec);
  return QNPERF_STATUS_OK;
}

void RunComplex(const Spec<float>& spec, bool forward, const float* in, float* out, float* work) {
  if (forward)
    spec.plan.run(spec.plan, in, out, spec.forwardScale, 1, work);
  else
    spec.plan.run(spec.plan, in, out, spec.inverseScale, -1, work);
}

// Half as many complex points, and the split of the spectrum into that of the even and the odd elements.
void RunReal(const Spec<double>& spec, bool forward, const double*, double* x, double* work) {
  const double scale = forward ? spec.forwardScale : spec.inverseScale;
  if (spec.order == 0) {
    x[0] *= scale;
  } else if (forward) {
    spec.plan.run(spec.plan, x, x, scale / 2, 1, work);
    const double even = 2 * x[0], odd = 2 * x[1];
    x[0] = even + odd;
    x[1] = even - odd;
    spec.plan.split(spec.plan, x, 1);
  } else {
    const double first = x[0], middle = x[1];
    x[0] = first + middle;
    x[1] = first - middle;
    spec.plan.split(spec.plan, x, -1);
    spec.plan.run(spec.plan, x, x, scale, -1, work);
  }
}

template <typename T, auto kRun>
HRESULT Transform(const void* in, void* out, const void* spec, BYTE* buffer, bool forward) {
  if (!in || !out) return QnPerfMapStatus(QNPERF_STATUS_NULL);
  if (const LONG status = Check<T>(spec)) return QnPerfMapStatus(status);
  const auto& prepared = *static_cast<const Spec<T>*>(spec);
  std::unique_ptr<BYTE[]> own;
  if (!buffer) {
    own.reset(new (std::nothrow) BYTE[prepared.WorkBytes()]);
    if (!own) return QnPerfMapStatus(QNPERF_STATUS_MEMORY);
    buffer = own.get();
  }
  void* work = buffer;
  size_t space = prepared.WorkBytes();
  std::align(HWY_ALIGNMENT, prepared.plan.workCount * sizeof(T), work, space);
  kRun(prepared, forward, static_cast<const T*>(in), static_cast<T*>(out), static_cast<T*>(work));
  return QnPerfMapStatus(QNPERF_STATUS_OK);
}

}  // namespace

HRESULT QnPerfsFFTInitAlloc_C_32fc(void** spec, LONG order, LONG flag, QnPerfHintAlgorithm) {
  return QnPerfMapStatus(InitAlloc<float>(spec, order, flag));
}

HRESULT QnPerfsFFTGetBufSize_C_32fc(const void* spec, LONG* size) {
  return QnPerfMapStatus(GetBufSize<float>(spec, size));
}

HRESULT QnPerfsFFTFwd_CToC_32fc(const void* in, void* out, const void* spec, BYTE* buffer) {
  return Transform<float, RunComplex>(in, out, spec, buffer, true);
}

HRESULT QnPerfsFFTInv_CToC_32fc(const void* in, void* out, const void* spec, BYTE* buffer) {
  return Transform<float, RunComplex>(in, out, spec, buffer, false);
}

HRESULT QnPerfsFFTFree_C_32fc(void* spec) {
  return QnPerfMapStatus(Free<float>(spec));
}

HRESULT QnPerfsFFTInitAlloc_R_64f(void** spec, LONG order, LONG flag, QnPerfHintAlgorithm) {
  return QnPerfMapStatus(InitAlloc<double>(spec, order, flag));
}

HRESULT QnPerfsFFTGetBufSize_R_64f(void* spec, LONG* size) {
  return QnPerfMapStatus(GetBufSize<double>(spec, size));
}

HRESULT QnPerfsFFTFwd_RToPerm_64f_I(double* inOut, const void* spec, BYTE* buffer) {
  return Transform<double, RunReal>(inOut, inOut, spec, buffer, true);
}

HRESULT QnPerfsFFTInv_PermToR_64f_I(double* inOut, const void* spec, BYTE* buffer) {
  return Transform<double, RunReal>(inOut, inOut, spec, buffer, false);
}

HRESULT QnPerfsFFTFree_R_64f(void* spec) {
  return QnPerfMapStatus(Free<double>(spec));
}
