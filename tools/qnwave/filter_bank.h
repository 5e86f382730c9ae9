// A filter of the library for any number of channels.
#pragma once

#include <cstdint>
#include <vector>

#include "qn/dsp/qnfir.h"
#include "qn/dsp/qniir.h"
#include "tools/qnwave/effect_run.h"

namespace qnwave {

struct FilterDesign {
  bool isFir = false;
  double frequency = 0;  // in hertz, as frequency2

  QNIIR_TYPE iirType = QNIIR_LOWPASS;
  QNIIR_DESIGN design = QNIIR_BUTTERWORTH;
  DWORD order = 4;
  double width = 1;  // octaves, of a resonator its Q
  double gain = 0;   // in dB, of the band that is added to the signal; 0 for the band alone

  QNFIR_TYPE firType = QNFIR_LOWPASS;
  QNFIR_WINDOW window = QNFIR_BLACKMAN;
  DWORD taps = 1023;
  double frequency2 = 0;
};

// Runs a filter over interleaved audio, with as many objects as the channels take.
class FilterBank final : public Effect {
 public:
  // FIR filters of the most taps take half a megabyte for each channel.
  static constexpr uint32_t kMostFirChannels = 256;

  // E_INVALIDARG or E_FAIL for a design that there is not, also for one that rounding makes unstable.
  HRESULT Design(const FilterDesign& design, uint32_t rate, uint32_t channels);

  void Process(double* samples, uint32_t frames) override;
  uint32_t Delay() const override { return firs_.empty() ? 0 : (firs_[0].taps - 1) / 2; }

 private:
  void ProcessGroup(size_t group, double* samples, uint32_t frames, uint32_t channels);

  uint32_t channels_ = 0;
  uint32_t groupChannels_ = 0;
  std::vector<CQnIIR> iirs_;
  std::vector<CQnFIR> firs_;
  std::vector<double> part_;  // the channels of a group
};

}  // namespace qnwave
