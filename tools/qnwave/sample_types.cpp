#include "tools/qnwave/sample_types.h"

#include "tools/common/option_values.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

using qntool::ParseNumber;
using qntool::Split;

constexpr SampleTypeRow kRows[] = {
    {QNST_PCM8U, "u8", "8-bit unsigned integer", QNST_PCM8U},
    {QNST_PCM8S, "s8", "8-bit signed integer", QNST_PCM8U},
    {QNST_PCM16, "s16", "16-bit integer", QNST_PCM16},
    {QNST_PCM24, "s24", "24-bit integer", QNST_PCM24},
    {QNST_PCM32, "s32", "32-bit integer", QNST_PCM32},
    {QNST_FLOAT32, "f32", "32-bit float", QNST_FLOAT32},
    {QNST_FLOAT64, "f64", "64-bit float", QNST_FLOAT64},
    {QNST_PCM24IN32, "s24in32", "24-bit integer in 32-bit words", QNST_PCM24},
    {QNST_PCM16BE, "s16be", "16-bit integer, big-endian", QNST_PCM16},
    {QNST_PCM24BE, "s24be", "24-bit integer, big-endian", QNST_PCM24},
    {QNST_PCM32BE, "s32be", "32-bit integer, big-endian", QNST_PCM32},
};

}  // namespace

const SampleTypeRow* FindSampleType(QNSAMPLETYPE type) {
  for (const SampleTypeRow& row : kRows) {
    if (row.type == type) return &row;
  }
  return nullptr;
}

const SampleTypeRow* FindSampleType(std::string_view name) {
  return qntool::FindByName(kRows, name);
}

bool IsFloat(QNSAMPLETYPE type) {
  return type == QNST_FLOAT32 || type == QNST_FLOAT64;
}

std::string SampleTypeNames() {
  return qntool::NamesOf(kRows);
}

std::optional<AudioFormat> ParseAudioFormat(std::string_view text, uint64_t* offset, std::string* mistake) {
  const std::vector<std::string_view> pieces = Split(text, ',');
  if (pieces.size() < 3 || pieces.size() > (offset ? 4 : 3)) {
    *mistake = Quoted(text) + " is not TYPE,RATE,CHANNELS" + (offset ? "[,OFFSET]" : "");
    return std::nullopt;
  }
  const SampleTypeRow* const row = FindSampleType(pieces[0]);
  if (!row) {
    *mistake = "unknown sample type " + Quoted(pieces[0]) + " (one of " + SampleTypeNames() + ")";
    return std::nullopt;
  }
  AudioFormat format;
  format.type = row->type;
  const auto rate = ParseNumber<uint32_t>(pieces[1], 1, kMostRate);
  const auto channels = ParseNumber<uint32_t>(pieces[2], 1, kMostFrameBytes / format.SampleBytes());
  if (!rate || !channels) {
    *mistake = rate ? "bad channel count " + Quoted(pieces[2]) : "bad rate " + Quoted(pieces[1]);
    return std::nullopt;
  }
  format.rate = *rate;
  format.channels = *channels;
  if (pieces.size() == 4) {
    const auto number = ParseNumber<uint64_t>(pieces[3], 0, INT64_MAX);
    if (!number) {
      *mistake = "bad offset " + Quoted(pieces[3]);
      return std::nullopt;
    }
    *offset = *number;
  }
  return format;
}

}  // namespace qnwave
