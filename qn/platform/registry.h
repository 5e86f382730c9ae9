// The registry: two hives of typed values under hierarchical keys.
//
// Each hive is one SQLite database: the user's `$XDG_CONFIG_HOME/qnkernel/user.sqlite` (by default under
// ~/.config), the machine's `/etc/xdg/qnkernel/machine.sqlite`; the environment variables
// QNKERNEL_USER_REGISTRY and QNKERNEL_MACHINE_REGISTRY and the function SetRegistryFile name others.
//
// Every write is one transaction, durable when it is reported as done: a process killed at any moment, or a
// full disk (ERROR_DISK_FULL), leaves the old or the new value. A database that cannot be written, for its
// rights, those of its folder or its file system, reads as ever and gives ERROR_ACCESS_DENIED for writes.
//
// Processes and threads may write at once; a call that waits for other processes longer than ten seconds
// gets ERROR_BUSY. A process may fork with keys open, and both may use them. The child of a process with
// several threads runs exec before it uses the registry, as it does before it uses most of the system.
//
// A database is made, with its folders, by the first write. One that turns out to be damaged is set aside as
// `<name>.damaged-<n>`, with its journal, reported through GetRegistryDamage, and replaced by an empty one;
// it is never overwritten. Open keys outlive that: they read as empty and are made anew by the next write to
// them. A damaged database in a folder without rights and one of another program, which is left where it is,
// give ERROR_BADDB, one of a newer version of the library ERROR_ACCESS_DENIED. Beside a database lies an
// empty file `<name>.lock`, which every call holds, and who sets aside holds alone; it stays.
//
// Key names are separated by `\`, of which doubled, leading and trailing ones count for nothing. They hold up
// to 255 characters each in up to 512 levels, names of values up to 16,383, values up to 64 MiB; beyond that
// is ERROR_INVALID_PARAMETER. Names compare without regard to case in ASCII letters and keep the case of
// their creation.
//
// All functions return ERROR_SUCCESS or an error number, and leave the last error alone. A handle that is no
// open key gives ERROR_INVALID_HANDLE, a key that was deleted under its handle ERROR_KEY_DELETED, one that
// was opened without the right asked for ERROR_ACCESS_DENIED: reading and listing values takes bit 0 of
// the access, writing and deleting values bit 1, making subkeys bit 2, listing subkeys bit 3, deleting keys
// bit 1 or 16. A hive's handle has all rights.
#pragma once

#include "qn/platform/filetime.h"
#include "qn/platform/types.h"

inline namespace qnplatform {

using HKEY = struct HKEY__*;
using LSTATUS = LONG;
using REGSAM = DWORD;

const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x80000001));
const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x80000002));

constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;
constexpr DWORD REG_QWORD = 11;

constexpr REGSAM KEY_READ = 0x20019;
constexpr REGSAM KEY_WRITE = 0x20006;
constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

constexpr DWORD REG_CREATED_NEW_KEY = 1;
constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// Opens a key that exists. `key` is a hive or an open key, `subKey` a path under it, null or empty for `key`
// itself. ERROR_FILE_NOT_FOUND when there is none, ERROR_ACCESS_DENIED when `access` asks for writing and the
// hive cannot be written. Close the key with RegCloseKey.
QN_API LSTATUS RegOpenKeyExW(HKEY key, const WCHAR* subKey, DWORD options, REGSAM access, HKEY* result);

// Opens a key and makes it, with the keys above it, if it is missing. `*disposition`, if given, tells which.
// ERROR_ACCESS_DENIED when `access` asks for writing and the hive cannot be written, also if the key exists.
// `className`, `options` and `security` are not used.
QN_API LSTATUS RegCreateKeyExW(HKEY key, const WCHAR* subKey, DWORD reserved, const WCHAR* className,
                               DWORD options, REGSAM access, void* security, HKEY* result,
                               DWORD* disposition);

// The same with all rights that can be had: a key that exists opens in a hive that cannot be written too, so
// that settings stay readable, and only writes to it give ERROR_ACCESS_DENIED.
QN_API LSTATUS RegCreateKeyW(HKEY key, const WCHAR* subKey, HKEY* result);

// Closes a key; a hive is left alone.
QN_API LSTATUS RegCloseKey(HKEY key);

// Reads a value; a null or empty name is the key's default value. `type` and `data` may be null, and without
// `data` so may `size`. `*size` is the room at `data` in bytes and becomes the value's size. Text comes as it
// was stored, with its terminator only if that was stored. ERROR_MORE_DATA, with the size needed and `data`
// untouched, when the room is too small; ERROR_FILE_NOT_FOUND without a value.
QN_API LSTATUS RegQueryValueExW(HKEY key, const WCHAR* name, DWORD* reserved, DWORD* type, BYTE* data,
                                DWORD* size);

// Stores a value of any type as the `size` bytes given; `data` may be null for 0 of them.
QN_API LSTATUS RegSetValueExW(HKEY key, const WCHAR* name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size);

// Removes a value. ERROR_FILE_NOT_FOUND without one.
QN_API LSTATUS RegDeleteValueW(HKEY key, const WCHAR* name);

// Removes a key with all that is below it; with a `subKey` that is null or names nothing all that is below
// `key`, its values too, and not `key` itself. ERROR_FILE_NOT_FOUND without one.
QN_API LSTATUS RegDeleteTreeW(HKEY key, const WCHAR* subKey);

// The name of the subkey or value at a position, in the order of their names as capitals. `*nameSize` is the
// room in characters with terminator and becomes the length without it. `type`, `data` and `size` are those
// of RegQueryValueExW. Keys have no class, which reads as empty, and no times, which read as 0.
// ERROR_NO_MORE_ITEMS behind the last one; ERROR_MORE_DATA when the room for the name is too small, with
// nothing written, or that for the data, with the type and the size needed alone.
QN_API LSTATUS RegEnumKeyExW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* reserved,
                             WCHAR* className, DWORD* classSize, FILETIME* lastWrite);
QN_API LSTATUS RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* reserved,
                             DWORD* type, BYTE* data, DWORD* size);

// Makes a hive another file for this process, which need not exist; null goes back to the default. Keys
// opened before stay on the file that they were opened on. ERROR_INVALID_HANDLE for what is no hive.
QN_API LSTATUS SetRegistryFile(HKEY hive, const WCHAR* path);

// Copies the path to which this process last set a damaged database of the hive aside, with terminator and
// cut to a room of `size` characters, and returns its whole length; 0 when none was. `path` may be null.
QN_API int GetRegistryDamage(HKEY hive, WCHAR* path, int size);

}  // namespace qnplatform
