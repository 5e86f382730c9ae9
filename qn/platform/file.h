// Files: real share modes, 64-bit positions, published names.
//
// Paths are UTF-16 with `\` or `/` and an optional drive letter, which is dropped (see text.h). Share modes
// hold between handles of one process and of several: each handle's access and what it refuses to others
// stand as open-file-description locks on byte offsets near 2^63, which no file uses. A file system without
// such locks shares everything.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD DELETE = 0x00010000;

constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD FILE_SHARE_DELETE = 4;

constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD TRUNCATE_EXISTING = 5;

constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x00000001;
constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x00000002;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
constexpr DWORD FILE_ATTRIBUTE_DEVICE = 0x00000040;  // device nodes, FIFOs, sockets
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;
constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x00000400;  // symbolic links
constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;
constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000;
constexpr DWORD FILE_FLAG_RANDOM_ACCESS = 0x10000000;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

constexpr DWORD FILE_BEGIN = 0;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

// Opens or creates a file.
//   access       GENERIC_READ, GENERIC_WRITE, DELETE, or 0 to ask for nothing but the file's being there, its
//                size and times, which needs no right to its content
//   share        what other handles may do while this one is open (FILE_SHARE_*)
//   security     not used, null
//   disposition  CREATE_NEW to TRUNCATE_EXISTING
//   attributes   of a new file (read-only, hidden), and FILE_FLAG_* hints
//   templateFile not used, null
// Returns the handle, to be closed with CloseHandle, or INVALID_HANDLE_VALUE with the last error: 2 or 3
// not found, 5 access denied or a directory, 32 another handle's access or share mode is in the way, 80 the
// file is there already (CREATE_NEW), 87 a bad disposition, 123 a bad name. A failing open leaves an
// existing file's content as it was. After CREATE_ALWAYS or OPEN_ALWAYS on an existing file the last error
// is 183, after a new one 0. No opening waits: a FIFO that is opened for reading alone reads as empty when
// nothing is in it, and one opened for writing must have a reader, else 31; for both it is refused with 5.
// A file that another opener got hold of between its making and the entry of its share mode (CREATE_NEW with
// 32) is removed again, if that one shares its deletion.
QN_API HANDLE CreateFileW(const WCHAR* name, DWORD access, DWORD share, void* security, DWORD disposition,
                          DWORD attributes, HANDLE templateFile);

// Closes a handle of any kind. Zero with last error 6 for a value that is no open handle.
QN_API BOOL CloseHandle(HANDLE handle);

// Reads up to `bytes` bytes at the position and moves it by what was read. Nonzero, with fewer bytes in
// `*got`, at the end of the file. `overlapped` is not used and must be null.
QN_API BOOL ReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* got, void* overlapped);

// Writes at the position and moves it. Zero on failure (112: the disk is full), with the bytes that were
// written before it in `*put`.
QN_API BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* put, void* overlapped);

// Moves the position. With `high` null, `distance` is signed and a position beyond 32 bits is refused; with
// `high`, `distance` and `*high` are the halves of a signed 64-bit distance and `*high` becomes the high
// half of the new position. Returns the low half, or INVALID_SET_FILE_POINTER; since that is also a valid
// half, the last error (0 on success) decides: 131 before the start, 87 bad arguments.
QN_API DWORD SetFilePointer(HANDLE file, LONG distance, LONG* high, DWORD method);
QN_API BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method);

// Cuts or extends the file to the position.
QN_API BOOL SetEndOfFile(HANDLE file);

// The file's length in bytes: the low half, with the high half in `*high` if given; or in 64 bits.
QN_API DWORD GetFileSize(HANDLE file, DWORD* high);
QN_API BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);

constexpr DWORD PAGE_READONLY = 2;
constexpr DWORD PAGE_READWRITE = 4;
constexpr DWORD FILE_MAP_WRITE = 2;
constexpr DWORD FILE_MAP_READ = 4;

// Makes ready for views either a whole file, as long as it is now, to be read: `protection` is PAGE_READONLY
// and the sizes are 0. Or, with INVALID_HANDLE_VALUE for `file`, new zeroed memory that other processes can
// share (see process.h): `protection` is PAGE_READWRITE and the sizes are the halves of its bytes, not 0.
// Only what is touched of it takes room. While one of these is open a thread of the library answers other
// processes that ask for it. `name` is null (else, as for what is not so, last error 87). Returns the handle,
// to be closed with CloseHandle, or null with the last error: 6 a bad handle, 1006 an empty file.
QN_API HANDLE CreateFileMappingW(HANDLE file, void* security, DWORD protection, DWORD sizeHigh, DWORD sizeLow,
                                 const WCHAR* name);

// The bytes of a mapping in memory from its start on, all for 0 `bytes`: `access` is FILE_MAP_READ, of shared
// memory also FILE_MAP_WRITE, which can be read too, or both; the offset is 0 and `bytes` within the mapping
// (else last error 87). The view outlives both handles; give it back with UnmapViewOfFile. Null with the last
// error on failure. Memory behind the end of a file that was cut meanwhile must not be touched; shared memory
// cannot be cut.
QN_API void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T bytes);

// Zero with last error 487 for what is no view.
QN_API BOOL UnmapViewOfFile(const void* view);

// Brings what was written to the disk.
QN_API BOOL FlushFileBuffers(HANDLE file);

// Removes a file, or a symbolic link itself. Zero with last error 32 while a handle is open that does not
// share deletion, 2 or 3 not found, 5 denied or a directory.
QN_API BOOL DeleteFileW(const WCHAR* name);

// FILE_ATTRIBUTE_* of a file or directory, or INVALID_FILE_ATTRIBUTES with last error 2 or 3 not found, 5
// denied. Read-only means that the owner may not write; hidden is a leading dot, or a mark set on creation
// where the file system has extended attributes. A symbolic link has the attributes of what it leads to,
// FILE_ATTRIBUTE_NORMAL if there are none, and FILE_ATTRIBUTE_REPARSE_POINT, which stands alone, or beside
// hidden, if it leads nowhere.
QN_API DWORD GetFileAttributesW(const WCHAR* name);

// Sets or clears read-only and hidden; the rest of `attributes` is not used. A leading dot cannot be cleared.
// Acts on a symbolic link itself, which has no such attributes: success, with nothing changed. Zero with the
// last error on failure.
QN_API BOOL SetFileAttributesW(const WCHAR* name, DWORD attributes);

}  // namespace qnplatform
