// Vector code of the copy kernels: destinations that are floats and doubles.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qncopy_vector_float.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "qn/audio/qncopy_vector-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

const Converter& ConverterToFloat(int dstIndex, int srcIndex) {
  switch (dstIndex) {
    case SampleFormIndex(QNST_FLOAT32):
      return kConverterRow<QNST_FLOAT32>.from[srcIndex];
    default:
      return kConverterRow<QNST_FLOAT64>.from[srcIndex];
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(ConverterToFloat);

const Converter& FindConverterToFloat(int dstIndex, int srcIndex) {
  return HWY_DYNAMIC_DISPATCH(ConverterToFloat)(dstIndex, srcIndex);
}

}  // namespace qn
#endif
