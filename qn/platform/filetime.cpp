#include "qn/platform/filetime.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <limits>

#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"

namespace {

using qn::FailWith;
using qn::FailWithErrno;

constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr int64_t kTicksPerMillisecond = 10'000;
constexpr int64_t kTicksPerDay = 86'400 * kTicksPerSecond;
constexpr int64_t kSecondsTo1970 = 11'644'473'600;  // from 1601
constexpr int64_t kDaysTo1970 = kSecondsTo1970 / 86'400;
constexpr int64_t kMostTicks = std::numeric_limits<int64_t>::max();

constexpr uint64_t Ticks(const FILETIME& time) {
  return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

constexpr FILETIME FromTicks(int64_t ticks) {
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// The ticks of a time that calendars take; false with last error 87 for one beyond the year 30828.
bool ToTicks(const FILETIME* time, int64_t* ticks) {
  if (!time || Ticks(*time) > kMostTicks) return FailWith(ERROR_INVALID_PARAMETER);
  *ticks = static_cast<int64_t>(Ticks(*time));
  return true;
}

bool ToLocal(int64_t ticks, FILETIME* local) {
  const time_t seconds = ticks / kTicksPerSecond - kSecondsTo1970;
  struct tm fields;
  if (!localtime_r(&seconds, &fields)) return FailWith(ERROR_INVALID_PARAMETER);
  int64_t shifted;
  const bool overflow = __builtin_add_overflow(ticks, fields.tm_gmtoff * kTicksPerSecond, &shifted);
  if (overflow || shifted < 0) return FailWith(ERROR_INVALID_PARAMETER);
  *local = FromTicks(shifted);
  return true;
}

// A time for futimens. None, 0 and the count with all bits set leave the file's own as it is.
bool ToTimespec(const FILETIME* time, timespec* result) {
  *result = {0, UTIME_OMIT};
  if (!time || Ticks(*time) == 0 || Ticks(*time) == std::numeric_limits<uint64_t>::max()) return true;
  int64_t ticks = 0;
  if (!ToTicks(time, &ticks)) return false;
  *result = {ticks / kTicksPerSecond - kSecondsTo1970, ticks % kTicksPerSecond * 100};
  return true;
}

}  // namespace

namespace qn {

FILETIME FileTimeFromUnix(int64_t seconds, int64_t nanoseconds) {
  int64_t ticks = 0;
  if (__builtin_add_overflow(seconds, kSecondsTo1970, &ticks)) return FromTicks(kMostTicks);
  if (ticks < 0) return FromTicks(0);
  if (ticks >= kMostTicks / kTicksPerSecond) return FromTicks(kMostTicks);
  return FromTicks(ticks * kTicksPerSecond + nanoseconds / 100);
}

}  // namespace qn

inline namespace qnplatform {

void GetLocalTime(SYSTEMTIME* time) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  const FILETIME universal = qn::FileTimeFromUnix(now.tv_sec, now.tv_nsec);
  FILETIME local;
  FileTimeToSystemTime(FileTimeToLocalFileTime(&universal, &local) ? &local : &universal, time);
}

BOOL GetFileTime(HANDLE handle, FILETIME* created, FILETIME* accessed, FILETIME* written) {
  const auto file = qn::FindFile(handle);
  if (!file) return FALSE;
  qn::FileDescription description;
  if (!qn::DescribeFile(file->Descriptor(), "", &description)) return FailWithErrno();
  if (created) *created = description.created;
  if (accessed) *accessed = description.accessed;
  if (written) *written = description.written;
  return TRUE;
}

BOOL SetFileTime(HANDLE handle, const FILETIME*, const FILETIME* accessed, const FILETIME* written) {
  const auto file = qn::FindFile(handle);
  if (!file) return FALSE;
  if (!(file->access & GENERIC_WRITE)) return FailWith(ERROR_ACCESS_DENIED);
  timespec times[2];
  if (!ToTimespec(accessed, &times[0]) || !ToTimespec(written, &times[1])) return FALSE;
  return futimens(file->Descriptor(), times) == 0 ? TRUE : FailWithErrno();
}

BOOL FileTimeToLocalFileTime(const FILETIME* universal, FILETIME* local) {
  int64_t ticks = 0;
  return ToTicks(universal, &ticks) && ToLocal(ticks, local);
}

BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* fields) {
  int64_t ticks = 0;
  if (!ToTicks(time, &ticks)) return FALSE;
  const std::chrono::sys_days day{std::chrono::days{ticks / kTicksPerDay - kDaysTo1970}};
  const std::chrono::year_month_day date{day};
  const int64_t milliseconds = ticks % kTicksPerDay / kTicksPerMillisecond;
  fields->wYear = static_cast<WORD>(static_cast<int>(date.year()));
  fields->wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
  fields->wDayOfWeek = static_cast<WORD>(std::chrono::weekday{day}.c_encoding());
  fields->wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
  fields->wHour = static_cast<WORD>(milliseconds / 3'600'000);
  fields->wMinute = static_cast<WORD>(milliseconds / 60'000 % 60);
  fields->wSecond = static_cast<WORD>(milliseconds / 1000 % 60);
  fields->wMilliseconds = static_cast<WORD>(milliseconds % 1000);
  return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* fields, FILETIME* time) {
  constexpr WORD kFirstYear = 1601;
  constexpr WORD kLastYear = 30827;  // the last whole one that a count has
  const std::chrono::year_month_day date{std::chrono::year{fields->wYear}, std::chrono::month{fields->wMonth},
                                         std::chrono::day{fields->wDay}};
  const bool dateValid = fields->wYear >= kFirstYear && fields->wYear <= kLastYear && fields->wMonth <= 12 &&
                         fields->wDay <= 31 && date.ok();
  const bool timeValid = fields->wHour < 24 && fields->wMinute < 60 && fields->wSecond < 60;
  if (!dateValid || !timeValid || fields->wMilliseconds >= 1000) return FailWith(ERROR_INVALID_PARAMETER);
  const int64_t days = std::chrono::sys_days{date}.time_since_epoch().count() + kDaysTo1970;
  const int64_t seconds = fields->wHour * 3600 + fields->wMinute * 60 + fields->wSecond;
  *time = FromTicks(days * kTicksPerDay + seconds * kTicksPerSecond +
                    fields->wMilliseconds * kTicksPerMillisecond);
  return TRUE;
}

BOOL FileTimeToDosDateTime(const FILETIME* time, WORD* date, WORD* dayTime) {
  constexpr int64_t kStep = 2 * kTicksPerSecond;
  constexpr int kFirstYear = 1980;
  constexpr int kLastYear = 2107;
  SYSTEMTIME exact;
  if (!FileTimeToSystemTime(time, &exact)) return FALSE;
  // The year is tested first, so that rounding up cannot overflow.
  if (exact.wYear < kFirstYear || exact.wYear > kLastYear) return FailWith(ERROR_INVALID_PARAMETER);
  const FILETIME rounded = FromTicks(static_cast<int64_t>(Ticks(*time)) + kStep - 1);
  SYSTEMTIME fields;
  FileTimeToSystemTime(&rounded, &fields);
  if (fields.wYear > kLastYear) return FailWith(ERROR_INVALID_PARAMETER);
  *date = static_cast<WORD>((fields.wYear - kFirstYear) << 9 | fields.wMonth << 5 | fields.wDay);
  *dayTime = static_cast<WORD>(fields.wHour << 11 | fields.wMinute << 5 | fields.wSecond / 2);
  return TRUE;
}

}  // namespace qnplatform
