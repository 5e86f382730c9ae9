// Changing a path in its place, and exchanging the folder that paths start with.
#include <algorithm>
#include <string>
#include <string_view>

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_internal.h"
#include "qn/platform/locale.h"
#include "qn/platform/locale_internal.h"
#include "qn/text/qnnumber_internal.h"

namespace {

using Traits = std::char_traits<WCHAR>;
using std::u16string_view;

constexpr int kLongestPath = static_cast<int>(MAX_PATH) - 1;

// The length of a path in a buffer of `size` characters; -1 if it does not end in there.
int LengthWithin(const WCHAR* path, int size) {
  if (!path || size < 1) return -1;
  const WCHAR* const end = Traits::find(path, static_cast<size_t>(size), 0);
  return end ? static_cast<int>(end - path) : -1;
}

bool IsSameLetter(WCHAR a, WCHAR b) {
  return qn::ToUpper(a) == qn::ToUpper(b);
}

// Where "_12" at the end of the name in front of the extension starts; `end` without it.
const WCHAR* SuffixStart(const WCHAR* name, const WCHAR* end) {
  const WCHAR* digits = end;
  while (digits > name && qn::IsDigit(digits[-1])) --digits;
  return digits < end && digits > name && digits[-1] == '_' ? digits - 1 : end;
}

}  // namespace

int QnAddSlashToPathName(WCHAR* path, int size) {
  const int length = LengthWithin(path, size);
  if (length < 0) return 0;
  if ((length > 0 && path[length - 1] == '\\') || length + 1 >= size) return length;
  path[length] = '\\';
  path[length + 1] = 0;
  return length + 1;
}

int QnRemoveSlashFromPathNameEnd(WCHAR* path, int size) {
  const int length = LengthWithin(path, size);
  if (length <= 0) return 0;
  if (path[length - 1] != '\\') return length;
  path[length - 1] = 0;
  return length - 1;
}

int QnAppendToPathName(WCHAR* path, int size, const WCHAR* name, const WCHAR* extension) {
  const int length = LengthWithin(path, size);
  if (length < 0) return 0;
  u16string_view added(name ? name : W(""));
  if (added.starts_with('\\')) added.remove_prefix(1);
  // An empty path stands for the current folder: a `\` would lead to the root.
  const bool slash = length > 0 && path[length - 1] != '\\';
  const size_t start = static_cast<size_t>(length) + slash;
  const size_t total = start + added.size();
  if (total >= static_cast<size_t>(size)) return 0;
  Traits::move(path + start, added.data(), added.size());
  if (slash) path[length] = '\\';
  path[total] = 0;
  if (!extension) return static_cast<int>(total);
  const int extended = QnReplaceExtensionOnPathName(path, size, extension);
  if (extended == 0) path[length] = 0;
  return extended;
}

int QnAddExtensionToPathName(WCHAR* path, int size, const WCHAR* extension) {
  const int length = LengthWithin(path, size);
  if (length < 0 || !extension) return 0;
  const auto withoutDot = [](const WCHAR* text) { return text + (*text == '.'); };
  const WCHAR* const present = QnGetFileNameExtensionPtrW(path);
  if (lstrcmpiW(withoutDot(present), withoutDot(extension)) == 0) return length;
  return QnReplaceExtensionOnPathName(path, size, extension);
}

int QnReplaceExtensionOnPathName(WCHAR* path, int size, const WCHAR* extension) {
  return QnReplaceExtensionOnPathNameEx(path, size, extension, FALSE);
}

int QnReplaceExtensionOnPathNameEx(WCHAR* path, int size, const WCHAR* extension, BOOL stripSuffix) {
  const int length = LengthWithin(path, size);
  if (length < 0 || !extension) return 0;
  const WCHAR* const name = QnGetFileNamePtrW(path);
  if (!*name) return length;
  const WCHAR* end = QnGetFileNameExtensionPtrW(path);
  if (stripSuffix) end = SuffixStart(name, end);
  const u16string_view added(extension);
  const bool dot = !added.empty() && added[0] != '.';
  const size_t start = static_cast<size_t>(end - path);
  const size_t total = start + dot + added.size();
  if (total >= static_cast<size_t>(size)) return 0;
  Traits::move(path + start + dot, added.data(), added.size());
  if (dot) path[start] = '.';
  path[total] = 0;
  return static_cast<int>(total);
}

const WCHAR* QnGetFileNamePtrRelative(const WCHAR* path, const WCHAR* base) {
  if (!path || !base) return base;
  const WCHAR* left = path + Traits::length(path);
  const WCHAR* place = base + Traits::length(base);
  while (left > path && place > base && IsSameLetter(left[-1], place[-1])) {
    --left;
    --place;
  }
  // The character that differs counts: if it is a `\`, what is behind it is common as a whole name.
  if (place > base) --place;
  while (*place && *place != '\\') ++place;
  while (*place == '\\') ++place;
  return place;
}

int QnGetBasePathRelative(const WCHAR* path, const WCHAR* base, WCHAR* text, int size) {
  const WCHAR* const end = QnGetFileNamePtrRelative(path, base);
  const u16string_view folder(base, static_cast<size_t>(end - base));
  const int length = qn::CopyCut(folder, text, size);
  if (folder.empty() || folder.ends_with('\\')) return length;
  if (text && length + 1 < size) Traits::copy(text + length, W("\\"), 2);
  return length + 1;
}

HRESULT QnReplaceBasePathRelative(const WCHAR* path, const WCHAR* oldBase, const WCHAR* newBase, WCHAR* text,
                                  int size) {
  if (!path || !oldBase || !newBase || !text || size < 1) return E_INVALIDARG;
  const u16string_view whole(path), old(oldBase), start(newBase);
  const size_t room = static_cast<size_t>(std::min(size - 1, kLongestPath));
  const bool isPrefix =
      old.size() <= whole.size() && std::equal(old.begin(), old.end(), whole.begin(), IsSameLetter);
  if (!isPrefix || start.size() + whole.size() - old.size() > room) {
    text[0] = 0;
    return E_FAIL;
  }
  // The rest goes first: the path may be changed in place.
  const u16string_view rest = whole.substr(old.size());
  Traits::move(text + start.size(), rest.data(), rest.size());
  Traits::move(text, start.data(), start.size());
  text[start.size() + rest.size()] = 0;
  return S_OK;
}

BOOL QnDirectoryUpOneLevel(WCHAR* path, int size) {
  const int length = LengthWithin(path, size);
  if (length < 4 || length > kLongestPath) return 0;
  WCHAR* const last = path + length - 1;
  const bool slash = *last == '\\';
  if (slash) *last = 0;
  WCHAR* const name = path + (QnGetFileNamePtrW(path) - path);
  if (*name) {
    *name = 0;
  } else if (slash && last[-1] != '\\') {
    *last = '\\';  // a drive alone keeps its root
  }
  return 1;
}
