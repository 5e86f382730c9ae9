// The desktop's folders, and the order in which it lists names.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr int CSIDL_DESKTOP = 0x00;
constexpr int CSIDL_PERSONAL = 0x05;  // documents
constexpr int CSIDL_MYDOCUMENTS = 0x0C;
constexpr int CSIDL_MYMUSIC = 0x0D;
constexpr int CSIDL_MYVIDEO = 0x0E;
constexpr int CSIDL_DESKTOPDIRECTORY = 0x10;
constexpr int CSIDL_TEMPLATES = 0x15;
constexpr int CSIDL_COMMON_DESKTOPDIRECTORY = 0x19;
constexpr int CSIDL_APPDATA = 0x1A;
constexpr int CSIDL_LOCAL_APPDATA = 0x1C;
constexpr int CSIDL_COMMON_APPDATA = 0x23;
constexpr int CSIDL_MYPICTURES = 0x27;
constexpr int CSIDL_PROFILE = 0x28;
constexpr int CSIDL_COMMON_DOCUMENTS = 0x2E;
constexpr int CSIDL_COMMON_MUSIC = 0x35;
constexpr int CSIDL_COMMON_PICTURES = 0x36;
constexpr int CSIDL_COMMON_VIDEO = 0x37;
constexpr int CSIDL_FLAG_CREATE = 0x8000;

// The path of a folder of the user or the machine, without `\` at its end, in a room of MAX_PATH characters:
//   DESKTOP, DESKTOPDIRECTORY, PERSONAL, MYDOCUMENTS, MYMUSIC, MYVIDEO, MYPICTURES, TEMPLATES
//                  what $XDG_CONFIG_HOME/user-dirs.dirs names, else Desktop, Documents, Documents, Music,
//                  Videos, Pictures, Templates in the home folder
//   APPDATA        $XDG_CONFIG_HOME, else .config in the home folder
//   LOCAL_APPDATA  $XDG_DATA_HOME, else .local\share in the home folder
//   COMMON_APPDATA the first of $XDG_DATA_DIRS, else \usr\local\share
//   PROFILE        the home folder: $HOME, else that of the user's account
// Values that are no absolute paths do not count. All are read anew at each call.
//
// With `create`, or CSIDL_FLAG_CREATE in `folder`, missing levels are made, for the user's folders with
// access for the user alone; without it the folder may be missing. Bits 8 and up of `folder` are otherwise
// not read, `owner` not at all. Zero, with an empty path, for a folder that this system does not have (the
// other COMMON ones and unknown ids), and when it does not fit or cannot be made.
QN_API BOOL SHGetSpecialFolderPathW(HWND owner, WCHAR* path, int folder, BOOL create);

// Compares two names as file managers list them: by lstrcmpiW, but with runs of the digits 0 to 9 by their
// value, whatever their length; names that differ in leading zeros alone by lstrcmpiW. Negative, 0 or
// positive; 0 only for names that lstrcmpiW does not tell apart.
QN_API int StrCmpLogicalW(const WCHAR* a, const WCHAR* b);

}  // namespace qnplatform
