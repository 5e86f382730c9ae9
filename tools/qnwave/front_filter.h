// The FIR low-pass ahead of a resampler.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qn/audio/qnwaveformat.h"
#include "qn/dsp/qnfir.h"
#include "qn/dsp/qnsig.h"
#include "tools/qnwave/resampler.h"

namespace qnwave {

// Filters interleaved floats or doubles as a stream and makes Oversampling() frames of each.
class FrontFilter {
 public:
  virtual ~FrontFilter() = default;

  // A filter for a change that has one, in `type`; null without memory.
  static std::unique_ptr<FrontFilter> Make(const RateChange& change, QNSAMPLETYPE type, uint32_t channels);

  // Starts a stream.
  virtual void Start() = 0;

  // `out` is not `in`.
  virtual void Process(const void* in, uint32_t frames, void* out) = 0;
};

}  // namespace qnwave
