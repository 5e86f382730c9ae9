// What the names of compressed formats are made with.
#pragma once

#include "qn/platform/mmreg.h"

namespace qn {

// The only function of the module that knows the codecs, under this name: a codec's name in UTF-8 by its
// format tag, or null. The text stays.
using CodecName = const char*(unsigned int tag);
constexpr const char* kCodecNameFunction = "qnkernel_codec_name";

// Prints the line of a compressed format to `size` characters. The layer that has the texts puts its function
// here before attach; as long as it has not, no line is known.
using CodecLine = void(const WAVEFORMATEX& format, WCHAR* text, int size);
extern constinit CodecLine* g_codecLine;

}  // namespace qn
