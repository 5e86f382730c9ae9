#include "tools/qnwave/sample_writer.h"

#include <cmath>
#include <cstring>

#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

AudioFormat WithType(AudioFormat format, QNSAMPLETYPE type) {
  format.type = type;
  return format;
}

}  // namespace

SampleWriter::SampleWriter(AudioOutput* output, const AudioFormat& format, QNSAMPLETYPE type,
                           uint32_t mostFrames, const DitherSettings& dither)
    : output_(*output),
      format_(format),
      type_(type),
      converter_(WithType(format, type), format.type, {}, 1.0f, mostFrames, dither),
      block_(size_t{mostFrames} * format.FrameBytes()) {}

HRESULT SampleWriter::Write(uint64_t first, const void* samples, uint32_t frames) {
  const size_t count = size_t{frames} * format_.channels;
  clipped_ += CountClipped(samples, count, type_, format_.type);
  if (!converter_.IsCopy()) {
    converter_.Convert(block_.data(), samples, frames);
  } else if (CountLouder(samples, count, type_, HUGE_VAL) == 0) {
    return output_.Write(first, samples, frames);
  } else {
    std::memcpy(block_.data(), samples, size_t{frames} * format_.FrameBytes());
  }
  notNumbers_ += SilenceNotNumbers(block_.data(), count, format_.type);
  return output_.Write(first, block_.data(), frames);
}

}  // namespace qnwave
