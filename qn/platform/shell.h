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

// The path of a folder of the user or the machine, without `\` at its end, in a room of MAX_PATH characters.
// The user's are those of the XDG directories (the environment, $XDG_CONFIG_HOME/user-dirs.dirs, the
// defaults). With `create`, or CSIDL_FLAG_CREATE, it is made if it is missing. `owner` is not used. Zero,
// with an empty path, for a folder that this system does not have, and when it does not fit or cannot be
// made.
QN_API BOOL SHGetSpecialFolderPathW(HWND owner, WCHAR* path, int folder, BOOL create);

// Compares two names as file managers list them: without regard to case, runs of digits by their value.
// Negative, 0 or positive.
QN_API int StrCmpLogicalW(const WCHAR* a, const WCHAR* b);

}  // namespace qnplatform
