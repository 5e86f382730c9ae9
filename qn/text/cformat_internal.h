// One number conversion of C's printf, without its locale and without limits on padding.
//
// The result comes in pieces: padding is a count, not characters. So a width of two thousand million costs
// nothing until somebody has the room for it.
#pragma once

#include "qn/platform/types.h"

namespace qn {

enum class CSize : BYTE {
  kNone,
  kByte,        // hh
  kShort,       // h
  kLong,        // l: 32 bits in an integer, wide in a text
  kInt32,       // I32
  kInt64,       // I64, I, ll, j, t
  kWide,        // w
  kLongDouble,  // L: a double
};

// What stands between the lead of a conversion and its letter.
struct CSpec {
  bool left = false;       // -
  bool plus = false;       // +
  bool blank = false;      // a blank
  bool alternate = false;  // #
  bool zero = false;       // 0
  CSize size = CSize::kNone;
  int width = 0;
  int precision = -1;  // -1: none given
};

// Reads a spec; false if it is none of C's, or its width or precision leaves an int.
bool ReadCSpec(const WCHAR* text, const WCHAR* end, CSpec* spec);

// A printed number: blanks, prefix, zeros, body, more zeros, tail, blanks.
struct CNumber {
  int leftBlanks = 0;
  int prefixLength = 0;  // a sign, or "0x"
  int zeros = 0;
  int bodyLength = 0;
  int bodyZeros = 0;   // decimals beyond those that a double can have
  int tailLength = 0;  // an exponent
  int rightBlanks = 0;
  char prefix[2];
  char tail[8];
  char body[1536];  // the longest: 309 digits, a point, kMostDecimals decimals

  bool IsNegative() const { return prefixLength == 1 && prefix[0] == '-'; }
};

// `conversion` is one of d i u x X o; of `value` the bits that the size names count. False for a size that is
// not an integer's and for a result that is longer than an int tells.
bool PrintCInteger(const CSpec& spec, WCHAR conversion, uint64_t value, CNumber* number);

// `conversion` is one of e E f g G. The digits are those of the exact value, rounded half to even. False as
// above.
bool PrintCDouble(const CSpec& spec, WCHAR conversion, double value, CNumber* number);

}  // namespace qn
