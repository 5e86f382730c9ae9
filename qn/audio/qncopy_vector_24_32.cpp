// Vector code of the copy kernels: destinations that are integers of 24 and 32 bits.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qncopy_vector_24_32.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "qn/audio/qncopy_vector-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

const Converter& ConverterTo24And32(int dstIndex, int srcIndex) {
  switch (dstIndex) {
    case SampleFormIndex(QNST_PCM24):
      return kConverterRow<QNST_PCM24>.from[srcIndex];
    case SampleFormIndex(QNST_PCM24BE):
      return kConverterRow<QNST_PCM24BE>.from[srcIndex];
    case SampleFormIndex(QNST_PCM24IN32):
      return kConverterRow<QNST_PCM24IN32>.from[srcIndex];
    case SampleFormIndex(QNST_PCM32):
      return kConverterRow<QNST_PCM32>.from[srcIndex];
    default:
      return kConverterRow<QNST_PCM32BE>.from[srcIndex];
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(ConverterTo24And32);

const Converter& FindConverterTo24And32(int dstIndex, int srcIndex) {
  return HWY_DYNAMIC_DISPATCH(ConverterTo24And32)(dstIndex, srcIndex);
}

}  // namespace qn
#endif
