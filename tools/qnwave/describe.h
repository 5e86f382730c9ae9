// Formats and numbers in words.
#pragma once

#include <cstdint>
#include <string>

#include "qn/platform/mmreg.h"
#include "qn/text/qntimetext.h"
#include "tools/common/text.h"

namespace qnwave {

// "16-bit integer", "MP3 (MPEG audio layer 3)", "format tag 0x1234, 12 bits"
qntool::Message FormatName(const WAVEFORMATEXTENSIBLE& record);

// The same in English, with the valid bits where these are fewer.
std::string DescribeFormat(const WAVEFORMATEXTENSIBLE& record);

// As the library shows a format, in the user's language and the dress of its numbers: "PCM: 44,100 Hz, 16
// Bit, Stereo", or the name of the tag alone for a format that the platform does not know.
std::string SummarizeFormat(const WAVEFORMATEX& format);

// "stereo", "6 channels"
qntool::Message ChannelsMessage(uint32_t channels);
std::string DescribeChannels(uint32_t channels);

// "FL FR FC LFE", empty for 0
std::string DescribeSpeakers(uint32_t mask);

// "0:10:00.000" of a frame count, or what a format makes of it, at the rate given, which is not 0.
std::string DescribeDuration(uint64_t frames, uint32_t rate, const _qnposfmt* format = nullptr);

// From here on numbers are in the dress of the user's language, not as the examples below.
void DressNumbers();
bool AreNumbersDressed();

// "1,234,567"
std::string Grouped(uint64_t number);

// "1 byte", "1,234 bytes"
std::string Bytes(uint64_t number);

// The size in a larger unit, in three digits and the words of the user's language: "1.17 MB"
std::string ShortSize(uint64_t bytes);

}  // namespace qnwave
