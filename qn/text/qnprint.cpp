// The format walker.
//
// One walker serves all forms. An unbounded form is a bounded one with room for as many characters as an int
// counts; it differs in the rule of texts alone. Nothing here allocates or takes a lock, but for the lookup
// of a token and the conversion of narrow text.

#include "qn/text/qnprint.h"

#include <climits>
#include <cmath>
#include <string_view>

#include "qn/text/cformat_internal.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnnumber_internal.h"
#include "qn/text/qnprint_internal.h"

namespace qn {
namespace {

constexpr int kMostTextOutput = 1024;  // characters of one unbounded text conversion

// Room for the longest double of 10 decimals, one of more is not dressed, with separators of 7 characters.
constexpr int kDressedRoom = 4096;
static_assert(kDressedRoom >= 2 * kLongestLiteral);  // a literal number has a room of twice its length

// The letters and signs that end a conversion spec, one bit each.
constexpr uint64_t TerminatorBits(int from) {
  uint64_t bits = 0;
  for (const char c : std::string_view("!&*,:EGXcdefgiosuxz")) {
    if (c >= from && c < from + 64) bits |= uint64_t{1} << (c - from);
  }
  return bits;
}
constexpr uint64_t kTerminators[2] = {TerminatorBits(0), TerminatorBits(64)};

bool IsTerminator(WCHAR c) {
  return c < 128 && (kTerminators[c / 64] >> (c % 64) & 1) != 0;
}

int Length(const WCHAR* text, int most) {
  int length = 0;
  while (length < most && text[length]) ++length;
  return length;
}

bool IsOneOf(std::u16string_view set, WCHAR c) {
  return set.find(c) != set.npos;
}

// Behind the characters that `accept` takes, `most` at most.
template <typename Accept>
const WCHAR* Skip(const WCHAR* text, int most, Accept accept) {
  while (most-- > 0 && *text && accept(*text)) ++text;
  return text;
}

enum class Dress { kNone, kGroup, kDecimal, kGroupDecimal };

// Writes digits in C form in the user's dress.
void WriteDressed(Dress dress, const WCHAR* digits, int room, PrintOutput* output) {
  WCHAR text[kDressedRoom];
  const int length = dress == Dress::kGroup     ? QnFormatNumber(digits, text, room)
                     : dress == Dress::kDecimal ? QnFormatDecimalNumber(digits, text, room)
                                                : QnFormatGroupDecimalNumber(digits, text, room, -1);
  output->WriteWhole(text, length);
}

// True if the dressing finds a number in the text; "0", "inf" and blanks stay as they are.
bool HasDigitsToDress(const CNumber& number) {
  const std::string_view body(number.body, static_cast<size_t>(number.bodyLength));
  return number.IsNegative() || body.find_first_of(".123456789") != body.npos;
}

void WriteNumber(const CNumber& number, Dress dress, PrintOutput* output) {
  const bool dressed = dress != Dress::kNone && HasDigitsToDress(number);
  output->Fill(' ', number.leftBlanks);
  if (!dressed) {
    output->Write(number.prefix, number.prefixLength);
    output->Fill('0', number.zeros);
    output->Write(number.body, number.bodyLength);
    output->Fill('0', number.bodyZeros);
    output->Write(number.tail, number.tailLength);
    output->Fill(' ', number.rightBlanks);
    return;
  }
  // What stands in front of the number stays; behind a minus sign the dressing drops zeros.
  WCHAR digits[512];
  int length = 0;
  if (number.IsNegative()) {
    digits[length++] = '-';
  } else {
    output->Write(number.prefix, number.prefixLength);
    output->Fill('0', number.zeros);
  }
  // Blanks behind a number are refused by the dressing, and so are more than 9 decimals: only what stands in
  // front of the number remains. Hosts rely on it.
  if (number.rightBlanks > 0) return;
  const std::string_view body(number.body, static_cast<size_t>(number.bodyLength));
  const size_t point = body.find('.');
  if (point != body.npos && body.size() - point > 10) return;
  for (const char c : body) digits[length++] = static_cast<WCHAR>(c);
  digits[length] = 0;
  WriteDressed(dress, digits, kDressedRoom, output);
}

// 10 to the power `exponent`, exact as far as the table goes.
double PowerOfTen(int exponent) {
  static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  return exponent <= 15 ? kPowers[exponent] : std::pow(10.0, exponent);
}

// The arguments of a call. Each integer and pointer takes one 64-bit slot; what a narrower one leaves in the
// upper half is not looked at.
class Arguments {
 public:
  explicit Arguments(va_list list) { va_copy(list_, list); }
  ~Arguments() { va_end(list_); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  uint64_t Integer() { return va_arg(list_, uint64_t); }
  double Double() { return va_arg(list_, double); }

 private:
  va_list list_;
};

class Walker {
 public:
  Walker(const WCHAR* format, va_list arguments, bool bounded, PrintOutput* output)
      : at_(format), arguments_(arguments), bounded_(bounded), output_(*output) {}

  // With no room left the walk goes on until something does not fit: what is left may print nothing.
  void Walk() {
    while (*at_) {
      const bool full = output_.Room() == 0;
      if (full && output_.Status() != S_OK) return;
      Step();
      if (full && output_.Status() != S_OK) output_.SetStatus(QN_E_BUFFER_TOO_SMALL);
    }
  }

 private:
  void Step();
  void Token();
  void LiteralNumber();
  void Conversion(const WCHAR* spec, const WCHAR* end, bool dressed);
  void BareInteger(WCHAR conversion, bool dressed);
  void Integer(const WCHAR* spec, const WCHAR* end, WCHAR conversion, Dress dress, uint64_t value);
  void Double(const WCHAR* spec, const WCHAR* end, WCHAR conversion, bool dressed);
  void FixedPoint(const WCHAR* spec, const WCHAR* end, bool dressed);
  void Text(const WCHAR* spec, const WCHAR* end, WCHAR conversion);
  template <typename Content>
  void PaddedText(const CSpec& spec, int length, Content writeContent);
  void WideText(const CSpec& spec, const WCHAR* text, int length);
  void NarrowText(const CSpec& spec, const char* bytes, int count);
  void Separator(int index);
  void ChosenSeparator(bool music);

  const WCHAR* at_;
  Arguments arguments_;
  const bool bounded_;
  PrintOutput& output_;
};

void Walker::Step() {
  const WCHAR lead = *at_;
  if (lead != '$' && lead != '%') {
    const WCHAR* const text = at_;
    while (*at_ && *at_ != '$' && *at_ != '%') ++at_;
    output_.Write(text, static_cast<int>(std::min<ptrdiff_t>(at_ - text, INT_MAX)));
    return;
  }
  ++at_;
  if (*at_ == '%' || (lead == '$' && *at_ == '$')) {
    output_.Put(*at_++);
    return;
  }
  if (lead == '$' && *at_ == '(') {
    ++at_;
    Token();
    return;
  }
  const WCHAR* const spec = at_;
  while (*at_ && at_ - spec < kLongestSpec - 1) {
    if (IsTerminator(*at_++)) {
      Conversion(spec, at_ - 1, lead == '$');
      return;
    }
  }
  output_.Put('%');
  output_.Write(spec, static_cast<int>(at_ - spec));
}

// Behind "$(".
void Walker::Token() {
  if (IsDigit(*at_) || *at_ == '-' || *at_ == '.') {
    LiteralNumber();
    return;
  }
  WCHAR name[kLongestTokenName + 1];
  int length = 0;
  while (*at_ && *at_ != ')' && length < kLongestTokenName) name[length++] = *at_++;
  name[length] = 0;
  const bool closed = *at_ == ')';
  at_ += closed;
  if (closed && WriteTokenValue(name, &output_)) return;
  output_.Write(W("$("), 2);
  output_.Write(name, length);
  if (closed) output_.Put(')');
}

void Walker::LiteralNumber() {
  WCHAR digits[kLongestLiteral + 1];
  int length = 0;
  if (*at_ == '-') digits[length++] = *at_++;
  while (length < kLongestLiteral && (IsDigit(*at_) || *at_ == ',' || *at_ == '.')) digits[length++] = *at_++;
  digits[length] = 0;
  if (*at_ == ')') {
    ++at_;
    WriteDressed(Dress::kGroupDecimal, digits, 2 * length, &output_);
  } else {
    output_.Write(W("$("), 2);
    output_.Write(digits, length);
  }
}

// One conversion; `end` is its letter, at_ behind it.
void Walker::Conversion(const WCHAR* spec, const WCHAR* end, bool dressed) {
  const WCHAR conversion = *end;
  switch (conversion) {
    case 'd':
    case 'i':
    case 'u':
      if (spec == end) {
        BareInteger(conversion, dressed);
      } else {
        Integer(spec, end, conversion, dressed ? Dress::kGroup : Dress::kNone, arguments_.Integer());
      }
      break;
    case 'x':
    case 'X':
    case 'o':
      Integer(spec, end, conversion, Dress::kNone, arguments_.Integer());
      break;
    case 'z':
      FixedPoint(spec, end, dressed);
      break;
    case 's':
    case 'c':
      Text(spec, end, conversion);
      break;
    case '*':
      Separator(24);
      break;
    case ',':
      Separator(40);
      break;
    case ':':
      Separator(60);
      break;
    case '!':
    case '&':
      ChosenSeparator(conversion == '&');
      break;
    default:
      Double(spec, end, conversion, dressed);
  }
}

void Walker::BareInteger(WCHAR conversion, bool dressed) {
  const auto value = static_cast<DWORD>(arguments_.Integer());
  // INT_MAX stands for no bound at all.
  const int size = std::min(output_.Room(), INT_MAX - 1) + 1;
  const int length = conversion == 'u' ? QnDWordToTextN(value, output_.At(), size, dressed)
                                       : QnLongToTextN(static_cast<LONG>(value), output_.At(), size, dressed);
  if (length == 0) output_.SetFull();
  output_.Advance(length);
}

void Walker::Integer(const WCHAR* spec, const WCHAR* end, WCHAR conversion, Dress dress, uint64_t value) {
  CSpec parts;
  CNumber number;
  if (!ReadCSpec(spec, end, &parts) || !PrintCInteger(parts, conversion, value, &number)) return;
  WriteNumber(number, dress, &output_);
}

void Walker::Double(const WCHAR* spec, const WCHAR* end, WCHAR conversion, bool dressed) {
  const double value = arguments_.Double();
  CSpec parts;
  CNumber number;
  if (!ReadCSpec(spec, end, &parts) || !PrintCDouble(parts, conversion, value, &number)) return;
  const bool exponent = conversion == 'e' || conversion == 'E' || number.tailLength > 0;
  const Dress dress = !dressed || exponent ? Dress::kNone
                      : conversion == 'f'  ? Dress::kGroupDecimal
                                           : Dress::kDecimal;
  WriteNumber(number, dress, &output_);
}

// ".Nz", else as "d".
void Walker::FixedPoint(const WCHAR* spec, const WCHAR* end, bool dressed) {
  const auto value = static_cast<LONG>(arguments_.Integer());
  CSpec parts;
  if (*spec == '.' && std::all_of(spec + 1, end, IsDigit) && ReadCSpec(spec, end, &parts) &&
      parts.precision > 0) {
    CNumber number;
    if (!PrintCDouble(parts, 'f', value / PowerOfTen(parts.precision), &number)) return;
    // The locale's decimal separator appears for "%" too: hosts rely on it.
    WriteNumber(number, dressed ? Dress::kGroupDecimal : Dress::kDecimal, &output_);
    return;
  }
  Integer(spec, end, 'd', dressed ? Dress::kGroup : Dress::kNone, static_cast<uint64_t>(int64_t{value}));
}

// An argument is used as a pointer here alone, behind a spec that is valid for texts.
void Walker::Text(const WCHAR* spec, const WCHAR* end, WCHAR conversion) {
  const uint64_t argument = arguments_.Integer();
  CSpec parts;
  if (!ReadCSpec(spec, end, &parts)) return;
  const bool narrow = parts.size == CSize::kShort;
  if (!narrow && parts.size != CSize::kNone && parts.size != CSize::kLong && parts.size != CSize::kWide)
    return;
  if (conversion == 'c') {
    const auto wide = static_cast<WCHAR>(argument);
    const char byte = static_cast<char>(argument);
    // A character of value 0 prints nothing: it would end the text.
    if (narrow) {
      NarrowText(parts, &byte, byte != 0);
    } else {
      WideText(parts, &wide, wide != 0);
    }
    return;
  }
  const int most = parts.precision < 0 ? INT_MAX : parts.precision;
  if (argument == 0) {
    WideText(parts, W("(null)"), std::min(most, 6));
  } else if (narrow) {
    const char* const bytes = reinterpret_cast<const char*>(argument);
    int count = 0;
    while (count < most && bytes[count]) ++count;
    NarrowText(parts, bytes, count);
  } else {
    const WCHAR* const text = reinterpret_cast<const WCHAR*>(argument);
    WideText(parts, text, Length(text, most));
  }
}

// Pads a text of `length` characters to the width; `writeContent(most)` writes the first `most` of them.
template <typename Content>
void Walker::PaddedText(const CSpec& spec, int length, Content writeContent) {
  const int missing = std::max(0, spec.width - length);
  int room = output_.Room();
  if (!bounded_) room = std::min(room, kMostTextOutput);
  const bool cut = room - missing < length;
  const int blanks = std::min(room, missing);
  if (!spec.left) output_.Fill(spec.zero ? '0' : ' ', blanks);
  const int most = std::min(length, spec.left ? room : room - blanks);
  writeContent(most);
  if (spec.left) output_.Fill(' ', std::min(blanks, room - most));
  if (!cut) return;
  if (bounded_) {
    output_.SetStatus(kTextTooLong);
  } else if (output_.Room() == 0) {
    output_.SetFull();
  }
}

void Walker::WideText(const CSpec& spec, const WCHAR* text, int length) {
  PaddedText(spec, length, [&](int most) { output_.Write(text, most); });
}

// Bytes of the ANSI code page.
void Walker::NarrowText(const CSpec& spec, const char* bytes, int count) {
  const int length = count == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, bytes, count, nullptr, 0);
  PaddedText(spec, length, [&](int most) {
    // A text that is cut is converted as far as there is room, which may be short of a pair's second half.
    std::fill_n(output_.At(), most, W(' '));
    if (most > 0) MultiByteToWideChar(CP_ACP, 0, bytes, count, output_.At(), most);
    output_.Advance(most);
  });
}

void Walker::Separator(int index) {
  int length = 0;
  const WCHAR* const text = InternationalText(index, &length);
  output_.Write(text, length);
}

// The character behind the sign chooses, and is taken if there is a text for it.
void Walker::ChosenSeparator(bool music) {
  const WCHAR* const choice = music ? W(":.") : W(":.,");
  for (int i = 0; choice[i]; ++i) {
    if (*at_ != choice[i]) continue;
    const int before = output_.Length();
    Separator((music ? 120 : 100) + i);
    if (output_.Length() > before) ++at_;
    return;
  }
}

}  // namespace

// Walks as the walker does, with its limits.
bool FormatTakes(const WCHAR* format, int integers, int doubles, int texts) {
  const auto isSpec = [](WCHAR c) { return !IsTerminator(c); };
  const auto isName = [](WCHAR c) { return c != ')'; };
  const auto isNumber = [](WCHAR c) { return IsDigit(c) || IsOneOf(W(",."), c); };
  while (*format) {
    const WCHAR lead = *format++;
    if (lead != '%' && lead != '$') continue;
    if (*format == '%' || *format == lead) {
      ++format;
    } else if (lead == '$' && *format == '(') {
      ++format;
      if (IsDigit(*format) || *format == '-' || *format == '.') {
        format = Skip(format + 1, kLongestLiteral - 1, isNumber);
      } else {
        format = Skip(format, kLongestTokenName, isName);
      }
    } else {
      const WCHAR* const spec = format;
      format = Skip(format, kLongestSpec - 1, isSpec);
      if (format - spec == kLongestSpec - 1) continue;  // without an end, copied as it stands
      CSpec parts;
      if (*format == 's' && ReadCSpec(spec, format, &parts) && parts.size == CSize::kShort) return false;
      texts -= *format == 's';
      integers -= IsOneOf(W("Xcdiouxz"), *format);
      doubles -= IsOneOf(W("EGefg"), *format);
      if (*format) ++format;
    }
  }
  return integers >= 0 && doubles >= 0 && texts >= 0;
}

int PrintWithin(WCHAR* buffer, int size, const WCHAR* format, va_list arguments) {
  if (!buffer) return 0;
  PrintOutput output(buffer, size - 1);
  if (format) Walker(format, arguments, false, &output).Walk();
  *output.At() = 0;
  return output.Length();
}

}  // namespace qn

using namespace qn;

int QnVPrintF(WCHAR* buffer, const WCHAR* format, va_list arguments) {
  return PrintWithin(buffer, INT_MAX, format, arguments);
}

int QnPrintF(WCHAR* buffer, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = QnVPrintF(buffer, format, arguments);
  va_end(arguments);
  return length;
}

HRESULT QnNVPrintF(WCHAR* buffer, int size, int* lengthOut, const WCHAR* format, va_list arguments) {
  if (!buffer || size <= 0) return E_INVALIDARG;
  PrintOutput output(buffer, size - 1);
  if (format) {
    Walker(format, arguments, true, &output).Walk();
  } else {
    output.SetStatus(E_INVALIDARG);
  }
  *output.At() = 0;
  if (lengthOut) *lengthOut = output.Length();
  return output.Status();
}

HRESULT QnCchPrintF(WCHAR* buffer, int size, int* lengthOut, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const HRESULT status = QnNVPrintF(buffer, size, lengthOut, format, arguments);
  va_end(arguments);
  return status;
}

int QnComposeStr(WCHAR* buffer, int size, const WCHAR* format, ...) {
  if (!buffer || size <= 0) return 0;
  *buffer = 0;
  if (!format) return 0;
  va_list arguments;
  va_start(arguments, format);
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_STRING, format, 0, 0, buffer, static_cast<DWORD>(size), &arguments);
  va_end(arguments);
  return static_cast<int>(length);
}
