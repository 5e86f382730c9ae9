// Any wide text into every reader of times, and the time that was read through its own text again.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/check.h"
#include "qn/text/qnprint.h"
#include "qn/text/qntimetext.h"

using qnfuzz::Check;

namespace {

// Numbers come first, 48 bytes; the rest is text.
struct Input {
  _qnposfmt format;
  DWORD flags;
  LONG ticks;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input;
  if (size < sizeof(input)) return 0;
  std::memcpy(&input, data, sizeof(input));
  std::u16string text((size - sizeof(input)) / 2, 0);
  std::memcpy(text.data(), data + sizeof(input), text.size() * 2);
  text.resize(std::min(text.find(W('\0')), text.size()));
  const WCHAR* const source = text.c_str();
  static const HRESULT locale = QnLang_GetInternationals(nullptr, 0);
  Check(locale == 0, "the user's locale is read");

  _qnposfmt format = input.format;
  WCHAR shown[1024];
  const WCHAR* end = source;
  const auto checkEnd = [&] {
    Check(end - source <= std::ssize(text) && end >= source, "stops in the text");
  };
  QnTextToMusicTimeToken(source, &format, input.flags, &end);
  checkEnd();
  QnTextToBeatsTicks(source, &format, FALSE, nullptr, nullptr);
  QnTicksToText(shown, &format, QnTextToTicks(source, &format, 1, input.flags & 1), 1, FALSE, input.ticks);
  QnMeasuresAndTicksToText(shown, &format, input.ticks, input.ticks, 1, FALSE, input.ticks);

  for (format.format = -1; format.format <= 20; ++format.format) {
    const LONGLONG read = QnTextToNanoTimeToken2(source, &format, 1, -2, 3, input.flags, &end);
    checkEnd();
    const int length = QnNanoTimeToTextExN(shown, 1024, &format, read, input.flags);
    Check(length >= 0 && length < 1024 && !shown[length], "a text ends where its length says");
    if (format.format != QNPOSFMT_NANOTIME || read <= -INT64_MAX) continue;
    const DWORD flags = input.flags | QNTIMETEXT_ABSOLUTE;
    QnNanoTimeToTextExN(shown, 1024, &format, read, flags);
    Check(QnTextToNanoTimeToken2(shown, &format, 1, 0, 0, flags & ~QNTIMETEXT_CLAMP, nullptr) == read,
          "what is shown reads back");
  }

  format.format = input.format.format;
  QnNanoTimeToTextFormatN(shown, 1024, &format, format.offset, source,
                          input.flags);  // the caller's format text
  _smpteval label;
  std::memcpy(&label, data, sizeof(label));  // any fields at all
  QNSMPTE_IncrementByFrame(&label);
  QNSMPTE_DeccrementByFrame(&label, 0);
  QNSMPTE_AddSMPTE(&label, &label);
  QNSMPTE_TextToSMPTE(source, &label);
  const LONGLONG frames = QNSMPTE_SMPTEToFrameCount(&label);
  QNSMPTE_NanoToSMPTE(QNSMPTE_SMPTEToNanos(&label), &label);
  Check(QNSMPTE_SMPTEToFrameCount(&label) == frames, "a frame's time lies in that frame");
  return 0;
}
