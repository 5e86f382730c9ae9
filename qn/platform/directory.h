// Directories: finding entries, making, removing, moving and copying, and what a path stands for.
//
// Symbolic links: an entry that is one carries FILE_ATTRIBUTE_REPARSE_POINT beside the attributes of what it
// leads to. Removing and moving act on the link itself.
#pragma once

#include "qn/platform/file.h"
#include "qn/platform/filetime.h"
#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr DWORD MAX_PATH = 260;

constexpr DWORD FILE_ATTRIBUTE_DEVICE = 0x00000040;
constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x00000400;

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  WCHAR cFileName[MAX_PATH];
  WCHAR cAlternateFileName[14];  // always empty
};
static_assert(sizeof(WIN32_FIND_DATAW) == 592);

// Walks the entries of a directory, "." and ".." first. The last part of `pattern` is a name or a pattern
// with
// `*` and `?`, compared without regard to case; "*" and "*.*" match everything. A name of more than 259
// characters of UTF-16 is left out. The handle, to be closed with FindClose, or INVALID_HANDLE_VALUE with
// last error 2 (nothing matches), 3 (no such directory), or another.
QN_API HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data);

// The next entry; zero with last error 18 behind the last one.
QN_API BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data);
QN_API BOOL FindClose(HANDLE find);

// Makes one directory. Zero with last error 183 (there already), 3 (its parent is missing), 5 or another.
// `security` is not used.
QN_API BOOL CreateDirectoryW(const WCHAR* path, void* security);

// Removes an empty directory, or a symbolic link to one. Zero with last error 145 when it is not empty, 267
// when it is no directory, 5 when it is read-only.
QN_API BOOL RemoveDirectoryW(const WCHAR* path);

// Renames a file or directory within a file system. Zero with last error 17 across file systems, 183 when the
// target is there, 32 when a handle is open that does not share deletion.
QN_API BOOL MoveFileW(const WCHAR* from, const WCHAR* to);

// Copies a file's content, attributes and time of writing. With `failIfExists`, a target that is there gives
// last error 80. A failed copy leaves no part of the target behind.
QN_API BOOL CopyFileW(const WCHAR* from, const WCHAR* to, BOOL failIfExists);

// The length of the text, without terminator, when it fits in `size` characters with it; else the size
// needed, with nothing written; 0 with the last error on failure.
//   Full      absolute, without "." and ".." parts and doubled separators; `*filePart`, if given, points at
//             the last part in `text`, or is null if there is none. The path need not exist.
//   Long      the path as it is, which must exist
//   TempPath  the directory of temporary files with `\` at its end: $TMPDIR or \tmp
QN_API DWORD GetFullPathNameW(const WCHAR* path, DWORD size, WCHAR* text, WCHAR** filePart);
QN_API DWORD GetLongPathNameW(const WCHAR* path, WCHAR* text, DWORD size);
QN_API DWORD GetTempPathW(DWORD size, WCHAR* text);

// The bytes of the file system that a directory lies in: those this user may still take, all, all that are
// free. Each may be null. Zero on failure.
QN_API BOOL GetDiskFreeSpaceExW(const WCHAR* directory, ULONGLONG* available, ULONGLONG* total,
                                ULONGLONG* free);

}  // namespace qnplatform
