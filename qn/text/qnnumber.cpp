// Digits from binary numbers, and their dressing for the user's locale.
//
// Every meter and time display runs through here, so integers are made without the C library, and their
// groups without the platform's number formatting: from the locale record, to the same text.
#include "qn/text/qnnumber.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <type_traits>

#include "qn/platform/locale.h"
#include "qn/text/qnnumber_internal.h"
#include "qn/text/text_internal.h"

namespace {

constexpr int kUnboundedRoom = 64;  // what a caller without a size must provide
constexpr int kMaxDigits = 20;      // of 64 bits
constexpr int kMaxDecimals = 9;
constexpr int kMaxDoubleLength = 1 + kMaxDigits + 1 + kMaxDecimals;

// "00" to "99", and the powers of ten with which a number's length is told; the 0 makes 0 a digit long.
constexpr auto kPairs = [] {
  std::array<std::array<WCHAR, 2>, 100> pairs{};
  for (int i = 0; i < 100; ++i)
    pairs[i] = {static_cast<WCHAR>('0' + i / 10), static_cast<WCHAR>('0' + i % 10)};
  return pairs;
}();
constexpr auto kPowers = [] {
  std::array<ULONGLONG, kMaxDigits> powers{0, 10};
  for (size_t i = 2; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
  return powers;
}();

template <typename Unsigned>
int CountDigits(Unsigned value) {
  // 1233 / 4096 is the logarithm of 2 closely enough: the guess is right or one too small.
  const int guess = std::bit_width(static_cast<Unsigned>(value | 1)) * 1233 >> 12;
  return guess + (value >= kPowers[guess]);
}

// Writes the digits so that the last one stands in front of `end`; the place of the first.
template <typename Unsigned>
WCHAR* WriteDigits(Unsigned value, WCHAR* end) {
  while (value >= 100) {
    end -= 2;
    std::memcpy(end, &kPairs[value % 100], sizeof(kPairs[0]));
    value /= 100;
  }
  if (value < 10) {
    *--end = static_cast<WCHAR>('0' + value);
    return end;
  }
  end -= 2;
  std::memcpy(end, &kPairs[value], sizeof(kPairs[0]));
  return end;
}

// Stores as much of a text as fits. Its length, or 0 if it was cut.
int CopyCut(const WCHAR* source, int length, WCHAR* text, int size) {
  const int copied = std::min(length, size - 1);
  *std::copy_n(source, copied, text) = 0;
  return copied == length ? length : 0;
}

// The digits in the locale's groups. Exactly what QnFormatNumber makes of them, with the room that it needs.
int WriteGroups(const WCHAR* digits, int count, bool negative, WCHAR* text, int size) {
  const QNINTERNATIONALS& locale = qn::Internationals();
  const int group = locale.grouping ? static_cast<int>(locale.grouping) : count;
  const int separators = (count - 1) / group;
  const int separatorLength = static_cast<int>(locale.thousandsSeparatorLength);
  // The locale's sign gives way to "-", but needs its room on the way.
  const int signRoom = negative ? std::max(1, static_cast<int>(locale.negativeSignLength)) : 0;
  WCHAR* place = text;
  if (signRoom + count + separators * separatorLength < size) {
    if (negative) *place++ = '-';
    const WCHAR* const end = digits + count;
    for (int run = count - separators * group; digits != end; run = group) {
      for (int i = 0; i < run; ++i) *place++ = *digits++;
      if (digits == end) break;
      for (int i = 0; i < separatorLength; ++i) *place++ = locale.thousandsSeparator[i];
    }
  }
  *place = 0;
  return static_cast<int>(place - text);
}

// The rare and the long roads, apart so that the common one stays small: groups, and a text that is cut.
[[gnu::noinline]] int WriteDressed(ULONGLONG magnitude, bool negative, WCHAR* text, int size, BOOL grouped) {
  WCHAR scratch[1 + kMaxDigits + 1];
  WCHAR* const end = std::end(scratch) - 1;
  WCHAR* const digits = WriteDigits(magnitude, end);
  const int count = static_cast<int>(end - digits);
  const bool plainGroups = qn::Internationals().grouping <= 9;
  if (grouped && plainGroups) return WriteGroups(digits, count, negative, text, size);
  *end = 0;
  if (negative) digits[-1] = '-';
  const WCHAR* const first = digits - negative;
  return grouped ? QnFormatNumber(first, text, size) : CopyCut(first, count + negative, text, size);
}

template <typename Unsigned>
int WriteInteger(Unsigned magnitude, bool negative, WCHAR* text, int size, BOOL grouped) {
  if (!text || size < 1) return 0;
  const int length = CountDigits(magnitude) + negative;
  if (grouped || length >= size) return WriteDressed(magnitude, negative, text, size, grouped);
  text[length] = 0;
  *text = '-';
  WriteDigits(magnitude, text + length);
  return length;
}

template <typename Signed>
int WriteSigned(Signed value, WCHAR* text, int size, BOOL grouped) {
  using Unsigned = std::make_unsigned_t<Signed>;
  const auto bits = static_cast<Unsigned>(value);
  return WriteInteger(value < 0 ? static_cast<Unsigned>(0 - bits) : bits, value < 0, text, size, grouped);
}

// A magnitude without its decimals. No number is 0, and one beyond 64 bits the largest of them.
ULONGLONG WholePart(double magnitude) {
  if (magnitude < 0x1p63) return static_cast<ULONGLONG>(static_cast<LONGLONG>(magnitude));
  if (magnitude < 0x1p64) return static_cast<ULONGLONG>(magnitude);
  return std::isnan(magnitude) ? 0 : std::numeric_limits<ULONGLONG>::max();
}

// The room of `text` is at least kMaxDoubleLength + 1.
int WriteDouble(double value, int decimals, WCHAR* text) {
  constexpr double kUnits[] = {1e0, 1e-1, 1e-2, 1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9};
  constexpr DWORD kScales[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};
  const double magnitude = std::fabs(value) + 0.5 * kUnits[decimals];
  const ULONGLONG whole = WholePart(magnitude);
  const bool exact = magnitude < 0x1p64;
  const DWORD fraction =
      exact ? static_cast<DWORD>((magnitude - static_cast<double>(whole)) * kScales[decimals]) : 0;
  const int negative = value < 0 && (whole | fraction) != 0;
  if (negative) *text = '-';
  const int point = negative + CountDigits(whole);
  const int length = decimals ? point + 1 + decimals : point;
  if (decimals) {
    // A 1 in front keeps the zeros of the fraction; the point then takes its place.
    WriteDigits(kScales[decimals] + fraction, text + length);
    text[point] = '.';
  }
  WriteDigits(whole, text + point);
  text[length] = 0;
  return length;
}

// Whether the digits that are dressed start here. The zeros of a padded number stay in front of them.
bool StartsNumber(const WCHAR* text) {
  if (*text == '0') return text[1] == '.';
  return *text == '-' || *text == '.' || qn::IsDigit(*text);
}

UINT DecimalsOf(const WCHAR* digits) {
  while (*digits && *digits != '.') ++digits;
  UINT count = 0;
  if (*digits) {
    while (qn::IsDigit(digits[count + 1])) ++count;
  }
  return count;
}

// Puts "-" for the locale's negative sign in front of a dressed text of `length` characters, as numbers here
// carry it in every locale, one with an empty sign too. The new length; 0 with an empty text without room.
int UsePlainSign(WCHAR* text, int length, int size) {
  const QNINTERNATIONALS& locale = qn::Internationals();
  const int sign = static_cast<int>(locale.negativeSignLength);
  const bool isPlain = sign == 0 && *text == '-';
  if (isPlain || length <= sign || !std::equal(text, text + sign, locale.negativeSign)) return length;
  const int plainLength = length - sign + 1;
  if (plainLength >= size) {
    *text = 0;
    return 0;
  }
  std::memmove(text + 1, text + sign, static_cast<size_t>(plainLength) * sizeof(WCHAR));
  *text = '-';
  return plainLength;
}

struct Dress {
  bool groups;
  bool point;    // the locale's decimal separator
  int decimals;  // -1: as many as there are
};

int Format(const WCHAR* digits, WCHAR* text, int size, const Dress& dress) {
  if (!text || size < 1) return 0;
  int length = 0;
  if (digits) {
    for (; *digits && !StartsNumber(digits); ++digits) {
      if (length < size - 1) text[length++] = *digits;
    }
  }
  text[length] = 0;
  if (!digits || !*digits) return length;

  QNINTERNATIONALS& locale = qn::g_internationals;
  WCHAR none[] = W("");
  const NUMBERFMTW format{
      .NumDigits = dress.decimals == -1 ? DecimalsOf(digits) : static_cast<UINT>(dress.decimals),
      .LeadingZero = locale.leadingZero,
      .Grouping = dress.groups ? locale.grouping : 0,
      .lpDecimalSep = dress.point ? locale.decimalSeparator : none,
      .lpThousandSep = locale.thousandsSeparator,
      .NegativeOrder = 1};
  WCHAR* const rest = text + length;
  const int written = GetNumberFormatW(LOCALE_USER_DEFAULT, 0, digits, &format, rest, size - length);
  if (written < 1) {
    *rest = 0;
    return length;
  }
  return length + (*digits == '-' ? UsePlainSign(rest, written - 1, size - length) : written - 1);
}

}  // namespace

int QnFormatNumber(const WCHAR* digits, WCHAR* text, int size) {
  return Format(digits, text, size, {.groups = true, .point = false, .decimals = 0});
}

int QnFormatDecimalNumber(const WCHAR* digits, WCHAR* text, int size) {
  return Format(digits, text, size, {.groups = false, .point = true, .decimals = -1});
}

int QnFormatGroupDecimalNumber(const WCHAR* digits, WCHAR* text, int size, int decimals) {
  return Format(digits, text, size, {.groups = true, .point = true, .decimals = decimals});
}

int QnLongToText(LONG value, WCHAR* text, BOOL grouped) {
  return WriteSigned(value, text, kUnboundedRoom, grouped);
}

int QnLongToTextN(LONG value, WCHAR* text, int size, BOOL grouped) {
  return WriteSigned(value, text, size, grouped);
}

int QnDWordToText(DWORD value, WCHAR* text, BOOL grouped) {
  return WriteInteger(value, false, text, kUnboundedRoom, grouped);
}

int QnDWordToTextN(DWORD value, WCHAR* text, int size, BOOL grouped) {
  return WriteInteger(value, false, text, size, grouped);
}

int QnLongLongToText(LONGLONG value, WCHAR* text, BOOL grouped) {
  return WriteSigned(value, text, kUnboundedRoom, grouped);
}

int QnLongLongToTextN(LONGLONG value, WCHAR* text, int size, BOOL grouped) {
  return WriteSigned(value, text, size, grouped);
}

int QnDWordLongToText(ULONGLONG value, WCHAR* text, BOOL grouped) {
  return WriteInteger(value, false, text, kUnboundedRoom, grouped);
}

int QnDWordLongToTextN(ULONGLONG value, WCHAR* text, int size, BOOL grouped) {
  return WriteInteger(value, false, text, size, grouped);
}

int QnDoubleToText(WCHAR* text, double value, int decimals, BOOL grouped) {
  return QnDoubleToTextN(text, kUnboundedRoom, value, decimals, grouped);
}

int QnDoubleToTextN(WCHAR* text, int size, double value, int decimals, BOOL grouped) {
  if (!text || size < 1) return 0;
  decimals = std::clamp(decimals, 0, kMaxDecimals);
  if (!grouped && size > kMaxDoubleLength) return WriteDouble(value, decimals, text);
  WCHAR scratch[kMaxDoubleLength + 1];
  const int length = WriteDouble(value, decimals, scratch);
  return grouped ? QnFormatGroupDecimalNumber(scratch, text, size, decimals)
                 : CopyCut(scratch, length, text, size);
}
