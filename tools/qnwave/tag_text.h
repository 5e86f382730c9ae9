// Tags by name and id, and their texts as bytes.
//
// A text of an INFO list is UTF-8 if its bytes are well-formed UTF-8, else text of the code page: the
// library's ANSI code page, or 1252 where that is UTF-8 itself. The other lists hold wide text.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qnwave {

using TagBytes = std::vector<uint8_t>;

// The id of a name such as "title", whatever its case, or of an id itself, any four printable characters.
std::optional<uint32_t> ParseTagId(std::string_view word);

// The same for a word of the command line, where "id:" in front of four characters makes them an id as it
// stands.
std::optional<uint32_t> ParseTagWord(std::string_view word);

// The id and the text of "NAME=TEXT"; an id behind "id:" may hold "=" too. The whole word is returned as the
// name, and no text, where it is none.
struct TagSetting {
  std::string_view name;
  std::optional<std::string_view> text;
};
TagSetting SplitTagSetting(std::string_view word);

// Its four characters.
std::string TagIdText(uint32_t id);

// "title", or null for an id without a name.
const char* TagName(uint32_t id);

// True for four printable characters.
bool IsTagId(uint32_t id);

// What texts that are not UTF-8 are read as.
unsigned TextCodePage();

// The text up to its terminator or its end, as UTF-8. `*encoding` becomes "UTF-8", "UTF-16" or the number of
// the code page.
std::string DecodeTag(bool wide, std::span<const uint8_t> bytes, std::string* encoding);

// The bytes with the terminator; nothing for a text that would not come back as it is, because the code page
// lacks a character or because the bytes would be taken for UTF-8.
std::optional<TagBytes> EncodeTag(bool wide, const std::string& text);

// True when the bytes are what is left of the text where the code page lacks characters of it.
bool IsReducedTag(std::span<const uint8_t> bytes, const std::string& text);

}  // namespace qnwave
