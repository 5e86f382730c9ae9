// Deleting files and trees, moving folders.
#include <exception>

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_walk_internal.h"
#include "qn/platform/tree_internal.h"

using namespace qn;

namespace {

constexpr HRESULT kFilesInUse = MakeStatus(0x8004E16E);
constexpr HRESULT kMovedBelowItself = MakeStatus(0x8004E186);

// The path without separators at its end if it names an entry of some directory, else empty: a root, "." and
// "..", which could be one, are nothing to remove or move. Without the separator, a link stands for itself.
std::u16string EntryPath(const WCHAR* path) {
  const std::u16string trimmed(TrimPath(path ? path : W("")));
  const std::u16string_view name = QnGetFileNamePtrW(trimmed.c_str());
  return name.empty() || name == W(".") || name == W("..") ? std::u16string() : trimmed;
}

std::u16string FullEntryPath(const std::u16string& path) {
  const std::u16string full = FetchText(
      [&path](DWORD size, WCHAR* text) { return GetFullPathNameW(path.c_str(), size, text, nullptr); });
  return std::u16string(TrimPath(full));
}

HRESULT MoveFailure() {
  switch (GetLastError()) {
    case ERROR_SHARING_VIOLATION:
      return kFilesInUse;
    case ERROR_INVALID_PARAMETER:  // as the system refuses it, when a link hid it from the look at the paths
      return kMovedBelowItself;
    case ERROR_FILE_TOO_LARGE:  // the disk has no room for such a file
      return FailureOf(ERROR_DISK_FULL);
    default:
      return FailureOf(GetLastError());
  }
}

// Moves a folder, or with a null `to` only tells whether it could be moved.
HRESULT MoveOrTest(const WCHAR* from, const WCHAR* to) {
  const std::u16string source = EntryPath(from);
  const std::u16string target = EntryPath(to);
  if (source.empty() || (to && target.empty())) return E_INVALIDARG;
  const DWORD attributes = GetFileAttributesW(source.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return FailureOf(GetLastError());
  if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return FailureOf(ERROR_PATH_NOT_FOUND);
  if (to && FullEntryPath(target).starts_with(FullEntryPath(source) + W("\\"))) return kMovedBelowItself;
  if (!(attributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsTreeInUse(source.c_str())) return kFilesInUse;
  if (IsTreeBound(source.c_str())) return E_ACCESSDENIED;
  if (to) {
    if (MoveFileW(source.c_str(), target.c_str())) return S_OK;
    if (GetLastError() != ERROR_NOT_SAME_DEVICE) return MoveFailure();
  }
  // Before a copy is made, as in the test mode: what could not be removed is not copied either.
  const size_t nameAt = static_cast<size_t>(QnGetFileNamePtrW(source.c_str()) - source.c_str());
  const std::u16string parent = source.substr(0, nameAt) + W(".");
  if (!QnIsDirectoryWritable(parent.c_str())) return E_ACCESSDENIED;
  return !to || MoveTree(source.c_str(), target.c_str()) ? S_OK : MoveFailure();
}

}  // namespace

BOOL QnDeleteFiles(const WCHAR* folder, const WCHAR* pattern, BOOL recurse) try {
  if (!folder || !*folder || !pattern || !*pattern) return FALSE;
  // Nothing outside the folder matches.
  if (std::u16string_view(pattern).find_first_of(W("\\/")) != std::u16string_view::npos) return FALSE;
  return DeleteMatches(folder, pattern, recurse != FALSE);
} catch (const std::exception&) {
  return FALSE;
}

BOOL QnDeleteDirectoryTree(const WCHAR* path, BOOL removeRoot) try {
  const std::u16string entry = EntryPath(path);
  return !entry.empty() && RemoveTree(entry.c_str(), removeRoot != FALSE);
} catch (const std::exception&) {
  return FALSE;
}

HRESULT QnMoveFolder(const WCHAR* from, const WCHAR* to) try {
  return to ? MoveOrTest(from, to) : E_INVALIDARG;
} catch (const std::exception&) {
  return E_OUTOFMEMORY;
}

BOOL QnCanMoveFolder(const WCHAR* path) try {
  return MoveOrTest(path, nullptr) == S_OK;
} catch (const std::exception&) {
  return FALSE;
}
