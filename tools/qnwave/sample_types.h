// The names of the sample types on the command line, and audio formats as the tool handles them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qn/audio/qnwaveformat.h"

namespace qnwave {

struct SampleTypeRow {
  QNSAMPLETYPE type;
  const char* name;   // on the command line
  const char* words;  // for people
  // The type that holds the same samples and that every program reads: the type itself, unless its format tag
  // is a private one.
  QNSAMPLETYPE common;
};

// Null for a value that is no sample type.
const SampleTypeRow* FindSampleType(QNSAMPLETYPE type);
const SampleTypeRow* FindSampleType(std::string_view name);

bool IsFloat(QNSAMPLETYPE type);

// All names, for messages: "u8, s8, ...".
std::string SampleTypeNames();

// Interleaved linear samples.
struct AudioFormat {
  QNSAMPLETYPE type = QNST_NONE;
  uint32_t rate = 0;
  uint32_t channels = 0;
  uint32_t mask = 0;  // the speakers of the channels, 0 if nothing is said

  uint32_t SampleBytes() const { return static_cast<uint32_t>(QnAudio_BytesFromSampleType(type)); }
  uint32_t FrameBytes() const { return SampleBytes() * channels; }
};

// The limits of a wave file's format record.
constexpr uint32_t kMostRate = 0x7FFFFFFF;
constexpr uint32_t kMostFrameBytes = 0xFFFF;

// "TYPE,RATE,CHANNELS" of the command line, with a fourth number if `offset` is given: the offset of the
// first sample. Nothing, with the reason in `*mistake`, for a text that is none.
std::optional<AudioFormat> ParseAudioFormat(std::string_view text, uint64_t* offset, std::string* mistake);

}  // namespace qnwave
