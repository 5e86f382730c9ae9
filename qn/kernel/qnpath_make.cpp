// Making directories, temporary files and names for new folders.
#include <exception>
#include <utility>

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_walk_internal.h"
#include "qn/text/qnprint_internal.h"

using namespace qn;

namespace {

bool IsDirectory(const WCHAR* path) {
  const DWORD attributes = GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Another process may make the same directory at the same time.
bool MakeLevel(const WCHAR* path, void* attributes) {
  if (IsDirectory(path) || CreateDirectoryW(path, attributes)) return true;
  return GetLastError() == ERROR_ALREADY_EXISTS && IsDirectory(path);
}

BOOL Refuse(DWORD error) {
  SetLastError(error);
  return FALSE;
}

bool IsMissing(const WCHAR* text) {
  return !text || !*text;
}

// The name of round `number`. False when it does not fit in `size` characters.
bool MakeName(const std::u16string& base, const WCHAR* format, LONGLONG number, const WCHAR* extension,
              int size, std::u16string* name) {
  WCHAR digits[MAX_PATH];
  if (QnCchPrintF(digits, MAX_PATH, nullptr, format, number) != S_OK) return false;
  *name = base + digits;
  if (extension) *name += extension;
  return name->size() < static_cast<size_t>(size);
}

}  // namespace

BOOL QnCreateDirectory(const WCHAR* path, void* attributes) try {
  if (!path) return Refuse(ERROR_INVALID_PARAMETER);
  std::u16string whole = path;
  if (whole.size() < 3) return Refuse(ERROR_INVALID_NAME);
  std::u16string root(whole.size() + 1, 0);
  const int rootLength = QnGetRootPathFromFilePath(path, root.data(), static_cast<int>(root.size()));
  if (rootLength <= 0 || !IsDirectory(root.c_str())) return Refuse(ERROR_PATH_NOT_FOUND);
  const auto start = static_cast<size_t>(rootLength);
  if (whole.find(W("\\\\"), start - 1) != whole.npos) return Refuse(ERROR_INVALID_NAME);
  for (size_t end = start; end <= whole.size(); ++end) {
    if (end < whole.size() && !IsSeparator(whole[end])) continue;
    const WCHAR separator = std::exchange(whole[end], W('\0'));
    const bool made = MakeLevel(whole.c_str(), attributes);
    whole[end] = separator;
    if (!made) return FALSE;
  }
  return TRUE;
} catch (const std::exception&) {
  return FALSE;
}

HRESULT QnCreateTempFileAndName(const WCHAR* folder, const WCHAR* extension, WCHAR* text, int size) {
  return QnCreateTempFileAndNameEx(folder, nullptr, extension, nullptr, text, size);
}

HRESULT QnCreateTempFileAndNameEx(const WCHAR* prefixPath, const WCHAR* folder, const WCHAR* extension,
                                  const WCHAR* format, WCHAR* text, int size) try {
  if (!text || size <= 0 || (IsMissing(prefixPath) && IsMissing(folder) && IsMissing(extension))) {
    return E_INVALIDARG;
  }
  if (IsMissing(format)) format = W("%d");
  if (!FormatTakes(format, 1, 0)) return E_INVALIDARG;
  const std::u16string base = JoinPath(prefixPath ? prefixPath : W(""), folder ? folder : W(""));
  DWORD error = ERROR_FILE_EXISTS;
  std::u16string first, name;
  for (LONGLONG number = 1; number <= 0x7FFFFFFF; ++number) {
    if (!MakeName(base, format, number, extension, size, &name)) return E_INVALIDARG;
    // A format without a number, or with a few digits of it alone, comes back to its first name.
    if (name == first) break;
    if (number == 1) first = name;
    const HANDLE file = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
      CloseHandle(file);
      CopyWhole(name, text, size);
      return S_OK;
    }
    error = GetLastError();
    if (error != ERROR_FILE_EXISTS && error != ERROR_SHARING_VIOLATION) break;
  }
  *text = 0;
  return FailureOf(error);
} catch (const std::exception&) {
  return E_OUTOFMEMORY;
}

HRESULT QnGetUniqueSubFolder(const WCHAR* parent, const WCHAR* name, WCHAR* text, int size) try {
  if (IsMissing(parent) || !name || !text || size < static_cast<int>(MAX_PATH)) return E_INVALIDARG;
  const std::u16string base = JoinPath(parent, name);
  std::u16string candidate = base;
  for (DWORD number = 1; number <= 0x10000; ++number) {
    if (candidate.size() >= static_cast<size_t>(size)) return QN_E_BUFFER_TOO_SMALL;
    if (!IsDirectory(candidate.c_str())) {
      CopyWhole(candidate, text, size);
      return S_OK;
    }
    WCHAR digits[16];
    QnCchPrintF(digits, 16, nullptr, W("%lu"), number);
    candidate = base + digits;
  }
  return E_FAIL;
} catch (const std::exception&) {
  return E_OUTOFMEMORY;
}
