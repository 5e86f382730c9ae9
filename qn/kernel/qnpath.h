// Paths and files: the parts of a path, changing it, what is there, making and removing.
//
// A file name starts behind the last `\`, `/` or `:`. An extension starts at the last `.` of the file name,
// provided no white space follows it up to the end. Only `\` is added or removed at the end of a path. Sizes
// count characters with the terminator.
#pragma once

#include "qn/platform/directory.h"
#include "qn/platform/module.h"
#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

extern "C" {

// Parts of a path, as places in the text given.
QN_API const char* QnGetFileNamePtrA(const char* path);
QN_API const WCHAR* QnGetFileNamePtrW(const WCHAR* path);
QN_API const char* QnGetFileNameExtensionPtrA(const char* path);
QN_API const WCHAR* QnGetFileNameExtensionPtrW(const WCHAR* path);

QN_API int QnGetFileNameWithoutPathOrExtension(const WCHAR* path, WCHAR* text, int size);
QN_API int QnGetPathNameFromFilePath(const WCHAR* path, WCHAR* text, int size);
QN_API int QnGetRootPathFromFilePath(const WCHAR* path, WCHAR* text, int size);

// Changing a path in place.
QN_API int QnAddSlashToPathName(WCHAR* path, int size);
QN_API int QnRemoveSlashFromPathNameEnd(WCHAR* path, int size);
QN_API int QnAppendToPathName(WCHAR* path, int size, const WCHAR* name, const WCHAR* extension);
QN_API int QnAddExtensionToPathName(WCHAR* path, int size, const WCHAR* extension);
QN_API int QnReplaceExtensionOnPathName(WCHAR* path, int size, const WCHAR* extension);
QN_API int QnReplaceExtensionOnPathNameEx(WCHAR* path, int size, const WCHAR* extension, BOOL stripSuffix);
QN_API BOOL QnValidateFileName(WCHAR* name, BOOL repair);
QN_API const WCHAR* QnGetFileNamePtrRelative(const WCHAR* path, const WCHAR* base);
QN_API int QnGetBasePathRelative(const WCHAR* path, const WCHAR* base, WCHAR* text, int size);
QN_API HRESULT QnReplaceBasePathRelative(const WCHAR* path, const WCHAR* oldBase, const WCHAR* newBase,
                                         WCHAR* text, int size);
QN_API BOOL QnDirectoryUpOneLevel(WCHAR* path, int size);

QN_API HRESULT QnFilenameFormat(HDC dc, int width, const WCHAR* path, WCHAR* text, int size, int mode);
QN_API HRESULT QnFilenameFormatForWidth(HFONT font, int width, const WCHAR* path, WCHAR* text, int size,
                                        int mode);
QN_API HRESULT QnFilenameFormatForCtl(HWND control, const WCHAR* path, WCHAR* text, int size, int mode);

QN_API int QnGetLongPathName(const WCHAR* path, WCHAR* text, int size);
QN_API int QnGetFullPathName(const WCHAR* path, int size, WCHAR* text, WCHAR** filePart);
QN_API int QnGetTempPath(int size, WCHAR* text);
QN_API int QnGetModulePath(HMODULE module, WCHAR* text, int size);
QN_API int QnGetModuleFileName(HMODULE module, WCHAR* text, int size);
QN_API int QnQualifyPath(const WCHAR* path, WCHAR* text, int size);

QN_API BOOL QnDoesFileExist(const WCHAR* path, BOOL hiddenCounts);
QN_API BOOL QnIsFileWritable(const WCHAR* path);
QN_API BOOL QnIsMatchWildCard(const WCHAR* pattern, const WCHAR* name);
QN_API BOOL QnIsFileExecutable(HANDLE file, DWORD* machineOut, DWORD* subsystemOut);
QN_API HRESULT QnGetFileExecutableInfo(const WCHAR* path, DWORD* machineOut, DWORD* subsystemOut);
QN_API BOOL QnIsDirectoryWritable(const WCHAR* path);
QN_API BOOL QnIsDirectoryEmpty(const WCHAR* path);
QN_API BOOL QnIsDirectoryEmptyRecursive(const WCHAR* path, BOOL ignoreThumbnails);
QN_API BOOL QnIsHiddenFolderByDefault(int folderId);

QN_API DWORD QnGetDiskFreeSpace(const WCHAR* path, DWORD unit);
QN_API DWORD QnGetDiskTotalSpace(const WCHAR* path, DWORD unit);
QN_API int QnFormatDiskFreeSpace(const WCHAR* path, WCHAR* text);
QN_API HRESULT QnGetFileSizeByName(const WCHAR* path, LONGLONG* sizeOut);
QN_API HRESULT QnGetDirectorySize(const WCHAR* path, LONGLONG* sizeOut);
QN_API DWORD QnDosGetDateTime(const WCHAR* path);
QN_API DWORD QnDosGetDateTimeUTC(const WCHAR* path);
QN_API void QnGetDateTime(DWORD* out);

QN_API BOOL QnCreateDirectory(const WCHAR* path, void* attributes);
QN_API HRESULT QnCreateTempFileAndName(const WCHAR* folder, const WCHAR* extension, WCHAR* text, int size);
QN_API HRESULT QnCreateTempFileAndNameEx(const WCHAR* prefixPath, const WCHAR* folder, const WCHAR* extension,
                                         const WCHAR* format, WCHAR* text, int size);
QN_API BOOL QnDeleteFiles(const WCHAR* folder, const WCHAR* pattern, BOOL recurse);
QN_API BOOL QnDeleteDirectoryTree(const WCHAR* path, BOOL removeRoot);
QN_API HRESULT QnMoveFolder(const WCHAR* from, const WCHAR* to);
QN_API BOOL QnCanMoveFolder(const WCHAR* path);
QN_API HRESULT QnGetSpecialFolderVer(WCHAR* text, int size, int folderId, const WCHAR* name, int major,
                                     int minor);
QN_API HRESULT QnGetSpecialFolderNoVer(WCHAR* text, int size, int folderId, const WCHAR* name);
QN_API HRESULT QnGetPresetFolder(WCHAR* text, int size, DWORD version, const WCHAR* application);
QN_API HRESULT QnSetPresetFolder(const WCHAR* text, DWORD version, const WCHAR* application);
QN_API HRESULT QnGetUniqueSubFolder(const WCHAR* parent, const WCHAR* name, WCHAR* text, int size);
QN_API int QnFilenameLogicalCompare(const WCHAR* a, const WCHAR* b);
QN_API BOOL QnReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* got, void* overlapped);
}
