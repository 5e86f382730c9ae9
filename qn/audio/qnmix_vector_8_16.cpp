// Vector code of the mix kernels: destinations that are integers of 8 and 16 bits.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnmix_vector_8_16.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "qn/audio/qnmix_vector-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

const Mixer& MixerTo8And16(int dstIndex, int srcIndex) {
  switch (dstIndex) {
    case SampleFormIndex(QNST_PCM8U):
      return kMixerRow<QNST_PCM8U>.from[srcIndex];
    case SampleFormIndex(QNST_PCM8S):
      return kMixerRow<QNST_PCM8S>.from[srcIndex];
    default:
      return kMixerRow<QNST_PCM16>.from[srcIndex];
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(MixerTo8And16);

const Mixer& FindMixerTo8And16(int dstIndex, int srcIndex) {
  return HWY_DYNAMIC_DISPATCH(MixerTo8And16)(dstIndex, srcIndex);
}

}  // namespace qn
#endif
