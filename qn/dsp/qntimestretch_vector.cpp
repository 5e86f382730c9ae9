#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qntimestretch_vector.cpp"
// Vectors of four doubles keep the adders busy with one batch of lags.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
//
#include "hwy/foreach_target.h"
//
#include "hwy/highway.h"
#include "qn/dsp/qntimestretch_internal.h"

// Loops over a few vectors must be unrolled, or the vectors take the way through memory.
#ifndef QN_UNROLL
#define QN_UNROLL _Pragma("GCC unroll 16")
#endif

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lags in the lanes, so that each sum is added up in order.
void Score(const double* values, const double* reference, size_t count, double* scores) {
  const hn::CappedTag<double, 4> d;
  constexpr size_t kLanes = hn::MaxLanes(d), kVectors = kLagBatch / kLanes;
  hn::Vec<decltype(d)> sums[kVectors];
  QN_UNROLL
  for (auto& sum : sums) sum = hn::Zero(d);
  for (size_t i = 0; i < count; ++i) {
    const auto wanted = hn::Set(d, reference[i]);
    QN_UNROLL
    for (size_t v = 0; v < kVectors; ++v) {
      const auto both = hn::Add(hn::LoadU(d, values + i + v * kLanes), wanted);
      sums[v] = hn::Add(sums[v], hn::Mul(both, both));
    }
  }
  QN_UNROLL
  for (size_t v = 0; v < kVectors; ++v) hn::StoreU(sums[v], d, scores + v * kLanes);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(Score);

void ScoreLags(const double* values, const double* reference, size_t count, double* scores) {
  HWY_DYNAMIC_DISPATCH(Score)(values, reference, count, scores);
}

}  // namespace qn
#endif
