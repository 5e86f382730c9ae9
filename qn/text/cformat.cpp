#include "qn/text/cformat_internal.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>

#include "qn/kernel/qncpu_internal.h"
#include "qn/text/qnnumber_internal.h"

namespace qn {
namespace {

// From here on every decimal of a double is 0, in fixed and in scientific form.
constexpr int kMostDecimals = 1100;

// Reads digits, none being 0; false for a number that an int cannot hold.
bool ReadCount(const WCHAR*& at, const WCHAR* end, int* count) {
  int64_t value = 0;
  for (; at != end && IsDigit(*at); ++at) {
    value = value * 10 + (*at - '0');
    if (value > INT_MAX) return false;
  }
  *count = static_cast<int>(value);
  return true;
}

bool* FlagOf(CSpec* spec, WCHAR c) {
  switch (c) {
    case '-':
      return &spec->left;
    case '+':
      return &spec->plus;
    case ' ':
      return &spec->blank;
    case '#':
      return &spec->alternate;
    case '0':
      return &spec->zero;
    default:
      return nullptr;
  }
}

struct SizeName {
  const WCHAR* name;
  CSize size;
};
constexpr SizeName kSizeNames[] = {
    {W("I64"), CSize::kInt64}, {W("I32"), CSize::kInt32},   {W("I"), CSize::kInt64},
    {W("ll"), CSize::kInt64},  {W("l"), CSize::kLong},      {W("hh"), CSize::kByte},
    {W("h"), CSize::kShort},   {W("j"), CSize::kInt64},     {W("t"), CSize::kInt64},
    {W("w"), CSize::kWide},    {W("L"), CSize::kLongDouble}};

bool ReadSize(const WCHAR* at, const WCHAR* end, CSize* size) {
  if (at == end) return true;
  for (const SizeName& row : kSizeNames) {
    const WCHAR* name = row.name;
    const WCHAR* text = at;
    while (*name && text != end && *text == *name) ++text, ++name;
    if (*name || text != end) continue;
    *size = row.size;
    return true;
  }
  return false;
}

// Bits of an integer argument; 0 for a size that is not an integer's.
int IntegerBits(CSize size) {
  switch (size) {
    case CSize::kByte:
      return 8;
    case CSize::kShort:
      return 16;
    case CSize::kNone:
    case CSize::kLong:
    case CSize::kInt32:
      return 32;
    case CSize::kInt64:
      return 64;
    default:
      return 0;
  }
}

void SetSign(const CSpec& spec, bool negative, CNumber* number) {
  number->prefix[0] = negative ? '-' : spec.plus ? '+' : ' ';
  number->prefixLength = negative || spec.plus || spec.blank;
}

// Fills up to the width.
bool Pad(const CSpec& spec, bool withZeros, CNumber* number) {
  const int64_t length = int64_t{number->prefixLength} + number->zeros + number->bodyLength +
                         number->bodyZeros + number->tailLength;
  if (length > INT_MAX) return false;
  const int missing = std::max(0, spec.width - static_cast<int>(length));
  if (spec.left) {
    number->rightBlanks = missing;
  } else if (withZeros) {
    number->zeros += missing;
  } else {
    number->leftBlanks = missing;
  }
  return true;
}

void Append(CNumber* number, char c) {
  number->body[number->bodyLength++] = c;
}

void PrintFixed(double magnitude, int precision, bool alternate, CNumber* number) {
  const int decimals = std::min(precision, kMostDecimals);
  const auto end =
      std::to_chars(number->body, std::end(number->body), magnitude, std::chars_format::fixed, decimals);
  number->bodyLength = static_cast<int>(end.ptr - number->body);
  number->bodyZeros = precision - decimals;
  if (alternate && precision == 0) Append(number, '.');
}

// The result is the exponent.
int PrintScientific(double magnitude, int precision, bool alternate, CNumber* number) {
  const int decimals = std::min(precision, kMostDecimals);
  const char* const end =
      std::to_chars(number->body, std::end(number->body), magnitude, std::chars_format::scientific, decimals)
          .ptr;
  const char* const tail = std::find(static_cast<const char*>(number->body), end, 'e');
  number->bodyLength = static_cast<int>(tail - number->body);
  number->bodyZeros = precision - decimals;
  number->tailLength = static_cast<int>(end - tail);
  std::memcpy(number->tail, tail, static_cast<size_t>(number->tailLength));
  int exponent = 0;
  std::from_chars(tail + (tail[1] == '+' ? 2 : 1), end, exponent);
  if (alternate && precision == 0) Append(number, '.');
  return exponent;
}

void DropTrailingZeros(CNumber* number) {
  number->bodyZeros = 0;
  if (!std::memchr(number->body, '.', static_cast<size_t>(number->bodyLength))) return;
  while (number->body[number->bodyLength - 1] == '0') --number->bodyLength;
  if (number->body[number->bodyLength - 1] == '.') --number->bodyLength;
}

void PrintGeneral(double magnitude, int precision, bool alternate, CNumber* number) {
  precision = std::max(precision, 1);
  const int exponent = PrintScientific(magnitude, precision - 1, alternate, number);
  if (exponent >= -4 && exponent < precision) {
    number->tailLength = 0;
    // Beyond INT_MAX the length is refused anyway.
    const int decimals = static_cast<int>(std::min(int64_t{precision} - 1 - exponent, int64_t{INT_MAX}));
    PrintFixed(magnitude, decimals, alternate, number);
  }
  if (!alternate) DropTrailingZeros(number);
}

}  // namespace

bool ReadCSpec(const WCHAR* text, const WCHAR* end, CSpec* spec) {
  const WCHAR* at = text;
  for (; at != end; ++at) {
    bool* const flag = FlagOf(spec, *at);
    if (!flag) break;
    *flag = true;
  }
  if (!ReadCount(at, end, &spec->width)) return false;
  if (at != end && *at == '.' && !ReadCount(++at, end, &spec->precision)) return false;
  return ReadSize(at, end, &spec->size);
}

bool PrintCInteger(const CSpec& spec, WCHAR conversion, uint64_t value, CNumber* number) {
  const int bits = IntegerBits(spec.size);
  if (bits == 0) return false;
  value <<= 64 - bits;
  if (conversion == 'd' || conversion == 'i') {
    const bool negative = static_cast<int64_t>(value) < 0;
    value =
        negative ? -static_cast<uint64_t>(static_cast<int64_t>(value) >> (64 - bits)) : value >> (64 - bits);
    SetSign(spec, negative, number);
  } else {
    value >>= 64 - bits;
  }

  const bool hexadecimal = conversion == 'x' || conversion == 'X';
  if (value != 0 || spec.precision != 0) {
    const int base = hexadecimal ? 16 : conversion == 'o' ? 8 : 10;
    char* const end = std::to_chars(number->body, std::end(number->body), value, base).ptr;
    number->bodyLength = static_cast<int>(end - number->body);
    if (conversion == 'X') {
      std::transform(number->body, end, number->body,
                     [](char c) { return c >= 'a' ? char(c - 'a' + 'A') : c; });
    }
  }
  number->zeros = std::max(0, spec.precision - number->bodyLength);
  if (spec.alternate && hexadecimal && value != 0) {
    number->prefix[0] = '0';
    number->prefix[1] = static_cast<char>(conversion);
    number->prefixLength = 2;
  }
  const bool startsWithZero = number->zeros > 0 || (number->bodyLength > 0 && number->body[0] == '0');
  if (spec.alternate && conversion == 'o' && !startsWithZero) number->zeros = 1;
  return Pad(spec, spec.zero && spec.precision < 0, number);
}

bool PrintCDouble(const CSpec& spec, WCHAR conversion, double value, CNumber* number) {
  if (spec.size != CSize::kNone && spec.size != CSize::kLong && spec.size != CSize::kLongDouble) return false;
  const DenormalsShown shown;
  const bool upper = conversion == 'E' || conversion == 'G';
  const int precision = spec.precision < 0 ? 6 : spec.precision;
  const double magnitude = std::fabs(value);
  SetSign(spec, std::signbit(value), number);
  if (!std::isfinite(value)) {
    const char* const name = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
    std::memcpy(number->body, name, 3);
    number->bodyLength = 3;
    return Pad(spec, false, number);
  }
  switch (conversion) {
    case 'f':
      PrintFixed(magnitude, precision, spec.alternate, number);
      break;
    case 'e':
    case 'E':
      PrintScientific(magnitude, precision, spec.alternate, number);
      break;
    default:
      PrintGeneral(magnitude, precision, spec.alternate, number);
  }
  if (upper && number->tailLength > 0) number->tail[0] = 'E';
  return Pad(spec, spec.zero, number);
}

}  // namespace qn
