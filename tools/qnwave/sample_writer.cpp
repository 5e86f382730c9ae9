#include "tools/qnwave/sample_writer.h"

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
      block_(converter_.IsCopy() ? 0 : size_t{mostFrames} * format.FrameBytes()) {}

HRESULT SampleWriter::Write(uint64_t first, const void* samples, uint32_t frames) {
  clipped_ += CountClipped(samples, size_t{frames} * format_.channels, type_, format_.type);
  if (converter_.IsCopy()) return output_.Write(first, samples, frames);
  converter_.Convert(block_.data(), samples, frames);
  return output_.Write(first, block_.data(), frames);
}

}  // namespace qnwave
