// Short forms of numbers for the interface: levels, sizes, four-character codes.
#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "qn/text/messages_internal.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnnumber_internal.h"
#include "qn/text/text_internal.h"

namespace {

constexpr int kLabelRoom = 24;

// A labelled value in the ring. `printNumber` fills the room given and tells the length.
template <typename Value, typename PrintNumber>
const WCHAR* Label(Value value, Value floorValue, const WCHAR* label, PrintNumber printNumber) {
  const HQNLANG language = qn::KernelLanguage();
  if (floorValue != 0 && value <= floorValue) return QnGetString(language, qn::messages::MinusInfinity);
  WCHAR* const text = QnGetTempStringBuffer(language, kLabelRoom);
  if (!text) return QnGetString(language, qn::messages::ValueError);
  int length = 0;
  printNumber(text, &length);
  while (label && *label && length < kLabelRoom - 1) text[length++] = *label++;
  text[length] = 0;
  return text;
}

// "$.Xz" or "$.Xf" for 1 to 9 decimals and more, which count as 9; `*digit` becomes the X.
bool HasDecimals(int decimals, WCHAR* digit) {
  *digit = static_cast<WCHAR>('0' + std::clamp(decimals, 0, 9));
  return decimals > 0;
}

LONG Truncated(float value) {
  if (std::isnan(value)) return 0;
  if (value >= 0x1p31f) return std::numeric_limits<LONG>::max();
  return value <= -0x1p31f ? std::numeric_limits<LONG>::min() : static_cast<LONG>(value);
}

const WCHAR* UnitLabel(BOOL withUnit) {
  return withUnit ? W(" dB") : nullptr;
}

// The texts of a size below each threshold: bytes, then with two decimals in larger units.
struct ByteSizeFormats {
  const WCHAR* bytes;
  const WCHAR* kilobytes;
  const WCHAR* megabytes;
  const WCHAR* gigabytes;
};

constexpr int kByteSizeRoom = 64;  // what a caller provides

// Binary below a megabyte and mixed above: deliberate, hosts rely on it.
int PrintByteSize(LONGLONG size, WCHAR* text, const ByteSizeFormats& formats) {
  if (!text) return 0;
  int length = 0;
  if (size < 1024) {
    QnCchPrintF(text, kByteSizeRoom, &length, formats.bytes, static_cast<LONG>(size));
    return length;
  }
  const auto value = static_cast<double>(size);
  const WCHAR* const format = size < 1024000      ? formats.kilobytes
                              : size < 1024000000 ? formats.megabytes
                                                  : formats.gigabytes;
  const double unit = size < 1024000 ? 1024 : size < 1024000000 ? 1.024e6 : 1.024e9;
  QnCchPrintF(text, kByteSizeRoom, &length, format, value / unit);
  return length;
}

constexpr LONGLONG kBeyondSize = 0x7000000000000000;

// Each unit counts up to 999, so that a number has three digits at most.
struct SizeUnit {
  const qnlang_t& text;
  int bits;
};
const SizeUnit kSizeUnits[] = {{qn::messages::SizeKB, 10},
                               {qn::messages::SizeMB, 20},
                               {qn::messages::SizeGB, 30},
                               {qn::messages::SizeTB, 40},
                               {qn::messages::SizePB, 50}};

// A number below 999 in three digits. What is added keeps the zeros at the end, which "g" would drop, as a
// further digit that the cut takes away.
void PrintThreeDigits(double value, WCHAR* text, int size) {
  if (value >= 100) {
    QnCchPrintF(text, size, nullptr, W("$.0f"), std::floor(value + 1.5e-8));
  } else if (value >= 10) {
    QnCchPrintF(text, size, nullptr, W("$.4g"), std::trunc(value * 10) / 10 + 0.01);
  } else {
    QnCchPrintF(text, size, nullptr, W("$.4g"), std::trunc(value * 100) / 100 + 0.001);
  }
  const int cut = qn::IsDigit(text[0]) ? 4 : 3;  // no digit in front: a locale without a leading zero
  for (int i = 0; i < cut; ++i) {
    if (!text[i]) return;
  }
  text[cut] = 0;
}

WCHAR* PrintFourCC(DWORD code, WCHAR* text, WCHAR substitute) {
  if (!text) return nullptr;
  for (int i = 0; i < 4; ++i, code >>= 8) {
    const auto character = static_cast<WCHAR>(code & 0xFF);
    text[i] = character >= 32 && character <= 126 ? character : substitute;
  }
  text[4] = 0;
  return text;
}

}  // namespace

const WCHAR* QnGetLabeledStringFixed(LONG value, int decimals, LONG floorValue, const WCHAR* label) {
  return Label(value, floorValue, label, [&](WCHAR* text, int* length) {
    WCHAR format[] = W("$.0z");
    QnCchPrintF(text, kLabelRoom, length, HasDecimals(decimals, &format[2]) ? format : W("$d"), value);
  });
}

const WCHAR* QnGetLabeledStringFloat(float value, int decimals, float floorValue, const WCHAR* label) {
  return Label(value, floorValue, label, [&](WCHAR* text, int* length) {
    WCHAR format[] = W("$.0f");
    if (HasDecimals(decimals, &format[2])) {
      QnCchPrintF(text, kLabelRoom, length, format, static_cast<double>(value));
    } else {
      QnCchPrintF(text, kLabelRoom, length, W("$d"), Truncated(value));
    }
  });
}

const WCHAR* QnGetdBStringFixed(LONG value, int decimals, LONG floorValue, BOOL withUnit) {
  return QnGetLabeledStringFixed(value, decimals, floorValue, UnitLabel(withUnit));
}

const WCHAR* QnGetdBStringFloat(float value, int decimals, float floorValue, BOOL withUnit) {
  return QnGetLabeledStringFloat(value, decimals, floorValue, UnitLabel(withUnit));
}

int QnGetByteSizeText(LONGLONG size, WCHAR* text) {
  return PrintByteSize(size, text, {W("%d"), W("$.2fKB"), W("$.2fMB"), W("$.2fGB")});
}

int QnGetByteSizeText2(LONGLONG size, WCHAR* text) {
  return PrintByteSize(size, text, {W("%d bytes"), W("$.2f KB"), W("$.2f MB"), W("$.2f GB")});
}

int QnGetByteSizeTextWithSpace(LONGLONG size, WCHAR* text) {
  return PrintByteSize(size, text, {W("%d"), W("$.2f KB"), W("$.2f MB"), W("$.2f GB")});
}

int QnFormatFileSize(LONGLONG size, WCHAR* text, int textSize, BOOL longUnit) {
  if (!text || textSize < 1) return 0;
  size = std::max<LONGLONG>(size, 0);
  WCHAR number[kLabelRoom] = W("");
  const qnlang_t* unit = &qn::messages::SizeBeyond;
  if (size < 999) {
    QnLongLongToTextN(size, number, kLabelRoom, FALSE);
    unit = longUnit ? &qn::messages::SizeBytes : &qn::messages::SizeB;
  } else if (size < kBeyondSize) {
    const auto found =
        std::find_if(std::begin(kSizeUnits), std::end(kSizeUnits),
                     [size](const SizeUnit& each) { return size < LONGLONG{999} << each.bits; });
    if (found != std::end(kSizeUnits)) {
      unit = &found->text;
      PrintThreeDigits(std::ldexp(static_cast<double>(size), -found->bits), number, kLabelRoom);
    } else {
      unit = &qn::messages::SizeEB;
      PrintThreeDigits(static_cast<double>(size >> 50) / 1024, number, kLabelRoom);
    }
  }
  return QnComposeStr(text, textSize, QnGetString(qn::KernelLanguage(), *unit), number);
}

WCHAR* QnFourCCToString(DWORD code, WCHAR* text) {
  return PrintFourCC(code, text, '.');
}

WCHAR* QnFourCCToStringCPU(DWORD code, WCHAR* text) {
  return PrintFourCC(code, text, 0);
}
