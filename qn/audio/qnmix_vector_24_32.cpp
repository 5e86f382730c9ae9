// Vector code of the mix kernels: destinations that are integers of 24 and 32 bits.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnmix_vector_24_32.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "qn/audio/qnmix_vector-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

const Mixer& MixerTo24And32(int dstIndex, int srcIndex) {
  switch (dstIndex) {
    case SampleFormIndex(QNST_PCM24):
      return kMixerRow<QNST_PCM24>.from[srcIndex];
    case SampleFormIndex(QNST_PCM24IN32):
      return kMixerRow<QNST_PCM24IN32>.from[srcIndex];
    default:
      return kMixerRow<QNST_PCM32>.from[srcIndex];
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(MixerTo24And32);

const Mixer& FindMixerTo24And32(int dstIndex, int srcIndex) {
  return HWY_DYNAMIC_DISPATCH(MixerTo24And32)(dstIndex, srcIndex);
}

}  // namespace qn
#endif
