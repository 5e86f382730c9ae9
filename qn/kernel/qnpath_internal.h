// What the functions on the text of a path share.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "qn/platform/types.h"

namespace qn {

// Copies a part of a path, cut to `size` with the terminator; nothing without `text` or room. It may lie in
// `text`. Returns the part's whole length, so that a result of `size` or more tells that it was cut.
inline int CopyCut(std::u16string_view part, WCHAR* text, int size) {
  if (text && size > 0) {
    const size_t copied = std::min(part.size(), static_cast<size_t>(size) - 1);
    std::char_traits<WCHAR>::move(text, part.data(), copied);
    text[copied] = 0;
  }
  return static_cast<int>(part.size());
}

}  // namespace qn
