// Typed numbers: first copied in C form, as far as they are numbers, then taken for their value.
#include <charconv>
#include <limits>
#include <string_view>

#include "qn/text/qnnumber.h"
#include "qn/text/qnnumber_internal.h"
#include "qn/text/text_internal.h"

namespace {

constexpr int kScratchRoom = 64;

// What separates and signs the digits of a typed number.
struct Marks {
  std::u16string_view sign;
  std::u16string_view thousands;
  std::u16string_view decimal;
};

Marks LocaleMarks() {
  const QNINTERNATIONALS& locale = qn::Internationals();
  return {{locale.inputNegativeSign, locale.inputNegativeSignLength},
          {locale.thousandsSeparator, locale.thousandsSeparatorLength},
          {locale.decimalSeparator, locale.decimalSeparatorLength}};
}

constexpr Marks kPlainMarks{W("-"), W(","), W(".")};

// The length of `mark` if `text` begins with it, else 0.
size_t Match(const WCHAR* text, std::u16string_view mark) {
  for (size_t i = 0; i < mark.size(); ++i) {
    if (text[i] != mark[i]) return 0;
  }
  return mark.size();
}

// A number in C form and the place where reading stopped. Skipped separators take no room; a digit or point
// that finds none ends the number.
struct Number {
  char text[kScratchRoom];
  int length = 0;
  const WCHAR* end;

  Number(const WCHAR* source, const Marks& marks) : end(source) {
    if (source) Read(qn::SkipWhiteSpace(source), marks);
    text[length] = 0;
  }

 private:
  void Read(const WCHAR* place, const Marks& marks) {
    if (const size_t sign = Match(place, marks.sign)) {
      text[length++] = '-';
      place += sign;
    }
    for (;;) {
      if (const size_t thousands = Match(place, marks.thousands)) {
        place += thousands;
        continue;
      }
      const size_t decimal = Match(place, marks.decimal);
      if ((!decimal && !qn::IsDigit(*place)) || length == kScratchRoom - 1) break;
      text[length++] = decimal ? '.' : static_cast<char>(*place);
      place += decimal ? decimal : 1;
    }
    end = place;
  }
};

// What parsing gives, and where it stopped.
template <typename Value>
struct Token {
  Value value;
  const WCHAR* end;
};

// An integer saturates at its limits, as the published conversions do.
template <typename Signed>
Token<Signed> ReadSigned(const WCHAR* text) {
  const Number number(text, LocaleMarks());
  Signed value = 0;
  const auto [stop, error] = std::from_chars(number.text, number.text + number.length, value);
  if (error == std::errc::result_out_of_range) {
    using Limits = std::numeric_limits<Signed>;
    value = number.text[0] == '-' ? Limits::min() : Limits::max();
  }
  return {value, number.end};
}

// Digits alone count, a sign makes it 0, and a number too large wraps.
template <typename Unsigned>
Token<Unsigned> ReadUnsigned(const WCHAR* text) {
  const Number number(text, LocaleMarks());
  Unsigned value = 0;
  for (const char* digit = number.text; qn::IsDigit(static_cast<WCHAR>(*digit)); ++digit) {
    value = value * 10 + static_cast<Unsigned>(*digit - '0');
  }
  return {value, number.end};
}

// The scratch text is too short for a number that a double could not hold.
Token<double> ReadDouble(const WCHAR* text, bool localeForm) {
  const Number number(text, localeForm ? LocaleMarks() : kPlainMarks);
  double value = 0;
  std::from_chars(number.text, number.text + number.length, value);
  return {value, number.end};
}

int HexDigit(WCHAR character) {
  if (qn::IsDigit(character)) return character - '0';
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return -1;
}

template <typename Unsigned>
Token<Unsigned> ReadHex(const WCHAR* text) {
  if (!text) return {0, text};
  const WCHAR* place = qn::SkipWhiteSpace(text);
  place += Match(place, W("0x"));
  Unsigned value = 0;
  for (int digit; (digit = HexDigit(*place)) >= 0; ++place) {
    value = value << 4 | static_cast<Unsigned>(digit);
  }
  return {value, place};
}

template <typename Value>
Value Give(const Token<Value>& token, const WCHAR** endOut) {
  if (endOut) *endOut = token.end;
  return token.value;
}

// A 0 with other text behind it, "0abc" like "abc", is no number: hosts rely on the default there.
template <typename Value>
Value GiveLimited(Token<Value> token, Value defaultValue, Value minimum, Value maximum,
                  const WCHAR** endOut) {
  const bool isText = token.end && *token.end && !qn::IsWhiteSpace(*token.end);
  if (token.value == 0 && isText) token.value = defaultValue;
  if (token.value < minimum) token.value = minimum;
  if (token.value > maximum) token.value = maximum;
  return Give(token, endOut);
}

}  // namespace

DWORD QnTextToDWordToken(const WCHAR* text, const WCHAR** endOut, int) {
  return Give(ReadUnsigned<DWORD>(text), endOut);
}

DWORD QnTextToDWordTokenEx(const WCHAR* text, DWORD defaultValue, DWORD minimum, DWORD maximum,
                           const WCHAR** endOut) {
  return GiveLimited(ReadUnsigned<DWORD>(text), defaultValue, minimum, maximum, endOut);
}

ULONGLONG QnTextToDWordLongToken(const WCHAR* text, const WCHAR** endOut, int) {
  return Give(ReadUnsigned<ULONGLONG>(text), endOut);
}

ULONGLONG QnTextToDWordLongTokenEx(const WCHAR* text, ULONGLONG defaultValue, ULONGLONG minimum,
                                   ULONGLONG maximum, const WCHAR** endOut) {
  return GiveLimited(ReadUnsigned<ULONGLONG>(text), defaultValue, minimum, maximum, endOut);
}

LONG QnTextToLongToken(const WCHAR* text, const WCHAR** endOut, int) {
  return Give(ReadSigned<LONG>(text), endOut);
}

LONG QnTextToLongTokenEx(const WCHAR* text, LONG defaultValue, LONG minimum, LONG maximum,
                         const WCHAR** endOut) {
  return GiveLimited(ReadSigned<LONG>(text), defaultValue, minimum, maximum, endOut);
}

LONGLONG QnTextToLongLongToken(const WCHAR* text, const WCHAR** endOut, int) {
  return Give(ReadSigned<LONGLONG>(text), endOut);
}

LONGLONG QnTextToLongLongTokenEx(const WCHAR* text, LONGLONG defaultValue, LONGLONG minimum, LONGLONG maximum,
                                 const WCHAR** endOut) {
  return GiveLimited(ReadSigned<LONGLONG>(text), defaultValue, minimum, maximum, endOut);
}

double QnTextToDoubleToken(const WCHAR* text, const WCHAR** endOut, int option) {
  return Give(ReadDouble(text, option != 0), endOut);
}

double QnTextToDoubleTokenEx(const WCHAR* text, double defaultValue, double minimum, double maximum,
                             const WCHAR** endOut) {
  return GiveLimited(ReadDouble(text, true), defaultValue, minimum, maximum, endOut);
}

DWORD QnHexToDWordToken(const WCHAR* text, const WCHAR** endOut) {
  return Give(ReadHex<DWORD>(text), endOut);
}

DWORD QnHexToDWordTokenEx(const WCHAR* text, DWORD defaultValue, DWORD minimum, DWORD maximum,
                          const WCHAR** endOut) {
  return GiveLimited(ReadHex<DWORD>(text), defaultValue, minimum, maximum, endOut);
}

ULONGLONG QnHexToDWordLongToken(const WCHAR* text, const WCHAR** endOut) {
  return Give(ReadHex<ULONGLONG>(text), endOut);
}

ULONGLONG QnHexToDWordLongTokenEx(const WCHAR* text, ULONGLONG defaultValue, ULONGLONG minimum,
                                  ULONGLONG maximum, const WCHAR** endOut) {
  return GiveLimited(ReadHex<ULONGLONG>(text), defaultValue, minimum, maximum, endOut);
}
