// What a path's text says: its parts, whether a name is valid or matches a pattern. And what a file's first
// bytes say: whether it is an executable.
#include <cstring>

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_internal.h"
#include "qn/platform/file.h"
#include "qn/platform/shell.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnstatus.h"
#include "qn/text/qnnumber_internal.h"

namespace {

bool IsSpace(WCHAR character) {
  return qn::IsWhiteSpace(character);
}

// A byte beyond ASCII is part of a character, never white space.
bool IsSpace(char byte) {
  return (byte & 0x80) == 0 && qn::IsWhiteSpace(static_cast<WCHAR>(byte));
}

template <typename Char>
const Char* FileName(const Char* path) {
  if (!path) return nullptr;
  const Char* name = path;
  for (; *path; ++path) {
    if (*path == '\\' || *path == '/' || *path == ':') name = path + 1;
  }
  return name;
}

template <typename Char>
const Char* Extension(const Char* path) {
  if (!path) return nullptr;
  const Char* dot = nullptr;
  const Char* at = FileName(path);
  for (; *at; ++at) {
    if (*at == '.') dot = at;
    if (IsSpace(*at)) dot = nullptr;
  }
  return dot ? dot : at;
}

// Hosts rely on wild cards that look only at the low byte of a character. The end of a pattern is none.
bool IsSame(WCHAR pattern, WCHAR character) {
  return pattern && ((pattern ^ character) & 0xFF) == 0;
}

template <typename Value>
Value Load(const BYTE* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

// A 16-bit field of the headers, or 0 where the bytes that were read end before it.
DWORD HeaderField(const BYTE* bytes, DWORD count, uint64_t offset) {
  return offset + sizeof(WORD) <= count ? Load<WORD>(bytes + offset) : 0;
}

}  // namespace

const char* QnGetFileNamePtrA(const char* path) {
  return FileName(path);
}

const WCHAR* QnGetFileNamePtrW(const WCHAR* path) {
  return FileName(path);
}

const char* QnGetFileNameExtensionPtrA(const char* path) {
  return Extension(path);
}

const WCHAR* QnGetFileNameExtensionPtrW(const WCHAR* path) {
  return Extension(path);
}

int QnGetFileNameWithoutPathOrExtension(const WCHAR* path, WCHAR* text, int size) {
  return path ? qn::CopyCut({FileName(path), Extension(path)}, text, size) : qn::CopyCut({}, text, size);
}

int QnGetPathNameFromFilePath(const WCHAR* path, WCHAR* text, int size) {
  const std::u16string_view whole(path ? path : W(""));
  return qn::CopyCut(whole.substr(0, whole.find_last_of(W(":\\")) + 1), text, size);
}

int QnGetRootPathFromFilePath(const WCHAR* path, WCHAR* text, int size) {
  const std::u16string_view whole(path ? path : W(""));
  size_t end = whole.find('\\');
  if (whole.starts_with(W("\\\\"))) {
    end = whole.find('\\', 2);
    if (end != whole.npos) end = whole.find('\\', end + 1);
  }
  return qn::CopyCut(whole.substr(0, end + 1), text, size);  // npos + 1: no root
}

BOOL QnValidateFileName(WCHAR* name, BOOL repair) {
  if (!name) return 0;
  constexpr std::u16string_view kInvalid = W("\n\r\"*/:<>?\\|");
  BOOL valid = 1;
  for (; *name; ++name) {
    const bool lastOfName = !name[1] && (*name == ' ' || *name == '.');
    if (!lastOfName && kInvalid.find(*name) == kInvalid.npos) continue;
    valid = 0;
    if (!repair) break;
    *name = '_';
  }
  return valid;
}

BOOL QnIsMatchWildCard(const WCHAR* pattern, const WCHAR* name) {
  if (!pattern || !name) return 0;
  if (pattern[0] == '*' && !pattern[1]) return 1;
  while (*name) {
    if (!*pattern) return name[0] == '.' && !name[1];
    const WCHAR wanted = *pattern++;
    if (wanted == '*') {
      // It takes the least that it can and never tries again, so "*ab" does not match "aab".
      while (*name && *name != '.' && !IsSame(*pattern, *name)) ++name;
    } else if (wanted == '?' || IsSame(wanted, *name)) {
      ++name;
    } else {
      return 0;
    }
  }
  return !*pattern || *pattern == '*' || (pattern[0] == '.' && !pattern[1]);
}

BOOL QnIsFileExecutable(HANDLE file, DWORD* machineOut, DWORD* subsystemOut) {
  constexpr DWORD kOffsetField = 0x3C;
  constexpr DWORD kSignature = 0x00004550;  // "PE\0\0"
  constexpr DWORD kMachine = 4;
  constexpr DWORD kSubsystem = 24 + 68;  // behind signature and file header, in the optional header
  BYTE bytes[4096];
  DWORD count = 0;
  SetFilePointer(file, 0, nullptr, FILE_BEGIN);
  const BOOL read = ReadFile(file, bytes, sizeof(bytes), &count, nullptr);
  SetFilePointer(file, 0, nullptr, FILE_BEGIN);
  if (!read || count < kOffsetField + sizeof(DWORD) || bytes[0] != 'M' || bytes[1] != 'Z') return 0;
  const uint64_t header = Load<DWORD>(bytes + kOffsetField);
  if (header + sizeof(kSignature) > count || Load<DWORD>(bytes + header) != kSignature) return 0;
  if (machineOut) *machineOut = HeaderField(bytes, count, header + kMachine);
  if (subsystemOut) *subsystemOut = HeaderField(bytes, count, header + kSubsystem);
  return 1;
}

HRESULT QnGetFileExecutableInfo(const WCHAR* path, DWORD* machineOut, DWORD* subsystemOut) {
  if (!path) return E_INVALIDARG;
  const HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return QnErrorHandler_TranslateWin32Error(GetLastError());
  const BOOL executable = QnIsFileExecutable(file, machineOut, subsystemOut);
  CloseHandle(file);
  return executable ? S_OK : QN_E_FILE_FORMAT;
}

BOOL QnIsHiddenFolderByDefault(int folderId) {
  switch (folderId & ~0xFF00) {  // flags that ask for more than the folder's name
    case CSIDL_PERSONAL:
    case CSIDL_MYDOCUMENTS:
    case CSIDL_DESKTOPDIRECTORY:
    case CSIDL_COMMON_DESKTOPDIRECTORY:
    case CSIDL_PROFILE:
    case CSIDL_COMMON_DOCUMENTS:
    case CSIDL_COMMON_MUSIC:
    case CSIDL_COMMON_PICTURES:
    case CSIDL_COMMON_VIDEO:
      return 0;
    default:
      return 1;
  }
}
