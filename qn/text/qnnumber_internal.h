// Which characters are digits and white space in texts that are numbers or name them.
#pragma once

#include "qn/platform/types.h"

namespace qn {

// White space of UTF-16, the no-break spaces included, whatever the C library's locale says.
constexpr bool IsWhiteSpace(WCHAR character) {
  if (character < 0x80) return character == ' ' || (character >= '\t' && character <= '\r');
  return character == 0x85 || character == 0xA0 || character == 0x1680 ||
         (character >= 0x2000 && character <= 0x200A) || character == 0x2028 || character == 0x2029 ||
         character == 0x202F || character == 0x205F || character == 0x3000;
}

constexpr bool IsDigit(WCHAR character) {
  return character >= '0' && character <= '9';
}

inline const WCHAR* SkipWhiteSpace(const WCHAR* text) {
  while (IsWhiteSpace(*text)) ++text;
  return text;
}

}  // namespace qn
