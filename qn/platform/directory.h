// Directories: finding entries, making, removing, moving and copying, and what a path stands for.
//
// Symbolic links: an entry that is one carries FILE_ATTRIBUTE_REPARSE_POINT beside the attributes of what it
// leads to (FILE_ATTRIBUTE_NORMAL if that has none), and nothing beside it but hidden if it leads nowhere.
// Removing and moving act on the link itself. Paths are those of file.h; all functions give the last errors
// 123 or 3 for a null or empty one, 5 for denied access and 8 without memory.
#pragma once

#include "qn/platform/file.h"
#include "qn/platform/filetime.h"
#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr DWORD MAX_PATH = 260;

// What is known of an entry. The size and the times of a link are those of what it leads to, or its own if it
// leads nowhere; the size of anything but a file is 0.
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

// Finds the first of the entries that a path's last part stands for, in a folder that the rest names.
//   with wild cards  all entries whose names match without regard to case, "." and ".." first, the others in
//                    the order of the file system. `*` takes any characters, `?` one or, at the end or in
//                    front of a dot, none. "*" and "*.*" match everything, "*." names without a dot.
//   without          that one entry, by its exact name; the folder is not read
// Nothing is opened but the folder. A name of more than 259 characters is left out. A name that is no
// well-formed UTF-8, or holds a backslash, is shown with U+FFFD for these and cannot be reached.
//
// The handle, which several threads may use and FindClose closes, or INVALID_HANDLE_VALUE with last error 2
// (nothing matches, or no last part), 3 (no such folder), 87 (`data` is null) or another.
QN_API HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data);

// The next entry. Zero with last error 18 behind the last one, 6 for another handle.
QN_API BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data);

// Ends a walk. Zero with last error 6 for another handle.
QN_API BOOL FindClose(HANDLE find);

// Makes one directory. Zero with last error 183 (the name is taken), 3 (its parent is missing), 5 or another.
// `security` is not used.
QN_API BOOL CreateDirectoryW(const WCHAR* path, void* security);

// Removes an empty directory, or a symbolic link to one. Zero with last error 145 when it is not empty, 267
// when it is no directory, 5 when it is read-only, 2 or 3 when it is missing.
QN_API BOOL RemoveDirectoryW(const WCHAR* path);

// Renames a file, directory or link within a file system. Zero with last error 17 across file systems, 183
// when the new name is taken, 32 when a handle on the file is open that does not share deletion, 87 for a
// directory that would go into itself, 2 or 3 when something is missing.
QN_API BOOL MoveFileW(const WCHAR* from, const WCHAR* to);

// Copies a file: content, whose holes stay holes, read-only and hidden, the user's extended attributes, time
// of writing, and brings the copy to the disk. It takes the target's place only when it is complete, so a
// failure leaves the target as it was, or missing. A target that is a symbolic link stays one, and the file
// it leads to is replaced; a link that leads nowhere is replaced itself. Zero with last error 80 for a target
// that is there (with `failIfExists`), 5 for one that is read-only or no file, and for a source that is no
// file, 32 when both are the same file or an open handle is in the way, 112 when the disk is full, 2 or 3
// when something is missing.
QN_API BOOL CopyFileW(const WCHAR* from, const WCHAR* to, BOOL failIfExists);

// These three give the length of the text, without terminator, when it fits in `size` characters with it;
// else the size needed, with nothing written; 0 with the last error on failure.

// The absolute form of a path, which need not exist: behind the working directory if it is relative, also
// when it has a drive letter, which is dropped; without "." and ".." parts and doubled separators. It only
// looks at the text, so ".." behind a symbolic link takes the link back. Two separators at the start stay (a
// server's name begins so), one at the end too. `*filePart`, if given, points at the last part in `text`, or
// becomes null if there is none or the text did not fit.
QN_API DWORD GetFullPathNameW(const WCHAR* path, DWORD size, WCHAR* text, WCHAR** filePart);

// The path itself, with `\` for `/`, if it exists; links need not lead anywhere. `text` may be `path`.
QN_API DWORD GetLongPathNameW(const WCHAR* path, WCHAR* text, DWORD size);

// The directory of temporary files with `\` at its end: $TMPDIR if it is absolute and a directory, else \tmp.
QN_API DWORD GetTempPathW(DWORD size, WCHAR* text);

// The bytes of the file system that a path lies in: those this user may still take, all, all that are free.
// Each may be null; a null path is the working directory. Zero on failure, 3 for a missing path.
QN_API BOOL GetDiskFreeSpaceExW(const WCHAR* directory, ULONGLONG* available, ULONGLONG* total,
                                ULONGLONG* free);

}  // namespace qnplatform
