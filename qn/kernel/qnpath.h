// Paths and files: the parts of a path, changing it, what is there, making and removing.
//
// Paths are UTF-16 and end in a zero; their buffers have room for 260 characters as a rule. What holds for
// all functions:
//   - A file name starts behind the last `\`, `/` or `:`.
//   - An extension starts at the last `.` of the file name, provided no white space follows it up to the end;
//     otherwise the file name has none.
//   - Only `\` is added or removed at the end of a path. `/` is told apart but never written.
//   - Sizes count characters with the terminator, lengths without it.
//   - A path that has no terminator within its `size`, and a null pointer, are misuse: the result is 0 or
//     E_INVALIDARG. A function that fails leaves the path as it was.
// Nothing here has shared state: functions may run in any thread, each on buffers of its own.
#pragma once

#include "qn/platform/directory.h"
#include "qn/platform/module.h"
#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

extern "C" {

// Parts of a path, as places in the text given: the file name; and the `.` of its extension, or the end of
// the text without one. Null for null. The A forms look at bytes: any code page will do in which the bytes
// of `\`, `/`, `:` and `.` are no part of other characters, such as UTF-8.
QN_API const char* QnGetFileNamePtrA(const char* path);
QN_API const WCHAR* QnGetFileNamePtrW(const WCHAR* path);
QN_API const char* QnGetFileNameExtensionPtrA(const char* path);
QN_API const WCHAR* QnGetFileNameExtensionPtrW(const WCHAR* path);

// Copy a part of a path to `text`, which may be `path` itself, cut to `size`. The result is the length of
// the part, also if `text` is null or was too small: a result of `size` or more tells that it was cut.
//   WithoutPathOrExtension  the file name up to its extension
//   PathName                up to and including the last `:` or `\`; 0 without one
//   RootPath                up to and including the first `\`; of a path that starts with `\\` the first two
//                           components with their `\` ("\\server\share\"); 0 if there is no such `\`
QN_API int QnGetFileNameWithoutPathOrExtension(const WCHAR* path, WCHAR* text, int size);
QN_API int QnGetPathNameFromFilePath(const WCHAR* path, WCHAR* text, int size);
QN_API int QnGetRootPathFromFilePath(const WCHAR* path, WCHAR* text, int size);

// Adds `\` to the end of a path, if it is not there and fits. Returns the length of the path as it then is.
QN_API int QnAddSlashToPathName(WCHAR* path, int size);

// Removes one `\` from the end of a path, if it is there. Returns the new length; 0 for an empty path.
QN_API int QnRemoveSlashFromPathNameEnd(WCHAR* path, int size);

// Adds `name` to a path, without one leading `\` of its own and with a `\` in front of it if the path has
// none there (an empty path gets none). Then the extension is put on by QnReplaceExtensionOnPathName, if it
// is not null. A null `name` is an empty one; it may be a part of `path`, the extension may
// not. Returns the new length; 0 with
// the path as it was if the whole does not fit.
QN_API int QnAppendToPathName(WCHAR* path, int size, const WCHAR* name, const WCHAR* extension);

// Puts an extension, with or without its dot, in the place of the path's, unless that is the same but for
// case (lstrcmpiW). Returns the length, or 0 as QnReplaceExtensionOnPathName.
QN_API int QnAddExtensionToPathName(WCHAR* path, int size, const WCHAR* extension);

// Puts an extension in the place of the path's, or at its end. A dot is written in front of it if it has
// none of its own; an empty one takes the old extension away. An empty file name stays empty. With
// `stripSuffix` a run of digits with a `_` in front of it, at the end of the name, goes too: "take_12.wav"
// becomes "take.mp3"; "take12.wav" becomes "take12.mp3". Returns the length; 0 with the path as it was if
// it does not fit.
QN_API int QnReplaceExtensionOnPathName(WCHAR* path, int size, const WCHAR* extension);
QN_API int QnReplaceExtensionOnPathNameEx(WCHAR* path, int size, const WCHAR* extension, BOOL stripSuffix);

// 1 if no character of a file name is invalid: line feed, carriage return, any of " * / : < > ? \ | and a
// blank or a `.` at the end. An empty name has none. With `repair` each invalid character becomes `_`, and
// the result is 0 if there was one; without it the name is only read.
QN_API BOOL QnValidateFileName(WCHAR* name, BOOL repair);

// A project keeps the paths of its files as they were (`base`); here one of them was found again (`path`).
// The texts are compared from their ends, without regard to case, down to the first character of `base` that
// differs; the result is the place behind the next `\` from that character on, so that the common ending
// starts with a whole name: "D:\x\music\a.wav", "music\a.wav" and "D:\newmusic\a.wav" give "music\a.wav" of
// "C:\proj\music\a.wav". Several `\` count as one. Without a `\` there it is the end of `base`, with a null
// argument `base` itself.
QN_API const WCHAR* QnGetFileNamePtrRelative(const WCHAR* path, const WCHAR* base);

// Copies what stands in `base` in front of that place, with a `\` at its end ("C:\proj\"), cut to `size`.
// The result is its length, also if `text` is null or was too small; 0 if nothing stands there.
QN_API int QnGetBasePathRelative(const WCHAR* path, const WCHAR* base, WCHAR* text, int size);

// Writes to `text`, which may be `path` itself, the path with `newBase` in the place of `oldBase`, which it
// must start with, without regard to case. Both bases should end in `\`, since any prefix will do. 0;
// E_FAIL with an empty `text` if the path starts otherwise, or if the result with its terminator is longer
// than 260 characters or `size`; E_INVALIDARG with nothing written for a null argument or no room.
QN_API HRESULT QnReplaceBasePathRelative(const WCHAR* path, const WCHAR* oldBase, const WCHAR* newBase,
                                         WCHAR* text, int size);

// Cuts one `\` from the end of a path, and then the last component, so that the folder above remains with
// its `\`: "C:\a\b\" becomes "C:\a\". 1, also if there was no component to cut; such a path keeps its `\`.
// 0 for a path of less than 4 characters, or of 260 or more.
QN_API BOOL QnDirectoryUpOneLevel(WCHAR* path, int size);

// Writes a path as it is shown, cut to `size`. `mode`:
//   0  the file name
//   1  the path fitted to `width` pixels by QnCalcPathEllipsisEx
//   2  the file name fitted by QnCalcStringEllipsis, of at most 255 characters
//   3  nothing: an empty text
//   4  the whole path, fitted as in mode 2
// The font is that of `dc`; what cannot be measured is not fitted. `text` may be `path` itself. 0, or
// E_INVALIDARG for another mode, a null text or no room, with nothing written.
QN_API HRESULT QnFilenameFormat(HDC dc, int width, const WCHAR* path, WCHAR* text, int size, int mode);

// The same with a device context of the screen and a font (null: the context's own), or with the context,
// font and client width of a control. An empty path gives an empty text and 0, before anything else is
// looked at. A null control gives the warning 0x0004E001 with nothing written. E_FAIL if a mode that
// measures gets no device context, or the control no width.
QN_API HRESULT QnFilenameFormatForWidth(HFONT font, int width, const WCHAR* path, WCHAR* text, int size,
                                        int mode);
QN_API HRESULT QnFilenameFormatForCtl(HWND control, const WCHAR* path, WCHAR* text, int size, int mode);

// What the platform knows. Each returns the length and copies only if the text fits in `size` characters with
// its terminator; otherwise, and with a null `text`, that stays as it was. 0 on failure.
//   LongPathName    the path as it is, which must exist
//   FullPathName    absolute, without "." and ".."; it need not exist. `*filePart`, if given, becomes the
//                   place of the file name in `text`, or null without one or if nothing was copied
//   TempPath        the directory of temporary files, long, with `\` at its end
//   ModulePath      the folder of a module (null: the executable), with `\` at its end
//   ModuleFileName  the path of the module's file
//   QualifyPath     the full path, long if it exists
QN_API int QnGetLongPathName(const WCHAR* path, WCHAR* text, int size);
QN_API int QnGetFullPathName(const WCHAR* path, int size, WCHAR* text, WCHAR** filePart);
QN_API int QnGetTempPath(int size, WCHAR* text);
QN_API int QnGetModulePath(HMODULE module, WCHAR* text, int size);
QN_API int QnGetModuleFileName(HMODULE module, WCHAR* text, int size);
QN_API int QnQualifyPath(const WCHAR* path, WCHAR* text, int size);

// 1 for a file, 0 for what is missing, a directory, a device, and a link that leads nowhere. With
// `hiddenCounts` a hidden file gives 0, without it 1: the flag's sense is the opposite of its name, and hosts
// rely on it.
QN_API BOOL QnDoesFileExist(const WCHAR* path, BOOL hiddenCounts);

// 1 if the file can be opened for writing now, sharing it with other writers but with no reader. Nothing is
// made or changed.
QN_API BOOL QnIsFileWritable(const WCHAR* path);

// Whether a name matches a pattern, letter case included. Of each character only the low byte is compared.
//   *  alone matches everything. Otherwise it takes characters up to the next `.`, or up to the first that
//      equals the pattern's next character; it never tries another place, and never crosses a `.`, so that
//      "*.*" does not match "a". A pattern that has come to a `*` when the name ends matches.
//   ?  takes one character.
// A `.` at the end of either is not needed by the other: "a" matches "a.", and "a." matches "a".
QN_API BOOL QnIsMatchWildCard(const WCHAR* pattern, const WCHAR* name);

// Whether a file's first 4096 bytes have the signatures "MZ" and, where the first header points, "PE". Then
// the machine and subsystem numbers go to the outs, which may be null; a number that stands beyond those
// bytes is 0. Otherwise, and if the file cannot be read, the result is 0 and the outs stay. The position in
// the file is 0 afterwards. The handle stays the caller's.
QN_API BOOL QnIsFileExecutable(HANDLE file, DWORD* machineOut, DWORD* subsystemOut);

// The same for a path: 0; QN_E_FILE_FORMAT (0x8004E00B) if the file is no executable; or the status of the
// system error with which it does not open. The outs stay on failure.
QN_API HRESULT QnGetFileExecutableInfo(const WCHAR* path, DWORD* machineOut, DWORD* subsystemOut);

// 1 if a temporary file can be made in the directory; it is deleted again.
QN_API BOOL QnIsDirectoryWritable(const WCHAR* path);

// 1 if nothing is in a directory but "." and "..". 0 also when it cannot be read, for a missing one, and for
// a path of 260 characters or more.
//
// The Recursive form goes through the entries in the order of their names, and looks into the directories
// among them; one that is not empty gives 0. The first file ends the walk with 0. But with `ignoreThumbnails`
// a file "thumbs.db", in any letter case, ends the walk of its directory with 1, whatever follows: hosts rely
// on it. A symbolic link counts as a file, and is not followed.
QN_API BOOL QnIsDirectoryEmpty(const WCHAR* path);
QN_API BOOL QnIsDirectoryEmptyRecursive(const WCHAR* path, BOOL ignoreThumbnails);

// Whether a special folder (CSIDL_*, whose bits 8 to 15 are not looked at) is one that users do not see: 0
// for documents, desktops, the profile and the shared media folders (5, 12, 16, 25, 40, 46, 53, 54, 55),
// otherwise 1.
QN_API BOOL QnIsHiddenFolderByDefault(int folderId);

// The bytes of a disk that this user may still take, or all of them, divided by `unit` if that is not 0; at
// most 0xFFFFFFFF. The disk is that of the path's folder, which is what stands in front of the file name: a
// path that names a folder ends in `\`, and the folder of "x" and "C:x" is the current one. On failure 0, and
// for a path that starts with `\\` 0xFFFFFFFF, which means unknown.
QN_API DWORD QnGetDiskFreeSpace(const WCHAR* path, DWORD unit);
QN_API DWORD QnGetDiskTotalSpace(const WCHAR* path, DWORD unit);

// Writes the free space as users read it, with one decimal: in MB below 1000 of them, in GB from there on, or
// the text for an unknown size, in the library's language. `text` has room for 64 characters. The length; 0
// for a null `text`.
QN_API int QnFormatDiskFreeSpace(const WCHAR* path, WCHAR* text);

// The size of a file in bytes: 0, or QN_E_FILE_OPEN (0x8004E007) with a size of 0. E_INVALIDARG for a null
// `sizeOut`.
QN_API HRESULT QnGetFileSizeByName(const WCHAR* path, LONGLONG* sizeOut);

// The sum of the sizes of all files in a directory and below it, at most the largest LONGLONG. Links are not
// followed and count nothing, nor does a directory below that cannot be read. 0; E_INVALIDARG for a null
// argument or an empty path, with `*sizeOut` as it was; the status of the system error, with a size of 0, if
// the directory cannot be read.
QN_API HRESULT QnGetDirectorySize(const WCHAR* path, LONGLONG* sizeOut);

// A file's time of writing, local or universal, in the MS-DOS form: the date in the high half, the time in
// the low. 0 if the file does not open, and for a year that the form does not have (before 1980).
QN_API DWORD QnDosGetDateTime(const WCHAR* path);
QN_API DWORD QnDosGetDateTimeUTC(const WCHAR* path);

// The local time in two words: (month << 8 | day) << 16 | year, and
// ((hour << 8 | minute) << 8 | second) << 8 | hundredths of the second.
QN_API void QnGetDateTime(DWORD* out);

// Makes a directory with all levels that are missing; `attributes` goes to CreateDirectoryW. 1, also if it is
// there already. 0 for a path of less than 3 characters, one with a doubled `\` behind its root, and one
// whose root (QnGetRootPathFromFilePath) is no directory; then at the first level that cannot be made, a file
// in the way among them. Levels made before that stay. The last error tells why.
QN_API BOOL QnCreateDirectory(const WCHAR* path, void* attributes);

// Makes an empty file of a name that was not there, and writes that to `text`. The name is prefixPath, `\` if
// that is needed, `folder`, a number counted up from 1, and `extension` (with its dot); any of these texts
// may be null. `format` prints the number in the language of qnprint.h ("%d" when null or empty). The short
// form makes "1", "2", ... in `folder`. Of two callers at once, in one process or two, each gets a file of
// its own.
//   0             the file is there, and closed
//   E_INVALIDARG  no text; no part of a name; a format that asks for more than one integer, or prints 260
//                 characters or more ("%0300d"), whatever `size` is; or a name that does not fit in `size`
//                 characters with the terminator. `text` stays as it was
//   others        the status of the system error, or E_FAIL, with an empty `text`. QN_E_FILE_EXISTS
//                 (0x8004E032) when a format comes back to its first name
QN_API HRESULT QnCreateTempFileAndName(const WCHAR* folder, const WCHAR* extension, WCHAR* text, int size);
QN_API HRESULT QnCreateTempFileAndNameEx(const WCHAR* prefixPath, const WCHAR* folder, const WCHAR* extension,
                                         const WCHAR* format, WCHAR* text, int size);

// Deletes the files of a folder that match a pattern: `*` and `?` without regard to case, a name without them
// as it is. With `recurse` also those in all folders below; read-only ones too. Directories stay, and links
// to directories, which are not followed; of another link only the link goes. A name that has no faithful
// form here (ill-formed UTF-8, a backslash) is matched as it is shown, with U+FFFD. Goes on after a failure.
// 1 if nothing failed, even if nothing matched; 0 also for a folder that is missing and for a pattern that is
// empty or has a separator.
QN_API BOOL QnDeleteFiles(const WCHAR* folder, const WCHAR* pattern, BOOL recurse);

// Removes all files and directories below a directory, read-only ones too, and with `removeRoot` the
// directory itself. Links go as such and are not followed: a path that itself is a link, to whatever, only
// loses the link with `removeRoot`, and is refused without. Goes on after a failure. 1 if nothing failed; 0
// also for a missing directory, and for a root and a path whose file name is empty ("folder:"), "." or "..",
// which are refused.
QN_API BOOL QnDeleteDirectoryTree(const WCHAR* path, BOOL removeRoot);

// Moves or renames a folder: `to` is its new path, in a folder that exists. Across file systems it is copied,
// with owners and the user's extended attributes as far as allowed, and removed when the copy is whole: if
// the copy fails nothing has changed, and if the removal fails the copy stays beside what is left of the
// folder. What others add to the folder or change in it while it is copied is not removed: then both remain,
// and the status is 0x8004E16E. A link to a folder moves as a link, within its file system.
//   0             moved
//   E_INVALIDARG  a null or empty path, a root, or a path whose file name is empty ("folder:"), "." or ".."
//   0x80070005    this user may not take the folder out of its place, or something is mounted there, or,
//                 where it has to be copied, within it
//   0x8004E00A    there is no such folder
//   0x8004E16E    a handle that does not share deletion is open on a file in it, or it changed while copied
//   0x8004E170    something is there by the new name
//   0x8004E186    the new path lies below the folder itself
//   others        the status of the system error (0x8004E002: no room for it), or E_FAIL
// QnCanMoveFolder is the same in a test mode: 1 if the folder could leave its place. It makes and deletes a
// temporary file beside the folder.
QN_API HRESULT QnMoveFolder(const WCHAR* from, const WCHAR* to);
QN_API BOOL QnCanMoveFolder(const WCHAR* path);

// Makes the folder "<name>\<major>.<minor>\" or "<name>\", with all levels, below a special folder (CSIDL_*),
// which the shell makes if it is missing, for the user alone, and writes its path, with `\` at the end, to
// `text`. 0; E_INVALIDARG for a null argument or a `size` below 260; E_FAIL for a special folder that this
// system does not have; QN_E_BUFFER_TOO_SMALL (0x8004E03C) for a path of 260 characters or more;
// QN_E_FILE_NAME (0x8004E00D) for a name with a doubled `\`; else the status of the system error. `text`
// stays as it was on failure.
QN_API HRESULT QnGetSpecialFolderVer(WCHAR* text, int size, int folderId, const WCHAR* name, int major,
                                     int minor);
QN_API HRESULT QnGetSpecialFolderNoVer(WCHAR* text, int size, int folderId, const WCHAR* name);

// The folder of an application's presets, the text value "VSTPresetPath" of the registry key
// Software\Marlow Creative Works\<application>\<major>.<minor>\Metrics of the user; `version` has the major
// version from bit 20 up and the minor one in bits 16 to 19. Reading changes nothing: without such a value it
// gives the user's documents (CSIDL_PERSONAL). 0; E_INVALIDARG for a null text, no application, and a text of
// 4096 characters or more;
// QN_E_BUFFER_TOO_SMALL, with `text` as it was, if the path does not fit in `size`; the status of the system
// error if the value cannot be written.
QN_API HRESULT QnGetPresetFolder(WCHAR* text, int size, DWORD version, const WCHAR* application);
QN_API HRESULT QnSetPresetFolder(const WCHAR* text, DWORD version, const WCHAR* application);

// Writes the path of a folder that is not there to `text`, and makes nothing: `name` in `parent`, else the
// name with the first number from 1 up that is free of a directory. 0; E_INVALIDARG for a missing argument,
// an empty parent or a `size` below 260; QN_E_BUFFER_TOO_SMALL if the path does not fit; E_FAIL when 65535
// numbers are taken. `text` stays as it was on failure.
QN_API HRESULT QnGetUniqueSubFolder(const WCHAR* parent, const WCHAR* name, WCHAR* text, int size);

// Compares two names as file managers list them: without regard to case, runs of digits by their value.
// Negative, 0 or positive. Null is the empty text.
QN_API int QnFilenameLogicalCompare(const WCHAR* a, const WCHAR* b);

// ReadFile of qn/platform/file.h.
QN_API BOOL QnReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* got, void* overlapped);
}
