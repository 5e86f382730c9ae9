#include "qn/audio/qnformattext.h"

#include <cstring>

#include "qn/platform/msacm.h"
#include "qn/platform/msacm_internal.h"
#include "qn/text/messages_internal.h"
#include "qn/text/qnprint.h"
#include "qn/text/text_internal.h"

namespace qn {
namespace {

constexpr int kChannelRoom = 32;

struct TagName {
  DWORD tag;
  const qnlang_t& name;
};

const TagName kTagNames[] = {{WAVE_FORMAT_PCM, messages::FormatPcm},
                             {WAVE_FORMAT_IEEE_FLOAT, messages::FormatPcmFloat},
                             {QNWAVETAG_UNPACKED, messages::FormatPcmUnpacked},
                             {QNWAVETAG_SIGNED8, messages::FormatPcmSigned},
                             {QNWAVETAG_BIGENDIAN, messages::FormatPcmBigEndian}};

const WCHAR* Text(const qnlang_t& record) {
  return QnGetString(KernelLanguage(), record);
}

template <class... Arguments>
HRESULT Print(WCHAR* text, int size, const WCHAR* format, Arguments... arguments) {
  return text && size > 0 ? QnCchPrintF(text, size, nullptr, format, arguments...) : S_OK;
}

HRESULT Unknown(WCHAR* text, int size) {
  Print(text, size, Text(messages::FormatUnknown));
  return E_FAIL;
}

// The mask of a surround set, from the back or from the sides.
bool IsSurround(DWORD channels, DWORD mask) {
  return channels == 6 ? mask == 0x3F || mask == 0x60F : mask == 0xFF || mask == 0x63F;
}

// Writes the channels. `*isFloat` becomes true for an extensible format of 6 or 8 channels that is, and stays
// as it was for all others.
void PrintChannels(const WAVEFORMATEX& format, WCHAR (&text)[kChannelRoom], bool* isFloat) {
  const qnlang_t* record = &messages::ChannelsCount;
  if (format.nChannels == 1) {
    record = &messages::ChannelsMono;
  } else if (format.nChannels == 2) {
    record = &messages::ChannelsStereo;
  } else if ((format.nChannels == 6 || format.nChannels == 8) &&
             format.wFormatTag == WAVE_FORMAT_EXTENSIBLE &&
             format.cbSize >= sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX)) {
    WAVEFORMATEXTENSIBLE extensible;
    std::memcpy(&extensible, &format, sizeof(extensible));
    *isFloat = extensible.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    if (IsSurround(format.nChannels, extensible.dwChannelMask)) {
      record = format.nChannels == 6 ? &messages::Channels51 : &messages::Channels71;
    }
  }
  Print(text, kChannelRoom, Text(*record), format.nChannels);
}

// The platform's line of a compressed format.
void PrintCodecLine(const WAVEFORMATEX& format, WCHAR* text, int size) {
  WCHAR channels[kChannelRoom];
  bool isFloat = false;  // the samples are the codec's
  PrintChannels(format, channels, &isFloat);
  const auto rate = static_cast<int>(format.nSamplesPerSec);
  const auto kilobits = static_cast<int>((ULONGLONG{format.nAvgBytesPerSec} * 8 + 500) / 1000);
  if (kilobits == 0) {
    Print(text, size, Text(messages::FormatLineShort), rate, channels);
  } else {
    Print(text, size, Text(messages::FormatLineCompressed), rate, kilobits, channels);
  }
}

__attribute__((constructor(101))) void Register() {
  g_codecLine = PrintCodecLine;
}

HRESULT PrintCompressed(const WAVEFORMATEX& format, WCHAR* text, int size) {
  // Records of these tags end before cbSize in many files.
  const bool isShort = format.wFormatTag == WAVE_FORMAT_PCM || format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
  ACMFORMATDETAILSW details = {};
  details.cbStruct = sizeof(details);
  details.dwFormatTag = format.wFormatTag;
  details.pwfx = const_cast<WAVEFORMATEX*>(&format);
  details.cbwfx = isShort ? offsetof(WAVEFORMATEX, cbSize) : sizeof(WAVEFORMATEX) + format.cbSize;
  if (acmFormatDetailsW(nullptr, &details, ACM_FORMATDETAILSF_FORMAT) != MMSYSERR_NOERROR) {
    return Unknown(text, size);
  }
  return Print(text, size, W("%s"), details.szFormat);
}

}  // namespace
}  // namespace qn

HRESULT QnAudio_GetAttribsText(const WAVEFORMATEX* format, WCHAR* text, int size) {
  if (!format) return qn::Unknown(text, size);
  if (QnAudio_IsCompressed(format)) return qn::PrintCompressed(*format, text, size);
  WCHAR channels[qn::kChannelRoom];
  bool isFloat = format->wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
  qn::PrintChannels(*format, channels, &isFloat);
  return qn::Print(text, size, qn::Text(isFloat ? qn::messages::FormatLineFloat : qn::messages::FormatLine),
                   format->nSamplesPerSec, format->wBitsPerSample, channels);
}

HRESULT QnAudio_GetAttribsText(const _qnwaveformat* format, WCHAR* text, int size) {
  if (!format) return qn::Unknown(text, size);
  alignas(WAVEFORMATEXTENSIBLE) BYTE room[80] = {};
  auto* const published = reinterpret_cast<WAVEFORMATEX*>(room);
  QnAudio_GeneralCopyWfx(published, sizeof(room), *format, QNWFCD_WFX);
  return QnAudio_GetAttribsText(published, text, size);
}

HRESULT QnAudio_GetTagText(unsigned int tag, WCHAR* text, int size) {
  for (const qn::TagName& row : qn::kTagNames) {
    if (row.tag == tag) return qn::Print(text, size, qn::Text(row.name));
  }
  ACMFORMATTAGDETAILSW details = {};
  details.cbStruct = sizeof(details);
  details.dwFormatTag = tag;
  if (acmFormatTagDetailsW(nullptr, &details, ACM_FORMATTAGDETAILSF_FORMATTAG) != MMSYSERR_NOERROR) {
    return qn::Unknown(text, size);
  }
  return qn::Print(text, size, W("%s"), details.szFormatTag);
}
