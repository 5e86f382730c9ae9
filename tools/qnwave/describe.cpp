#include "tools/qnwave/describe.h"

#include <algorithm>
#include <cstdio>

#include "qn/audio/qnformattext.h"
#include "qn/platform/text.h"
#include "qn/text/qnnumber.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {
namespace {

constexpr int kTextRoom = 128;

constexpr const char* kSpeakers[] = {"FL", "FR", "FC", "LFE", "BL",  "BR",  "FLC", "FRC", "BC",
                                     "SL", "SR", "TC", "TFL", "TFC", "TFR", "TBL", "TBC", "TBR"};

bool numbersAreDressed = false;

}  // namespace

Message FormatName(const WAVEFORMATEXTENSIBLE& record) {
  const WAVEFORMATEX& format = record.Format;
  const unsigned tag = QnAudio_GetWaveFormatTag(&format);
  const SampleTypeRow* const row = FindSampleType(QnAudio_GetSampleType2(tag, format.wBitsPerSample));
  if (row) return Message(row->words);
  // The library's words for linear samples tell nothing of what is odd about these.
  const bool isLinear = tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT || tag >= QNWAVETAG_UNPACKED;
  WCHAR name[kTextRoom];
  if (!isLinear && QnAudio_GetTagText(tag, name, kTextRoom) == S_OK) return Message(qn::ToUtf8(name));
  char text[16];
  std::snprintf(text, sizeof(text), "0x%04X", tag);
  return {messages::FormatTag, {Message(text), Message(std::to_string(format.wBitsPerSample))}};
}

std::string DescribeFormat(const WAVEFORMATEXTENSIBLE& record) {
  const WAVEFORMATEX& format = record.Format;
  std::string words = FormatName(record).English();
  const unsigned valid = record.Samples.wValidBitsPerSample;
  if (format.wFormatTag == WAVE_FORMAT_EXTENSIBLE && valid != 0 && valid < format.wBitsPerSample) {
    words += ", " + std::to_string(valid) + " of the bits valid";
  }
  return words;
}

std::string SummarizeFormat(const WAVEFORMATEX& format) {
  WCHAR name[kTextRoom], attributes[kTextRoom];
  const bool isNamed = QnAudio_GetTagText(QnAudio_GetWaveFormatTag(&format), name, kTextRoom) == S_OK;
  const bool isTold = QnAudio_GetAttribsText(&format, attributes, kTextRoom) == S_OK;
  return qn::ToUtf8(name) + (isNamed && isTold ? ": " + qn::ToUtf8(attributes) : "");
}

Message ChannelsMessage(uint32_t channels) {
  if (channels == 1) return messages::Mono;
  if (channels == 2) return messages::Stereo;
  return {messages::Channels, {Message(std::to_string(channels))}};
}

std::string DescribeChannels(uint32_t channels) {
  return ChannelsMessage(channels).English();
}

std::string DescribeSpeakers(uint32_t mask) {
  std::string names;
  for (unsigned bit = 0; bit < 32; ++bit) {
    if (!((mask >> bit) & 1)) continue;
    if (!names.empty()) names += ' ';
    names += bit < std::size(kSpeakers) ? kSpeakers[bit] : ("bit" + std::to_string(bit)).c_str();
  }
  return names;
}

std::string DescribeDuration(uint64_t frames, uint32_t rate, const _qnposfmt* format) {
  const uint64_t seconds = frames / rate;
  if (format) {
    constexpr uint64_t kSecond = 10000000;
    constexpr uint64_t kMostSeconds = INT64_MAX / kSecond - 1;
    const uint64_t time =
        std::min(seconds, kMostSeconds) * kSecond + (frames % rate * kSecond + rate / 2) / rate;
    _qnposfmt atRate = *format;
    atRate.sampleRate = rate;
    WCHAR text[128];
    QnNanoTimeToTextExN(text, 128, &atRate, static_cast<LONGLONG>(time), 0);
    return qn::ToUtf8(text);
  }
  const uint64_t milliseconds = frames % rate * 1000 / rate;
  char text[64];
  std::snprintf(text, sizeof(text), "%llu:%02u:%02u.%03u", static_cast<unsigned long long>(seconds / 3600),
                static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60),
                static_cast<unsigned>(milliseconds));
  return text;
}

void DressNumbers() {
  numbersAreDressed = true;
}

bool AreNumbersDressed() {
  return numbersAreDressed;
}

std::string Grouped(uint64_t number) {
  const Message message = Message::Number(number);
  return numbersAreDressed ? message.Shown() : message.English();
}

std::string Bytes(uint64_t number) {
  return Grouped(number) + (number == 1 ? " byte" : " bytes");
}

std::string ShortSize(uint64_t bytes) {
  WCHAR text[64];
  QnFormatFileSize(static_cast<LONGLONG>(bytes), text, 64, FALSE);
  return qn::ToUtf8(text);
}

}  // namespace qnwave
