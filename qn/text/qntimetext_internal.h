// What the conversions between time and text share: numbers that stay in range, the fields of a text,
// and which format is which timecode.
#pragma once

#include <cmath>
#include <limits>

#include "qn/text/qntimetext.h"

namespace qn {

constexpr LONGLONG kMinTime = std::numeric_limits<LONGLONG>::min();
constexpr LONGLONG kMaxTime = std::numeric_limits<LONGLONG>::max();

// Towards zero; what does not fit becomes the nearest value that does, NaN becomes 0.
inline LONGLONG Truncate(double value) {
  if (value >= 0x1p63) return kMaxTime;
  if (value >= -0x1p63) return static_cast<LONGLONG>(value);
  return value < 0 ? kMinTime : 0;
}

// The next integer below, but a value that is short of an integer by 1.5e-8 or less counts as that.
inline LONGLONG TolerantFloor(double value) {
  return Truncate(std::nearbyint(value - 0.499999985));
}

inline LONGLONG AddSaturated(LONGLONG first, LONGLONG second) {
  LONGLONG sum;
  return __builtin_add_overflow(first, second, &sum) ? (first < 0 ? kMinTime : kMaxTime) : sum;
}

inline LONGLONG SubtractSaturated(LONGLONG first, LONGLONG second) {
  LONGLONG difference;
  return __builtin_sub_overflow(first, second, &difference) ? (first < 0 ? kMinTime : kMaxTime) : difference;
}

inline LONGLONG MultiplySaturated(LONGLONG first, LONGLONG second) {
  LONGLONG product;
  if (!__builtin_mul_overflow(first, second, &product)) return product;
  return (first < 0) == (second < 0) ? kMaxTime : kMinTime;
}

inline bool IsTimecode(LONG type) {
  return type >= QNSMPTE_30 && type <= QNSMPTE_23976;
}

// The timecode of a position format, 0 for one that is none.
inline LONG TimecodeOf(LONG format) {
  switch (format) {
    case QNPOSFMT_SMPTE_NONDROP:
      return QNSMPTE_2997_NONDROP;
    case QNPOSFMT_SMPTE_30:
      return QNSMPTE_30;
    case QNPOSFMT_SMPTE_DROP:
      return QNSMPTE_2997_DROP;
    case QNPOSFMT_SMPTE_25:
      return QNSMPTE_25;
    case QNPOSFMT_SMPTE_24:
      return QNSMPTE_24;
    case QNPOSFMT_SMPTE_23976:
      return QNSMPTE_23976;
    default:
      return 0;
  }
}

// The fields of a text, which are its runs of digits.
struct Fields {
  LONGLONG values[4] = {};         // the last field read is the last one here, missing ones in front are 0
  int count = 0;                   // of fields read, at most that asked for
  bool isFirstBehindText = false;  // something stands in front of the first field
  const WCHAR* last = nullptr;     // digits of the last field
  int lastDigits = 0;              // their number, at most 31
  const WCHAR* end;  // behind the last field and what stands for it; the text when there is none
};

// Reads up to `maximum` fields from the left. A separator behind the last digit is one more field, of 0.
// `inPairs` cuts runs of digits into pairs from their right end.
Fields ReadFields(const WCHAR* text, int maximum, bool inPairs);

}  // namespace qn
