#include "tools/qnwave/sample_reader.h"

#include "tools/qnwave/sample_check.h"

namespace qnwave {

SampleReader::SampleReader(const AudioSource& source, QNSAMPLETYPE type, const ChannelMap& map, float gain,
                           uint32_t mostFrames)
    : source_(source),
      type_(type),
      converter_(source.format, type, map, gain, mostFrames),
      bytes_(size_t{mostFrames} * source.format.FrameBytes()) {}

bool SampleReader::Read(uint64_t first, void* samples, uint32_t frames) {
  if (!reader_.Read(first, bytes_.data(), frames)) return false;
  converter_.Convert(samples, bytes_.data(), frames);
  // Behind the gain, which may have made some.
  if (IsFloat(source_.format.type))
    notNumbers_ += SilenceNotNumbers(samples, size_t{frames} * converter_.Channels(), type_);
  return true;
}

}  // namespace qnwave
