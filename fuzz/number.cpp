// Typed numbers: readers stop within any text, and read what was printed.
#include <cmath>
#include <cstring>
#include <string>

#include "fuzz/check.h"
#include "qn/text/qnnumber.h"

using qnfuzz::Check;

namespace {

// Reads and returns the value; the end must lie in the text.
template <typename Value>
Value Read(const std::u16string& text, Value (*read)(const WCHAR*, const WCHAR**, int)) {
  const WCHAR* end = nullptr;
  const Value value = read(text.c_str(), &end, 1);
  Check(end >= text.c_str() && end <= text.c_str() + text.size(), "reading stops within the text");
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text(size / 2, 0);
  if (size > 1) std::memcpy(text.data(), data, size / 2 * 2);
  Read(text, QnTextToDWordToken);
  Read(text, QnTextToLongToken);
  const double number = Read(text, QnTextToDoubleToken);
  Check(QnTextToDoubleTokenEx(text.c_str(), 5, 5, 4, nullptr) == 4, "the maximum holds");
  Read<ULONGLONG>(text, [](auto* source, auto** end, int) { return QnHexToDWordLongToken(source, end); });

  WCHAR printed[64];
  for (const BOOL grouped : {FALSE, TRUE}) {
    for (const LONGLONG value : {Read(text, QnTextToLongLongToken), static_cast<LONGLONG>(size)}) {
      Check(QnLongLongToText(value, printed, grouped) > 0, "every integer prints");
      Check(Read(printed, QnTextToLongLongToken) == value, "what is printed is read");
    }
    const ULONGLONG natural = Read(text, QnTextToDWordLongToken);
    QnDWordLongToText(natural, printed, grouped);
    Check(Read(printed, QnTextToDWordLongToken) == natural, "what is printed is read");
    if (std::fabs(number) >= 1e15) continue;
    QnDoubleToText(printed, number, 9, grouped);
    const double back = Read(printed, QnTextToDoubleToken);
    Check(std::fabs(back - number) <= 1e-9 + std::fabs(number) * 1e-15, "what is printed is read");
  }

  std::u16string dressed(64, '#');
  Check(QnFormatNumber(text.c_str(), dressed.data(), 40) < 40, "dressing stays within its room");
  Check(dressed.find(u'\0') < 40 && dressed[40] == '#', "dressing stays within its room");
  if (!text.empty()) QnStripWhiteSpace(text.data());
  return 0;
}
