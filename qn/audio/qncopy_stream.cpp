// Copying whole cache lines past the cache.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qncopy_stream.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "hwy/cache_control.h"
#include "hwy/highway.h"
#include "qn/audio/qncopy_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

void StreamLinesWith(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t lines) {
  namespace hn = hwy::HWY_NAMESPACE;
#if HWY_TARGET == HWY_SCALAR
  const hn::ScalableTag<uint64_t> d;
#else
  const hn::ScalableTag<uint8_t> d;
#endif
  using T = hn::TFromD<decltype(d)>;
  constexpr size_t kBytes = hn::MaxLanes(d) * sizeof(T);
  for (size_t at = 0; at < lines * 64; at += kBytes) {
    hn::Stream(hn::LoadU(d, reinterpret_cast<const T*>(src + at)), d, reinterpret_cast<T*>(dst + at));
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(StreamLinesWith);

void StreamLines(uint8_t* dst, const uint8_t* src, size_t lines) {
  HWY_DYNAMIC_DISPATCH(StreamLinesWith)(dst, src, lines);
}

void FinishStreaming() {
  hwy::FlushStream();
}

}  // namespace qn
#endif
