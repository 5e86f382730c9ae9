// What the path functions that touch files share: joining paths, listing folders, statuses of failures.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qn/platform/directory.h"
#include "qn/settings/qnerror.h"

namespace qn {

constexpr bool IsSeparator(WCHAR character) {
  return character == '\\' || character == '/';
}

// Both with one separator between them; the second alone when the first is empty.
std::u16string JoinPath(std::u16string_view folder, std::u16string_view name);

// The path without separators at its end.
std::u16string_view TrimPath(std::u16string_view path);

// What a platform function `get(room, text)` gives that returns the length, the size needed or 0.
template <typename Get>
std::u16string FetchText(Get get) {
  std::u16string text(MAX_PATH, 0);
  for (;;) {
    const DWORD length = get(static_cast<DWORD>(text.size()), text.data());
    const bool fits = length < text.size();
    text.resize(length);
    if (fits) return text;
  }
}

// Copies a whole text if it fits in `size` characters with the terminator; its length in any case.
int CopyWhole(std::u16string_view whole, WCHAR* text, int size);

// The status of a system error, a failure in any case.
inline HRESULT FailureOf(DWORD error) {
  const HRESULT status = QnErrorHandler_TranslateWin32Error(error);
  return FAILED(status) ? status : E_FAIL;
}

struct FolderEntry {
  std::u16string name;
  DWORD attributes;
  LONGLONG size;  // bytes

  bool IsLink() const { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }

  // A link to a directory is none: what is done to a tree does not leave it.
  bool IsFolder() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !IsLink(); }
};

// Lists the entries of a folder that match, all but "." and "..". The folder is closed again before anything
// is done to them, so that a deep tree does not run out of handles. False with the last error when it cannot
// be read; that nothing matches is no failure.
bool ListFolder(std::u16string_view folder, const WCHAR* pattern, std::vector<FolderEntry>* entries);

// Calls `visit(folder, entries)` for a folder and all folders below it. False, at the end, when one of them
// could not be read, which is then not visited.
template <typename Visit>
bool WalkFolders(std::u16string_view root, Visit visit) {
  bool complete = true;
  std::vector<std::u16string> pending(1, std::u16string(root));
  while (!pending.empty()) {
    const std::u16string folder = std::move(pending.back());
    pending.pop_back();
    std::vector<FolderEntry> entries;
    if (!ListFolder(folder, W("*"), &entries)) {
      complete = false;
      continue;
    }
    for (const FolderEntry& entry : entries) {
      if (entry.IsFolder()) pending.push_back(JoinPath(folder, entry.name));
    }
    visit(folder, entries);
  }
  return complete;
}

}  // namespace qn
