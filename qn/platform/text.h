// Text and path conversion between the library's UTF-16 and the host's UTF-8.
//
// At the library's interface a path is written with `\`: the root of the file system is `\`, so
// `/home/a/x.wav` is `\home\a\x.wav`. A file name that holds a literal backslash cannot be reached.
#pragma once

#include <string>
#include <string_view>

#include "qn/platform/types.h"

namespace qn {

// UTF-8 to UTF-16 and back. Each ill-formed byte or lone surrogate becomes U+FFFD.
QN_API std::u16string FromUtf8(std::string_view text);
QN_API std::string ToUtf8(std::u16string_view text);

// The same into a room of `size` units with the terminator; what does not fit is cut behind a whole
// character. They return the length and allocate nothing.
QN_API size_t FromUtf8(std::string_view text, WCHAR* buffer, size_t size);
QN_API size_t ToUtf8(std::u16string_view text, char* buffer, size_t size);

// A native path to the library's form: `/` becomes `\`.
QN_API std::u16string PathFromNative(std::string_view path);

// A path of the library to the native form: a leading drive letter with its colon is dropped, `\` becomes
// `/`.
QN_API std::string PathToNative(std::u16string_view path);

}  // namespace qn
