// What the path functions that touch files share: joining paths, fetching texts, statuses of failures.
#pragma once

#include <string>
#include <string_view>

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

}  // namespace qn
