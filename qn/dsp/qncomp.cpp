// The settings of a compressor.
#include "qn/dsp/qncomp.h"

#include <cmath>

#include "qn/dsp/qncomp_vector.h"
#include "qn/platform/memory.h"

namespace {

constexpr double kAttackSeconds = 0.002, kReleaseSeconds = 0.03;

double FromDecibels(double db) {
  return std::pow(10.0, db / 20);
}

// What reduces a distance to a tenth in so many seconds.
double CoefficientOf(LONG sampleRate, double seconds) {
  const double frames = std::floor(sampleRate * seconds);
  return frames > 0 ? std::pow(0.1, 1 / frames) : 0;
}

template <class T>
void Process(HQNCOMPDC* compressor, T* out, const T* in, DWORD frames, DWORD channels) {
  if (!compressor || !out || !in || frames == 0 || channels == 0) return;
  qn::Compress(*compressor, out, in, frames, channels);
}

}  // namespace

HRESULT QnCompDCInit(HQNCOMPDC** compressor, LONG create, double thresholdDb, double ratio,
                     double outputGainDb, LONG sampleRate, LONG removeDC) {
  if (!compressor || (!create && !*compressor)) return E_POINTER;
  if (create) {
    auto* const made = static_cast<HQNCOMPDC*>(GlobalAlloc(GPTR, sizeof(HQNCOMPDC)));
    if (!made) return E_OUTOFMEMORY;
    *compressor = made;
  }
  HQNCOMPDC& c = **compressor;
  c.threshold = FromDecibels(thresholdDb);
  c.ratio = ratio;
  c.envelope = 0;
  c.makeup = FromDecibels(outputGainDb) / std::pow(10.0, thresholdDb / 20 * 0.7);
  c.knee = FromDecibels((0 - thresholdDb) / ratio + thresholdDb);
  c.slope = c.threshold == 1 ? 1 : (1 - c.knee) / (1 - c.threshold);
  c.attack = CoefficientOf(sampleRate, kAttackSeconds);
  c.release = CoefficientOf(sampleRate, kReleaseSeconds);
  c.coefficient = c.attack;
  c.removeDC = removeDC != 0;
  if (create) {
    c.gain = c.makeup;
    c.dcState[0] = c.dcState[1] = 0;
  }
  return S_OK;
}

void QnCompDC(HQNCOMPDC* compressor, float* out, const float* in, DWORD frames, DWORD channels) {
  Process(compressor, out, in, frames, channels);
}

void QnCompDC(HQNCOMPDC* compressor, double* out, const double* in, DWORD frames, DWORD channels) {
  Process(compressor, out, in, frames, channels);
}

void QnCompDCClose(HQNCOMPDC* compressor) {
  if (compressor) GlobalFree(compressor);
}
