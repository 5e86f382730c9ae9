// The user's folders: special ones, the one of presets, and the order in which names are listed.
#include <exception>

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_walk_internal.h"
#include "qn/platform/registry.h"
#include "qn/platform/shell.h"
#include "qn/text/qnprint.h"

using namespace qn;

namespace {

constexpr WCHAR kPresetValue[] = W("VSTPresetPath");
constexpr DWORD kLongestPath = 4096;  // of the system, with its terminator

// Makes a folder below a special one. `below` ends with a separator, and so does the result.
HRESULT MakeSpecialFolder(WCHAR* text, int folderId, std::u16string_view below) {
  WCHAR special[MAX_PATH];
  if (!SHGetSpecialFolderPathW(nullptr, special, folderId, FALSE)) return E_FAIL;
  while (!below.empty() && IsSeparator(below.front())) below.remove_prefix(1);
  const std::u16string path = JoinPath(special, below);
  if (path.size() >= MAX_PATH) return QN_E_BUFFER_TOO_SMALL;
  // The special folder itself by the shell, which knows for whom it is.
  const bool made = SHGetSpecialFolderPathW(nullptr, special, folderId, TRUE) != FALSE;
  if (!made || !QnCreateDirectory(path.c_str(), nullptr)) return FailureOf(GetLastError());
  CopyWhole(path, text, MAX_PATH);
  return S_OK;
}

template <typename... Arguments>
HRESULT MakeSpecialFolder(WCHAR* text, int size, int folderId, const WCHAR* name, const WCHAR* format,
                          Arguments... versions) try {
  if (!text || size < static_cast<int>(MAX_PATH) || !name) return E_INVALIDARG;
  WCHAR below[MAX_PATH];
  if (QnCchPrintF(below, MAX_PATH, nullptr, format, name, versions...) != S_OK) return QN_E_BUFFER_TOO_SMALL;
  return MakeSpecialFolder(text, folderId, below);
} catch (const std::exception&) {
  return E_OUTOFMEMORY;
}

// False when the name is missing or the path too long: a cut path would be another application's.
bool MakeMetricsPath(DWORD version, const WCHAR* application, WCHAR (&path)[MAX_PATH]) {
  return application && *application &&
         QnCchPrintF(path, MAX_PATH, nullptr, W("Software\\Marlow Creative Works\\%s\\%d.%d\\Metrics"),
                     application, version >> 20, version >> 16 & 15) == S_OK;
}

// Reads a text, with or without its terminator. False when there is none, or none that is a path.
template <DWORD kSize>
bool ReadText(const WCHAR* keyPath, const WCHAR* name, WCHAR (&text)[kSize]) {
  HKEY key;
  DWORD type = REG_NONE;
  DWORD bytes = (kSize - 1) * sizeof(WCHAR);
  if (RegOpenKeyExW(HKEY_CURRENT_USER, keyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  const LSTATUS error = RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &bytes);
  RegCloseKey(key);
  if (error != ERROR_SUCCESS || type != REG_SZ) return false;
  text[bytes / sizeof(WCHAR)] = 0;
  return true;
}

}  // namespace

HRESULT QnGetSpecialFolderVer(WCHAR* text, int size, int folderId, const WCHAR* name, int major, int minor) {
  return MakeSpecialFolder(text, size, folderId, name, W("%s\\%d.%d\\"), major, minor);
}

HRESULT QnGetSpecialFolderNoVer(WCHAR* text, int size, int folderId, const WCHAR* name) {
  return MakeSpecialFolder(text, size, folderId, name, W("%s\\"));
}

HRESULT QnGetPresetFolder(WCHAR* text, int size, DWORD version, const WCHAR* application) {
  WCHAR key[MAX_PATH];
  WCHAR folder[kLongestPath];
  if (!text || size <= 0 || !MakeMetricsPath(version, application, key)) return E_INVALIDARG;
  if (!ReadText(key, kPresetValue, folder) &&
      !SHGetSpecialFolderPathW(nullptr, folder, CSIDL_PERSONAL, FALSE)) {
    return E_FAIL;
  }
  return CopyWhole(folder, text, size) < size ? S_OK : QN_E_BUFFER_TOO_SMALL;
}

HRESULT QnSetPresetFolder(const WCHAR* text, DWORD version, const WCHAR* application) {
  WCHAR path[MAX_PATH];
  HKEY key;
  if (!text || std::u16string_view(text).size() >= kLongestPath ||
      !MakeMetricsPath(version, application, path)) {
    return E_INVALIDARG;
  }
  LSTATUS error = RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
  if (error == ERROR_SUCCESS) {
    const size_t bytes = (std::u16string_view(text).size() + 1) * sizeof(WCHAR);
    error = RegSetValueExW(key, kPresetValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                           static_cast<DWORD>(bytes));
    RegCloseKey(key);
  }
  return error == ERROR_SUCCESS ? S_OK : FailureOf(static_cast<DWORD>(error));
}

int QnFilenameLogicalCompare(const WCHAR* a, const WCHAR* b) {
  return StrCmpLogicalW(a ? a : W(""), b ? b : W(""));
}

BOOL QnReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* got, void* overlapped) {
  return ReadFile(file, buffer, bytes, got, overlapped);
}
