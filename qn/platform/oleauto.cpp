#include "qn/platform/oleauto.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Room in front of the characters that keeps them aligned; the length is its last four bytes.
constexpr size_t kPrefix = 8;
constexpr size_t kMaxCharacters = (0xFFFFFFFF - kPrefix - sizeof(WCHAR)) / sizeof(WCHAR);

}  // namespace

inline namespace qnplatform {

BSTR SysAllocString(const WCHAR* text) {
  if (!text) return nullptr;
  const size_t length = std::char_traits<WCHAR>::length(text);
  return length > kMaxCharacters ? nullptr : SysAllocStringLen(text, static_cast<UINT>(length));
}

BSTR SysAllocStringLen(const WCHAR* text, UINT length) {
  if (length > kMaxCharacters) return nullptr;
  const size_t bytes = length * sizeof(WCHAR);
  auto* const block = static_cast<char*>(std::malloc(kPrefix + bytes + sizeof(WCHAR)));
  if (!block) return nullptr;
  const auto counted = static_cast<DWORD>(bytes);
  std::memcpy(block + kPrefix - sizeof counted, &counted, sizeof counted);
  auto* const string = reinterpret_cast<BSTR>(block + kPrefix);
  if (text) std::memcpy(string, text, bytes);
  string[length] = 0;
  return string;
}

UINT SysStringLen(BSTR text) {
  if (!text) return 0;
  DWORD bytes;
  std::memcpy(&bytes, reinterpret_cast<const char*>(text) - sizeof bytes, sizeof bytes);
  return bytes / sizeof(WCHAR);
}

void SysFreeString(BSTR text) {
  if (text) std::free(reinterpret_cast<char*>(text) - kPrefix);
}

}  // namespace qnplatform
