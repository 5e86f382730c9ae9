// Fixed-width types, status values and system error numbers of the library's interface.
//
// The interface is written in the published names of a desktop operating system, whose `long` has 32 bits
// on every target. C++'s own `long` has 64 here, so it appears in no interface: LONG and DWORD do.
// Names live in an inline namespace and constants are constexpr, so that another library with the same
// names can be loaded into the same process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#if defined(__GNUC__)
#define QN_API __attribute__((visibility("default")))
#else
#define QN_API
#endif

// Wide text is UTF-16 on every system: W("text") is a literal of WCHAR.
#define W(text) u##text

inline namespace qnplatform {

using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using UINT = uint32_t;
using LONG = int32_t;
using ULONG = uint32_t;
using BOOL = int;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using HRESULT = int32_t;
using WCHAR = char16_t;
using SIZE_T = size_t;
using ULONG_PTR = uintptr_t;

using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;

using HANDLE = void*;
using HGLOBAL = HANDLE;
using HWND = struct HWND__*;

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];

  friend bool operator==(const GUID&, const GUID&) = default;
};
static_assert(sizeof(GUID) == 16 && std::is_trivially_copyable_v<GUID>);

union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};
static_assert(sizeof(LARGE_INTEGER) == 8);

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;
constexpr DWORD INFINITE = 0xFFFFFFFF;

// True for a status without bit 31, warnings included.
constexpr bool SUCCEEDED(HRESULT status) {
  return status >= 0;
}
constexpr bool FAILED(HRESULT status) {
  return status < 0;
}

// A status from its unsigned 32-bit form, as the tables of this library write it.
constexpr HRESULT MakeStatus(uint32_t bits) {
  return static_cast<HRESULT>(bits);
}

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = MakeStatus(0x80004001);
constexpr HRESULT E_NOINTERFACE = MakeStatus(0x80004002);
constexpr HRESULT E_POINTER = MakeStatus(0x80004003);
constexpr HRESULT E_FAIL = MakeStatus(0x80004005);
constexpr HRESULT E_UNEXPECTED = MakeStatus(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = MakeStatus(0x80070005);
constexpr HRESULT E_HANDLE = MakeStatus(0x80070006);
constexpr HRESULT E_OUTOFMEMORY = MakeStatus(0x8007000E);
constexpr HRESULT E_INVALIDARG = MakeStatus(0x80070057);

// System error numbers, as GetLastError gives them.
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_OUTOFMEMORY = 14;
constexpr DWORD ERROR_INVALID_DRIVE = 15;
constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_HANDLE_EOF = 38;
constexpr DWORD ERROR_HANDLE_DISK_FULL = 39;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_OPEN_FAILED = 110;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
constexpr DWORD ERROR_BUSY = 170;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_FILE_TOO_LARGE = 223;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_PARTIAL_COPY = 299;
constexpr DWORD ERROR_INVALID_ADDRESS = 487;
constexpr DWORD ERROR_FILE_INVALID = 1006;
constexpr DWORD ERROR_BADDB = 1009;
constexpr DWORD ERROR_KEY_DELETED = 1018;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
constexpr DWORD ERROR_RESOURCE_LANG_NOT_FOUND = 1815;

// The calling thread's number of its latest failed system operation, and its replacement.
QN_API DWORD GetLastError();
QN_API void SetLastError(DWORD error);

}  // namespace qnplatform
