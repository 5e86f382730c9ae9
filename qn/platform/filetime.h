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

// The wall clock in the user's time zone.
QN_API void GetLocalTime(SYSTEMTIME* time);

// The times of an open file; each may be null. Zero on failure.
QN_API BOOL GetFileTime(HANDLE file, FILETIME* created, FILETIME* accessed, FILETIME* written);

// Sets times of an open file; null leaves one as it is, the time of creation cannot be set. Zero on failure.
QN_API BOOL SetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed,
                        const FILETIME* written);

// Universal to local time, by the offset of the time zone at that time itself.
QN_API BOOL FileTimeToLocalFileTime(const FILETIME* universal, FILETIME* local);

// To and from the fields of the calendar; the year counts from 1601. Zero with last error 87 for what is
// out of range.
QN_API BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* fields);
QN_API BOOL SystemTimeToFileTime(const SYSTEMTIME* fields, FILETIME* time);

// To the MS-DOS form: date (year from 1980 in 7 bits, month in 4, day in 5), time (hour in 5, minute in 6,
// second halved, rounded up to the even one, in 5). Zero with last error 87 outside 1980 to 2107.
QN_API BOOL FileTimeToDosDateTime(const FILETIME* time, WORD* date, WORD* dayTime);

}  // namespace qnplatform
