// A setting and its form as text.
//
//   number 100            string "C:\\music"           binary 00 01 ff
//   multi-string "a" "b"  raw 11 0000000000000000
//
// Texts are in UTF-8 between quotes, with \" \\ \n \r \t and \uXXXX for other controls and for what is no
// well-formed text. `raw` with the registry's type stands for what the other forms cannot hold, so each
// setting reads back byte by byte.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qn/platform/types.h"

namespace qnmetric {

struct Setting {
  DWORD type = 0;
  std::vector<uint8_t> data;

  bool operator==(const Setting&) const = default;
};

// "number", "string", "binary", "multi-string"; "type 11" for one that is none of them.
std::string TypeName(DWORD type);

// The type of one of the four names.
std::optional<DWORD> FindType(std::string_view name);

std::string PrintSetting(const Setting& setting);

// Reads what PrintSetting wrote. Nothing for another text.
std::optional<Setting> ReadSetting(std::string_view text);

// A setting from the operands of a command: one number or text, hexadecimal digits, or the texts of a
// multi-string. Nothing, with what is wrong, for operands that are none.
std::optional<Setting> MakeSetting(DWORD type, const std::vector<std::string>& operands,
                                   std::string* mistake);

// A text between quotes; and back, from the front of `text`, which loses it. Nothing without one; a text
// holds no null character.
std::string PrintText(std::u16string_view text);
std::optional<std::u16string> TakeText(std::string_view* text);

}  // namespace qnmetric
