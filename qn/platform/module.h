// Modules and their resources.
//
// A module is an executable or a shared library in this process; its handle is the address that it is loaded
// at. Its resources are a compiled `.res` image that is linked into it (qn_resources of the CMake package
// builds one from a readable source) and registered once:
//
//   extern const unsigned char my_plugin_resources[];
//   extern const size_t my_plugin_resources_size;
//   RegisterModuleResources(ModuleFromAddress(my_plugin_resources), my_plugin_resources,
//                           my_plugin_resources_size);
//
// The image is aligned to 4 bytes. What qn_resources generates does that when the module is loaded and takes
// it back when it goes.
//
// Images come from files too, so nothing in them is trusted: a record that does not fit ends the walk.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

using HMODULE = struct HINSTANCE__*;
using HINSTANCE = HMODULE;
using HRSRC = struct HRSRC__*;

// A resource type or name: an address of a wide text, or a number below 0x10000 in a pointer's place.
inline const WCHAR* MAKEINTRESOURCEW(WORD id) {
  return reinterpret_cast<const WCHAR*>(static_cast<uintptr_t>(id));
}
inline bool IS_INTRESOURCE(const void* name) {
  return reinterpret_cast<uintptr_t>(name) < 0x10000;
}

// Not inline: a symbol that all modules share would keep a plug-in from being unloaded. Plain casts need no
// code to run before they are there.
const WCHAR* const RT_MENU = reinterpret_cast<const WCHAR*>(uintptr_t{4});
const WCHAR* const RT_DIALOG = reinterpret_cast<const WCHAR*>(uintptr_t{5});
const WCHAR* const RT_STRING = reinterpret_cast<const WCHAR*>(uintptr_t{6});
const WCHAR* const RT_RCDATA = reinterpret_cast<const WCHAR*>(uintptr_t{10});
const WCHAR* const RT_VERSION = reinterpret_cast<const WCHAR*>(uintptr_t{16});

// A procedure of EnumResourceLanguagesW ended the walk.
constexpr DWORD ERROR_RESOURCE_ENUM_USER_STOP = 15106;

// The module that holds an address, or null.
QN_API HMODULE ModuleFromAddress(const void* address);

// The module of a name without folder ("libqnkernel.so.1"), or with null the executable. Null with last error
// 126 when it is not loaded.
QN_API HMODULE GetModuleHandleW(const WCHAR* name);

// The path of a module (null: the executable) in the library's form: the length, or 0 with the last error.
// When the room is too small it is cut, terminated, the result is `size` and the last error 122.
QN_API DWORD GetModuleFileNameW(HMODULE module, WCHAR* path, DWORD size);

// The same as bytes, for filters of exceptions: it allocates nothing and takes no lock. The path is the one
// that the kernel knows, with links resolved, in the bytes of the file system (UTF-8); `size` and the length
// count bytes. The module is one with code, by its handle or by an AllocationBase of VirtualQuery.
QN_API DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD size);

// Tells where a module's resources are. The bytes stay the caller's and must live as long as the module is
// asked for them; null takes them back, which a module does before it is unloaded. False when there is no
// memory.
QN_API BOOL RegisterModuleResources(HMODULE module, const void* image, SIZE_T bytes);

// Finds a resource in a language: that language, then its primary language without sublanguage, then the
// neutral one. For the neutral language (0) these come first: the thread's locale, the user's, the system's,
// English; and last whatever there is. The form without language asks for the neutral one. Null module: the
// executable. Null with last error 1813 (no such type), 1814 (no such name) or 1815 (no such language).
QN_API HRSRC FindResourceExW(HMODULE module, const WCHAR* type, const WCHAR* name, WORD language);
QN_API HRSRC FindResourceW(HMODULE module, const WCHAR* name, const WCHAR* type);

// The size of a found resource in bytes, and its bytes. They are part of the image: nothing is freed.
QN_API DWORD SizeofResource(HMODULE module, HRSRC resource);
QN_API HGLOBAL LoadResource(HMODULE module, HRSRC resource);
QN_API void* LockResource(HGLOBAL data);

using ENUMRESLANGPROCW = BOOL (*)(HMODULE module, const WCHAR* type, const WCHAR* name, WORD language,
                                  intptr_t parameter);

// Calls `procedure` for each language of a resource, in the image's order, until it returns FALSE. False with
// last error 1813 or 1814 when there is no such resource, 15106 when the procedure ended it.
QN_API BOOL EnumResourceLanguagesW(HMODULE module, const WCHAR* type, const WCHAR* name,
                                   ENUMRESLANGPROCW procedure, intptr_t parameter);

// The version text of a file: a module that is loaded, an ELF file with the note that qn_resources leaves in
// it, or a `.res` file of up to 64 MiB. The size of its block in bytes, 0 with the last error when it has
// none; `*handle`, if given, becomes 0. Of several languages the neutral search of FindResourceExW chooses;
// the note is in one, English before the neutral one before the first.
QN_API DWORD GetFileVersionInfoSizeW(const WCHAR* path, DWORD* handle);

// Copies the block into `size` bytes; false with last error 122 when that is too small. `handle` is not used.
QN_API BOOL GetFileVersionInfoW(const WCHAR* path, DWORD handle, DWORD size, void* block);

// Finds a part of a version block by path, ignoring case: "\\" the fixed record, "\\VarFileInfo\\Translation"
// the pairs of language and code page, "\\StringFileInfo\\040904B0\\ProductName" a text. `*value` points into
// the block, `*length` counts bytes, for texts characters with terminator; an empty value points at a zero
// character. Every length in the block is checked against the block's own first length, which
// GetFileVersionInfoW never lets pass its end, and for a locked resource against its image too. False, with
// null and 0, for what is not there (1813) or a block damaged at its start (1812), and with both as they were
// for a null argument (87). Texts of a block at an odd address are not aligned.
QN_API BOOL VerQueryValueW(const void* block, const WCHAR* path, void** value, UINT* length);

}  // namespace qnplatform
