// Formats and numbers in words.
#pragma once

#include <cstdint>
#include <string>

#include "qn/platform/mmreg.h"

namespace qnwave {

// "16-bit integer", "MP3", "format tag 0x1234, 12 bits"
std::string DescribeFormat(const WAVEFORMATEXTENSIBLE& record);

// "stereo", "6 channels"
std::string DescribeChannels(uint32_t channels);

// "FL FR FC LFE", empty for 0
std::string DescribeSpeakers(uint32_t mask);

// "0:10:00.000" of a frame count; the rate is not 0.
std::string DescribeDuration(uint64_t frames, uint32_t rate);

// "1,234,567"
std::string Grouped(uint64_t number);

// "1 byte", "1,234 bytes"
std::string Bytes(uint64_t number);

}  // namespace qnwave
