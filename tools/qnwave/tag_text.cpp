#include "tools/qnwave/tag_text.h"

#include <algorithm>
#include <cstring>

#include "qn/platform/locale.h"
#include "qn/platform/text.h"
#include "tools/common/text.h"

namespace qnwave {
namespace {

constexpr unsigned kWesternCodePage = 1252;

struct NameRow {
  const char* name;
  char id[5];
};

constexpr NameRow kNames[] = {
    {"title", "INAM"},        {"artist", "IART"},   {"album", "IPRD"},       {"track", "ITRK"},
    {"date", "ICRD"},         {"genre", "IGNR"},    {"comment", "ICMT"},     {"copyright", "ICOP"},
    {"engineer", "IENG"},     {"software", "ISFT"}, {"subject", "ISBJ"},     {"keywords", "IKEY"},
    {"language", "ILNG"},     {"source", "ISRC"},   {"source-form", "ISRF"}, {"technician", "ITCH"},
    {"commissioned", "ICMS"}, {"location", "IARL"}, {"medium", "IMED"},      {"part", "IPRT"},
    {"timecode", "ISMP"},     {"composer", "IMUS"}, {"writer", "IWRI"},      {"producer", "IPRO"},
    {"rating", "IRTD"},
};

uint32_t IdOf(const char* characters) {
  uint32_t id;
  std::memcpy(&id, characters, sizeof(id));
  return id;
}

// In front of an id that is to be taken as it stands.
constexpr std::string_view kIdMark = "id:";

bool IsIdWord(std::string_view word) {
  return word.size() == kIdMark.size() + 4 && word.starts_with(kIdMark);
}

// The bytes in front of the terminator, which may be missing.
std::string_view Narrow(std::span<const uint8_t> bytes) {
  const auto end = std::find(bytes.begin(), bytes.end(), 0);
  return {reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(end - bytes.begin())};
}

std::u16string Wide(std::span<const uint8_t> bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), bytes.data(), 2 * text.size());
  return text.substr(0, text.find(u'\0'));
}

// Text in the ANSI code page; `*complete` tells whether that has all characters.
std::string Reduce(const std::string& text, bool* complete) {
  const std::u16string wide = qn::FromUtf8(text);
  const int count = static_cast<int>(wide.size());
  std::string bytes(4 * wide.size() + 1, '\0');
  BOOL usedDefault = FALSE;
  const int size = count == 0
                       ? 0
                       : WideCharToMultiByte(GetACP(), WC_NO_BEST_FIT_CHARS, wide.data(), count, bytes.data(),
                                             static_cast<int>(bytes.size()), nullptr, &usedDefault);
  bytes.resize(static_cast<size_t>(size));
  *complete = !usedDefault && (size != 0 || count == 0);
  return bytes;
}

}  // namespace

std::optional<uint32_t> ParseTagId(std::string_view word) {
  std::string lower(word);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  for (const NameRow& row : kNames) {
    if (lower == row.name) return IdOf(row.id);
  }
  if (word.size() != 4 || !IsTagId(IdOf(word.data()))) return std::nullopt;
  return IdOf(word.data());
}

std::optional<uint32_t> ParseTagWord(std::string_view word) {
  if (!IsIdWord(word)) return ParseTagId(word);
  const uint32_t id = IdOf(word.data() + kIdMark.size());
  return IsTagId(id) ? std::optional(id) : std::nullopt;
}

TagSetting SplitTagSetting(std::string_view word) {
  constexpr size_t kIdWord = kIdMark.size() + 4;
  const bool isId = word.size() > kIdWord && word[kIdWord] == '=' && IsIdWord(word.substr(0, kIdWord));
  const size_t equals = isId ? kIdWord : word.find('=');
  if (equals == std::string_view::npos) return {word, std::nullopt};
  return {word.substr(0, equals), word.substr(equals + 1)};
}

std::string TagIdText(uint32_t id) {
  return std::string(reinterpret_cast<const char*>(&id), sizeof(id));
}

const char* TagName(uint32_t id) {
  const auto row = std::find_if(std::begin(kNames), std::end(kNames),
                                [&](const NameRow& candidate) { return IdOf(candidate.id) == id; });
  return row == std::end(kNames) ? nullptr : row->name;
}

bool IsTagId(uint32_t id) {
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned c = id >> (8 * i) & 0xFF;
    if (c < 0x20 || c >= 0x7F) return false;
  }
  return true;
}

unsigned TextCodePage() {
  return GetACP() == CP_UTF8 ? kWesternCodePage : GetACP();
}

std::string DecodeTag(bool wide, std::span<const uint8_t> bytes, std::string* encoding) {
  *encoding = wide ? "UTF-16" : "UTF-8";
  if (wide) return qn::ToUtf8(Wide(bytes));
  const std::string_view narrow = Narrow(bytes);
  if (qntool::IsUtf8(narrow)) return std::string(narrow);
  const unsigned codePage = TextCodePage();
  *encoding = std::to_string(codePage);
  // No code page makes more characters than there are bytes, but for a few that take two.
  std::u16string text(2 * narrow.size(), u'\0');
  const int count = MultiByteToWideChar(codePage, 0, narrow.data(), static_cast<int>(narrow.size()),
                                        text.data(), static_cast<int>(text.size()));
  text.resize(static_cast<size_t>(count));
  return qn::ToUtf8(text);
}

std::optional<TagBytes> EncodeTag(bool wide, const std::string& text) {
  if (wide) {
    const std::u16string characters = qn::FromUtf8(text);
    const auto start = reinterpret_cast<const uint8_t*>(characters.c_str());
    return TagBytes(start, start + 2 * (characters.size() + 1));
  }
  bool complete;
  const std::string narrow = Reduce(text, &complete);
  const auto start = reinterpret_cast<const uint8_t*>(narrow.c_str());
  const TagBytes bytes(start, start + narrow.size() + 1);
  std::string encoding;
  if (!complete || DecodeTag(false, bytes, &encoding) != text) return std::nullopt;
  return bytes;
}

bool IsReducedTag(std::span<const uint8_t> bytes, const std::string& text) {
  bool complete;
  return Narrow(bytes) == Reduce(text, &complete);
}

}  // namespace qnwave
