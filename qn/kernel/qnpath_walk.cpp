#include "qn/kernel/qnpath_walk_internal.h"

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

}  // namespace qn
