#include "qn/platform/text.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>

namespace qn {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsDriveLetter(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

// Each gives the other form of each character to `put`, as long as that returns true.
template <typename Put>
void DecodeUtf8(std::string_view text, Put put) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int64_t>(text.size());
  for (int64_t i = 0; i < length;) {
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    if (c < 0) c = kReplacement;
    const char16_t units[] = {U16_LENGTH(c) == 2 ? U16_LEAD(c) : static_cast<char16_t>(c), U16_TRAIL(c)};
    if (!put(units, static_cast<size_t>(U16_LENGTH(c)))) return;
  }
}

template <typename Put>
void EncodeUtf8(std::u16string_view text, Put put) {
  const auto length = static_cast<int64_t>(text.size());
  for (int64_t i = 0; i < length;) {
    UChar32 c;
    U16_NEXT(text.data(), i, length, c);
    if (U_IS_SURROGATE(c)) c = kReplacement;
    char bytes[U8_MAX_LENGTH];
    size_t count = 0;
    U8_APPEND_UNSAFE(bytes, count, c);
    if (!put(bytes, count)) return;
  }
}

// What takes the characters into a room of `size`, one of them for the terminator.
template <typename Unit>
auto Fill(Unit* buffer, size_t size, size_t* length) {
  return [=](const Unit* units, size_t count) {
    if (count >= size - *length) return false;
    std::copy_n(units, count, buffer + *length);
    *length += count;
    return true;
  };
}

}  // namespace

std::u16string FromUtf8(std::string_view text) {
  std::u16string result;
  result.reserve(text.size());
  DecodeUtf8(text, [&](const char16_t* units, size_t count) {
    result.append(units, count);
    return true;
  });
  return result;
}

size_t FromUtf8(std::string_view text, WCHAR* buffer, size_t size) {
  if (size == 0) return 0;
  size_t length = 0;
  DecodeUtf8(text, Fill(buffer, size, &length));
  buffer[length] = 0;
  return length;
}

std::string ToUtf8(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  EncodeUtf8(text, [&](const char* bytes, size_t count) {
    result.append(bytes, count);
    return true;
  });
  return result;
}

size_t ToUtf8(std::u16string_view text, char* buffer, size_t size) {
  if (size == 0) return 0;
  size_t length = 0;
  EncodeUtf8(text, Fill(buffer, size, &length));
  buffer[length] = 0;
  return length;
}

std::u16string PathFromNative(std::string_view path) {
  std::u16string result = FromUtf8(path);
  std::replace(result.begin(), result.end(), u'/', u'\\');
  return result;
}

std::string PathToNative(std::u16string_view path) {
  if (path.size() >= 2 && path[1] == u':' && IsDriveLetter(path[0])) path.remove_prefix(2);
  std::string result = ToUtf8(path);
  std::replace(result.begin(), result.end(), '\\', '/');
  return result;
}

}  // namespace qn
