#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qnfir_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "qn/dsp/frames-inl.h"
#include "qn/dsp/qnfir_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

void TakeFloats(const float* in, size_t stride, size_t count, double* out) {
  GatherChannel(in, stride, count, out);
}
void TakeDoubles(const double* in, size_t stride, size_t count, double* out) {
  GatherChannel(in, stride, count, out);
}
void GiveFloats(const double* in, size_t stride, size_t count, float* out) {
  ScatterChannel(in, stride, count, out);
}
void GiveDoubles(const double* in, size_t stride, size_t count, double* out) {
  ScatterChannel(in, stride, count, out);
}

void AddDoubles(double* sum, const double* values, size_t count) {
  const hn::ScalableTag<double> d;
  const size_t lanes = hn::Lanes(d);
  size_t at = 0;
  for (; at + lanes <= count; at += lanes)
    hn::StoreU(hn::Add(hn::LoadU(d, sum + at), hn::LoadU(d, values + at)), d, sum + at);
  for (; at < count; ++at) sum[at] += values[at];
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(TakeFloats);
HWY_EXPORT(TakeDoubles);
HWY_EXPORT(GiveFloats);
HWY_EXPORT(GiveDoubles);
HWY_EXPORT(AddDoubles);

void TakeChannel(const float* in, size_t stride, size_t count, double* out) {
  HWY_DYNAMIC_DISPATCH(TakeFloats)(in, stride, count, out);
}
void TakeChannel(const double* in, size_t stride, size_t count, double* out) {
  HWY_DYNAMIC_DISPATCH(TakeDoubles)(in, stride, count, out);
}
void GiveChannel(const double* in, size_t stride, size_t count, float* out) {
  HWY_DYNAMIC_DISPATCH(GiveFloats)(in, stride, count, out);
}
void GiveChannel(const double* in, size_t stride, size_t count, double* out) {
  HWY_DYNAMIC_DISPATCH(GiveDoubles)(in, stride, count, out);
}
void AddValues(double* sum, const double* values, size_t count) {
  HWY_DYNAMIC_DISPATCH(AddDoubles)(sum, values, count);
}

}  // namespace qn
#endif
