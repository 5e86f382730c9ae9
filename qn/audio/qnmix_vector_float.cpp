// Vector code of the mix kernels: destinations that are floats and doubles.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnmix_vector_float.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "qn/audio/qnmix_vector-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

const Mixer& MixerToFloat(int dstIndex, int srcIndex) {
  switch (dstIndex) {
    case SampleFormIndex(QNST_FLOAT32):
      return kMixerRow<QNST_FLOAT32>.from[srcIndex];
    default:
      return kMixerRow<QNST_FLOAT64>.from[srcIndex];
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(MixerToFloat);

const Mixer& FindMixerToFloat(int dstIndex, int srcIndex) {
  return HWY_DYNAMIC_DISPATCH(MixerToFloat)(dstIndex, srcIndex);
}

}  // namespace qn
#endif
