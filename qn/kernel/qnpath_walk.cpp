#include "qn/kernel/qnpath_walk_internal.h"

#include <memory>

namespace qn {

std::u16string JoinPath(std::u16string_view folder, std::u16string_view name) {
  std::u16string joined(folder);
  if (!folder.empty() && !IsSeparator(folder.back())) joined += '\\';
  return joined.append(name);
}

std::u16string_view TrimPath(std::u16string_view path) {
  while (!path.empty() && IsSeparator(path.back())) path.remove_suffix(1);
  return path;
}

int CopyWhole(std::u16string_view whole, WCHAR* text, int size) {
  if (text && size > 0 && whole.size() < static_cast<size_t>(size)) {
    text[whole.copy(text, whole.size())] = 0;
  }
  return static_cast<int>(whole.size());
}

bool ListFolder(std::u16string_view folder, const WCHAR* pattern, std::vector<FolderEntry>* entries) {
  const auto close = [](HANDLE find) { FindClose(find); };
  WIN32_FIND_DATAW data;
  const HANDLE find = FindFirstFileW(JoinPath(folder, pattern).c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
  const std::unique_ptr<void, decltype(close)> closer(find, close);
  do {
    const std::u16string_view name = data.cFileName;
    if (name == W(".") || name == W("..")) continue;
    const auto size = static_cast<LONGLONG>(ULONGLONG{data.nFileSizeHigh} << 32 | data.nFileSizeLow);
    entries->push_back({std::u16string(name), data.dwFileAttributes, size});
  } while (FindNextFileW(find, &data));
  return GetLastError() == ERROR_NO_MORE_FILES;
}

}  // namespace qn
