#if defined(__x86_64__)

#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "qn/dsp/qncomp.h"
#include "qn/dsp/qndither.h"
#include "qn/dsp/qneq.h"
#include "qn/dsp/qnfir.h"
#include "qn/dsp/qniir.h"
#include "qn/dsp/qnperf.h"
#include "qn/dsp/qnreverb.h"
#include "qn/dsp/qnsig.h"
#include "qn/dsp/qnsine.h"
#include "qn/dsp/qntimestretch.h"
#include "qn/kernel/qncpu.h"

namespace {

// The rounding, flushing and masks of both units.
std::pair<unsigned, unsigned> Modes() {
  uint16_t x87;
  __asm__ volatile("fnstcw %0" : "=m"(x87));
  return {__builtin_ia32_stmxcsr() & 0xFFC0, x87};
}

void SetModes(std::pair<unsigned, unsigned> modes) {
  const uint16_t x87 = static_cast<uint16_t>(modes.second);
  __builtin_ia32_ldmxcsr(modes.first);
  __asm__ volatile("fldcw %0" : : "m"(x87));
}

TEST(Modes, OfTheCallerStay) {
  constexpr DWORD kSize = 512;
  std::vector<float> floats(2 * kSize, 1e-40f);
  std::vector<double> doubles(2 * kSize, 1e-310);
  float* const f = floats.data();
  double* const d = doubles.data();
  float* const planes[2] = {f, f + kSize};
  float least, most;
  DWORD seed = 1;
  tQNBIQUAD biquad{};
  tQNSIG_SECTION section{};
  const tQNBIQUAD_PARAMETERS parameters{48000, 1000, 6, 1, 1, 4};
  const double settings[3] = {0.1, 6, 1};
  CQnIIR iir;
  CQnFIR fir;
  CQnDither plain(QNST_PCM16, eQNDITHER_TRIANGULAR, eQNDITHER_SHAPE_NONE);
  CQnDither shaped(QNST_PCM16, eQNDITHER_GAUSSIAN, eQNDITHER_SHAPE_SECOND_LOW);
  HQNEQ eq = nullptr;
  const WAVEFORMATEX format{WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 0, 0, 32, 0};
  const tQNEQ_BAND band{6, 1, 1000, QNEQ_PEAK, 1};
  HQNREVERB* reverb = nullptr;
  _reverb_props room{0, -30, -60, 0, 0, 15, 0, 1, 300, 1, 5000};
  HQNTIME* time = nullptr;
  _time_props stretch{1.01};
  HQNCOMPDC* compressor = nullptr;
  DWORD made;
  CSineOscillator sine(0.1, 0, 0, CSineOscillator::kMostSteps);
  void *complex = nullptr, *real = nullptr;
  QnGetCPUSupport(0);  // which does set them, the first time
  const HQNFFT fast = QnSig_PrepareFFT(0, kSize, nullptr, 1), slow = QnSig_PrepareFFT(0, kSize, nullptr, 0);
  const std::function<void()> calls[] = {
      [&] { iir.Design(QNIIR_BANDPASS, QNIIR_CHEBYSHEV, 7, 0.1, 1, 3, 2, 0); },
      [&] { iir.ProcessFloat(f, f, kSize, 0); },
      [&] { iir.ProcessDouble(d, d, kSize, 1); },
      [&] { QnMakeBiquad(&parameters, &biquad.b0); },
      [&] { QnBiquadFloatEx(f, f, kSize, 2, &biquad, 0); },
      [&] { QnBiquadSampleDouble(d, &biquad); },
      [&] { QnSig_FindBandPassCoeffs(&section, settings, 1); },
      [&] { fir.Design(QNFIR_LOWPASS, QNFIR_HAMMING, 127, 0.1, 0.1, 2, 0); },
      [&] { fir.ProcessFloat(f, f, kSize, 0); },
      [&] { fir.ProcessDouble(d, d, kSize, 0); },
      [&] { plain.ProcessFloat(f, kSize, 2); },
      [&] { shaped.ProcessDouble(d, kSize, 1); },
      [&] { QnSig_FFT(fast, d, kSize, 1), QnSig_InverseFFT(slow, d, kSize, 1); },
      [&] { QnSig_FFT_Float(fast, f, kSize, 1), QnSig_InverseFFT_Float(slow, f, kSize, 1); },
      [&] { QnSig_FFT_Interleaved_Float(fast, f, kSize, 1, 2); },
      [&] { QnSig_FFT_Complex_Float(fast, f, kSize, 1); },
      [&] { makewindows(d, d + kSize, kSize, kSize, kSize / 4); },
      [&] { QnPerf_Initialize(); },
      [&] { QnPerfsRandUniform_Direct_32f(f, kSize, 0, 1, &seed); },
      [&] { QnPerfsSqrt_32f(f, f, kSize), QnPerfsMinMax_32f(f, kSize, &least, &most); },
      [&] { QnPerfsMul_64fc_I(d, d, kSize), QnPerfsConj_64fc_I(d, kSize); },
      [&] { QnPerfsDeinterleave_32f(f, 1, kSize, const_cast<float**>(planes)); },
      [&] { QnPerfsFFTInitAlloc_C_32fc(&complex, 8, QNPERF_FFT_NODIV_BY_ANY, QNPERF_HINT_NONE); },
      [&] { QnPerfsFFTFwd_CToC_32fc(f, f, complex, nullptr), QnPerfsFFTFree_C_32fc(complex); },
      [&] { QnPerfsFFTInitAlloc_R_64f(&real, 8, QNPERF_FFT_NODIV_BY_ANY, QNPERF_HINT_NONE); },
      [&] { QnPerfsFFTFwd_RToPerm_64f_I(d, real, nullptr), QnPerfsFFTFree_R_64f(real); },
      [&] { QnEq_Init(&eq, &format, &band, 1, 0), QnEq_ProcessFloat(eq, f, f, kSize), QnEq_Close(eq); },
      [&] { QnReverbInit(&reverb, 1, &room, 48000, 2, 0), QnReverbProcess(reverb, f, f, kSize); },
      [&] { QnReverbProcess(reverb, d, d, kSize), QnReverbClose(reverb); },
      [&] { QnTimeInit(&time, 1, &stretch, 48000, 1), QnTimeBufAlloc(time, 2 * kSize); },
      [&] { QnTimeProcess(time, d, d, &made, 2 * kSize - 1), QnTimeClose(time); },
      [&] { QnCompDCInit(&compressor, 1, -20, 4, 3, 48000, 1), QnCompDC(compressor, d, d, kSize, 2); },
      [&] { QnCompDC(compressor, f, f, kSize, 2), QnCompDCClose(compressor); },
      [&] { sine.Init(0.1, 0, 0), d[0] = sine.FindNthSine(7); },
  };
  const auto usual = Modes();
  // Rounding to zero with and without flushing, upwards, and the second precision of the old unit.
  for (const auto& modes : {usual, std::pair{0x7F80u, 0x0F7Fu}, {0xDFC0u, 0x027Fu}}) {
    for (const auto& call : calls) {
      SetModes(modes);
      call();
      const auto after = Modes();
      SetModes(usual);
      EXPECT_EQ(after, modes) << &call - calls;
    }
  }
  QnSig_UnprepareFFT(fast);
  QnSig_UnprepareFFT(slow);
}

}  // namespace

#endif
