// The registry: two hives of typed values under hierarchical keys.
//
// Each hive is one SQLite database: the user's `$XDG_CONFIG_HOME/qnkernel/user.sqlite` (by default under
// ~/.config), the machine's `/etc/xdg/qnkernel/machine.sqlite`; the environment variables
// QNKERNEL_USER_REGISTRY and QNKERNEL_MACHINE_REGISTRY and the function SetRegistryFile name others.
//
// Every write is one transaction, durable when it is reported as done: a process killed at any moment, or a
// full disk, leaves the old or the new value. Processes and threads may write at once; one that waits for the
// others longer than ten seconds gets ERROR_BUSY. A database that turns out to be damaged is set aside under
// another name, reported through GetRegistryDamage, and replaced by an empty one; it is never overwritten.
//
// Key names are separated by `\`, hold up to 255 characters each, and like value names compare without
// regard to case in ASCII letters; they keep the case of their creation. All functions return ERROR_SUCCESS
// or an error number.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

using HKEY = struct HKEY__*;
using LSTATUS = LONG;
using REGSAM = DWORD;

inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x80000001));
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x80000002));

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
// `className`, `options` and `security` are not used.
QN_API LSTATUS RegCreateKeyExW(HKEY key, const WCHAR* subKey, DWORD reserved, const WCHAR* className,
                               DWORD options, REGSAM access, void* security, HKEY* result,
                               DWORD* disposition);

// The same with KEY_ALL_ACCESS.
QN_API LSTATUS RegCreateKeyW(HKEY key, const WCHAR* subKey, HKEY* result);

// Closes a key; a hive is left alone.
QN_API LSTATUS RegCloseKey(HKEY key);

// Reads a value; a null or empty name is the key's default value. `type`, `data` and `size` may be null,
// `data` only with or without `size`: `*size` is the room in bytes and becomes the value's size.
// ERROR_MORE_DATA, with the size needed and `data` undefined, when the room is too small;
// ERROR_FILE_NOT_FOUND without a value.
QN_API LSTATUS RegQueryValueExW(HKEY key, const WCHAR* name, DWORD* reserved, DWORD* type, BYTE* data,
                                DWORD* size);

// Stores a value of any type as the bytes given. ERROR_ACCESS_DENIED for a key opened without KEY_WRITE.
QN_API LSTATUS RegSetValueExW(HKEY key, const WCHAR* name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size);

// Removes a value. ERROR_FILE_NOT_FOUND without one.
QN_API LSTATUS RegDeleteValueW(HKEY key, const WCHAR* name);

// Removes a key without subkeys, with its values; ERROR_ACCESS_DENIED when it has subkeys.
QN_API LSTATUS RegDeleteKeyW(HKEY key, const WCHAR* subKey);

// Removes a key with all that is below it; with a null or empty `subKey` all that is below `key`.
QN_API LSTATUS RegDeleteTreeW(HKEY key, const WCHAR* subKey);

// The name of the subkey or value at a position, in the order of their names. `*nameSize` is the room in
// characters with terminator and becomes the length without it. ERROR_NO_MORE_ITEMS behind the last one.
QN_API LSTATUS RegEnumKeyExW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* reserved,
                             WCHAR* className, DWORD* classSize, void* lastWrite);
QN_API LSTATUS RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* reserved,
                             DWORD* type, BYTE* data, DWORD* size);

// Brings a hive's writes to the disk. Every write does so by itself, so this finds nothing to do.
QN_API LSTATUS RegFlushKey(HKEY key);

// Makes a hive another file for this process; null goes back to the default. Keys opened before stay on the
// file that they were opened on.
QN_API LSTATUS SetRegistryFile(HKEY hive, const WCHAR* path);

// Copies the path to which a damaged database of the hive was set aside in this process, and returns its
// length; 0 when none was.
QN_API int GetRegistryDamage(HKEY hive, WCHAR* path, int size);

}  // namespace qnplatform
