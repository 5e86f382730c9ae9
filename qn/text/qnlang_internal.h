// What the files of the language handle share.
#pragma once

#include <string_view>

#include "qn/text/qnlang.h"

namespace qn {

inline constexpr WCHAR kNoText[] = W("");
inline constexpr DWORD kEnglish = 1033;
inline constexpr DWORD kJapanese = 1041;

inline DWORD PrimaryLanguage(DWORD lcid) {
  return lcid & 0x3FF;
}

// Holds a handle's lock.
class LanguageGuard {
 public:
  explicit LanguageGuard(HQNLANG language) : lock_(&language->lock) { EnterCriticalSection(lock_); }
  ~LanguageGuard() { LeaveCriticalSection(lock_); }
  LanguageGuard(const LanguageGuard&) = delete;
  LanguageGuard& operator=(const LanguageGuard&) = delete;

 private:
  CRITICAL_SECTION* lock_;
};

// Copies a text with terminator to a buffer of `size` characters, cut to it. The length stored; 0 with
// nothing stored for a null buffer or a size below 1.
int CopyText(std::u16string_view text, WCHAR* buffer, int size);

// The characters of a string id in a module's tables as they stand there, with or without terminator. Empty
// when there is none.
std::u16string_view FindStringResource(HMODULE module, UINT id, DWORD lcid);

}  // namespace qn
