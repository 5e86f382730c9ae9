// Dates and times of files and of the wall clock.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

// A count of 100 ns since the start of the year 1601, in universal time unless a function says local.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
static_assert(sizeof(FILETIME) == 8);

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;      // from 1
  WORD wDayOfWeek;  // 0: Sunday
  WORD wDay;        // from 1
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};
static_assert(sizeof(SYSTEMTIME) == 16);

// The wall clock in the user's time zone (that of TZ, or of the system, at the first use).
QN_API void GetLocalTime(SYSTEMTIME* time);

// The times of an open file; each may be null. Where the file system does not keep the time of creation, that
// is the time of writing. Zero with the last error on failure.
QN_API BOOL GetFileTime(HANDLE file, FILETIME* created, FILETIME* accessed, FILETIME* written);

// Sets times of an open file; null, 0 and a count with all bits set leave one as it is. `created` is not
// used, as the time of creation cannot be set. Zero with last error 5 without GENERIC_WRITE, 6, 87 for a
// count of 2^63 or more.
QN_API BOOL SetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed,
                        const FILETIME* written);

// Universal to local time, by the offset of the time zone at that time itself. Zero with last error 87 when
// one of them is before 1601 or 2^63 or more.
QN_API BOOL FileTimeToLocalFileTime(const FILETIME* universal, FILETIME* local);

// To and from the fields of the calendar, which is the Gregorian one throughout. wDayOfWeek is not read. Zero
// with last error 87 for a count of 2^63 or more, a field out of its range, or a year before 1601 or after
// 30827.
QN_API BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* fields);
QN_API BOOL SystemTimeToFileTime(const SYSTEMTIME* fields, FILETIME* time);

// To the MS-DOS form: date (year from 1980 in 7 bits, month in 4, day in 5), time (hour in 5, minute in 6,
// half the second in 5). The time is rounded up to an even second. Zero with last error 87 outside 1980 to
// 2107, before or after rounding.
QN_API BOOL FileTimeToDosDateTime(const FILETIME* time, WORD* date, WORD* dayTime);

}  // namespace qnplatform
