// The headers of the wave files that the tool writes: written once, with all sizes, since the number of
// frames is known before the first one is written.
//
// Plain samples of one or two channels have the 18-byte record that the library's own functions write. More
// channels, and speakers that the number of channels does not tell, need the extensible record: other
// programs ask for it, and it keeps the speakers.
#pragma once

#include <cstdint>

#include "qn/platform/types.h"
#include "tools/qnwave/container.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {

// The offset of the first sample.
uint64_t WaveHeaderBytes(Container container, const AudioFormat& format);

// The bytes of a whole file, with the padding that it ends with.
uint64_t WaveFileBytes(Container container, const AudioFormat& format, uint64_t frames);

// No new file has more: far more than any disk.
constexpr uint64_t kMostFileBytes = uint64_t{1} << 60;

// False when the sizes of the container cannot count so many frames.
bool CanHold(Container container, const AudioFormat& format, uint64_t frames);

// Writes the header at the position of an open file.
HRESULT WriteWaveHeader(HANDLE file, Container container, const AudioFormat& format, uint64_t frames);

}  // namespace qnwave
