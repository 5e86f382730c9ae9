#include "tools/qnmetric/setting.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "qn/platform/registry.h"
#include "qn/platform/text.h"
#include "tools/common/options.h"
#include "tools/common/report.h"

namespace qnmetric {
namespace {

struct TypeRow {
  DWORD type;
  const char* name;
};

constexpr TypeRow kTypes[] = {
    {REG_DWORD, "number"},
    {REG_SZ, "string"},
    {REG_BINARY, "binary"},
    {REG_MULTI_SZ, "multi-string"},
};

constexpr std::string_view kRaw = "raw";

std::string PrintBytes(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), text.empty() ? "%02x" : " %02x", byte);
    text += digits;
  }
  return text;
}

// Pairs of digits, with blanks between them or not.
std::optional<std::vector<uint8_t>> ReadBytes(std::string_view text) {
  std::vector<uint8_t> bytes;
  while (!text.empty()) {
    if (text[0] == ' ') {
      text.remove_prefix(1);
      continue;
    }
    uint8_t byte = 0;
    const char* const end = text.data() + 2;
    if (text.size() < 2 || std::from_chars(text.data(), end, byte, 16).ptr != end) return std::nullopt;
    bytes.push_back(byte);
    text.remove_prefix(2);
  }
  return bytes;
}

std::vector<uint8_t> BytesOf(std::u16string_view text) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(text.data());
  return {bytes, bytes + 2 * text.size()};
}

Setting FromTexts(DWORD type, const std::vector<std::u16string>& texts) {
  std::u16string all;
  for (const std::u16string& text : texts) all += text + u'\0';
  if (type == REG_MULTI_SZ) all += u'\0';
  return {type, BytesOf(all)};
}

// The texts of a string or multi-string, each up to its terminator.
std::vector<std::u16string> TextsOf(const Setting& setting) {
  std::u16string all(setting.data.size() / 2, u'\0');
  if (!all.empty()) std::memcpy(all.data(), setting.data.data(), 2 * all.size());
  std::vector<std::u16string> texts;
  for (size_t start = 0; start < all.size();) {
    const size_t end = std::min(all.find(u'\0', start), all.size());
    if (setting.type == REG_MULTI_SZ && end == start) break;
    texts.push_back(all.substr(start, end - start));
    start = end + 1;
  }
  return texts;
}

Setting FromNumber(uint32_t number) {
  Setting setting = {REG_DWORD, std::vector<uint8_t>(sizeof(number))};
  std::memcpy(setting.data.data(), &number, sizeof(number));
  return setting;
}

// -2147483648 to 4294967295, or hexadecimal digits behind "0x".
std::optional<Setting> ReadNumber(std::string_view text) {
  if (text.substr(0, 2) == "0x") {
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + 2, end, number, 16);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return FromNumber(number);
  }
  const auto number = qntool::ParseNumber<int64_t>(text, INT32_MIN, UINT32_MAX);
  if (!number) return std::nullopt;
  return FromNumber(static_cast<uint32_t>(*number));
}

std::optional<Setting> ReadTexts(DWORD type, std::string_view text) {
  std::vector<std::u16string> texts;
  while (!text.empty()) {
    const auto taken = TakeText(&text);
    if (!taken) return std::nullopt;
    // An empty text would end the row.
    if (type == REG_MULTI_SZ && taken->empty()) return std::nullopt;
    texts.push_back(*taken);
    if (text.substr(0, 1) == " ") text.remove_prefix(1);
  }
  if (type == REG_SZ && texts.size() != 1) return std::nullopt;
  return FromTexts(type, texts);
}

std::optional<Setting> ReadRaw(std::string_view text) {
  const size_t blank = std::min(text.find(' '), text.size());
  const auto type = qntool::ParseNumber<uint32_t>(text.substr(0, blank), 0, UINT32_MAX);
  const auto bytes = ReadBytes(text.substr(blank));
  if (!type || !bytes) return std::nullopt;
  return Setting{*type, *bytes};
}

}  // namespace

std::string TypeName(DWORD type) {
  for (const TypeRow& row : kTypes) {
    if (row.type == type) return row.name;
  }
  return "type " + std::to_string(type);
}

std::optional<DWORD> FindType(std::string_view name) {
  for (const TypeRow& row : kTypes) {
    if (name == row.name) return row.type;
  }
  return std::nullopt;
}

std::string PrintSetting(const Setting& setting) {
  const std::string name = TypeName(setting.type) + " ";
  if (setting.type == REG_BINARY) return name + PrintBytes(setting.data);
  if (setting.type == REG_DWORD && setting.data.size() == sizeof(int32_t)) {
    int32_t number;
    std::memcpy(&number, setting.data.data(), sizeof(number));
    return name + std::to_string(number);
  }
  if (setting.type == REG_SZ || setting.type == REG_MULTI_SZ) {
    const auto texts = TextsOf(setting);
    const bool isOne = setting.type == REG_MULTI_SZ || texts.size() == 1;
    if (isOne && FromTexts(setting.type, texts) == setting) {
      std::string text;
      for (const std::u16string& part : texts) text += (text.empty() ? "" : " ") + PrintText(part);
      return name + text;
    }
  }
  return std::string(kRaw) + " " + std::to_string(setting.type) + " " + PrintBytes(setting.data);
}

std::optional<Setting> ReadSetting(std::string_view text) {
  const size_t blank = std::min(text.find(' '), text.size());
  const std::string_view name = text.substr(0, blank);
  const std::string_view rest = text.substr(std::min(blank + 1, text.size()));
  if (name == kRaw) return ReadRaw(rest);
  const auto type = FindType(name);
  if (!type) return std::nullopt;
  if (*type == REG_DWORD) return ReadNumber(rest);
  if (*type != REG_BINARY) return ReadTexts(*type, rest);
  const auto bytes = ReadBytes(rest);
  if (!bytes) return std::nullopt;
  return Setting{REG_BINARY, *bytes};
}

std::optional<Setting> MakeSetting(DWORD type, const std::vector<std::string>& operands,
                                   std::string* mistake) {
  std::vector<std::u16string> texts;
  std::string joined;
  for (const std::string& operand : operands) {
    texts.push_back(qn::FromUtf8(operand));
    joined += (joined.empty() ? "" : " ") + operand;
  }
  switch (type) {
    case REG_MULTI_SZ:
      if (std::find(operands.begin(), operands.end(), "") == operands.end()) return FromTexts(type, texts);
      *mistake = "texts of a multi-string cannot be empty";
      return std::nullopt;
    case REG_SZ:
    case REG_DWORD:
      if (operands.size() != 1) {
        *mistake = "a " + TypeName(type) + " takes one VALUE";
        return std::nullopt;
      }
      if (type == REG_SZ) return FromTexts(type, texts);
      break;
    case REG_BINARY:
      break;
    default:
      *mistake = "the setting is of " + TypeName(type) + ", which only import stores";
      return std::nullopt;
  }
  auto setting = ReadSetting(TypeName(type) + " " + joined);
  if (!setting) *mistake = qntool::Quoted(joined) + " is no " + TypeName(type);
  return setting;
}

std::string PrintText(std::u16string_view text) {
  std::string printed = "\"";
  for (size_t i = 0; i < text.size(); ++i) {
    const WCHAR c = text[i];
    const bool isHigh = c >= 0xD800 && c < 0xDC00;
    const bool isPair = isHigh && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
    const bool isControl = c < 0x20 || (c >= 0x7F && c < 0xA0);
    if (c == u'"' || c == u'\\') {
      printed += {'\\', static_cast<char>(c)};
    } else if (c == u'\n' || c == u'\r' || c == u'\t') {
      printed += c == u'\n' ? "\\n" : c == u'\r' ? "\\r" : "\\t";
    } else if (isPair) {
      printed += qn::ToUtf8(text.substr(i++, 2));
    } else if (isControl || (c >= 0xD800 && c < 0xE000)) {
      char code[8];
      std::snprintf(code, sizeof(code), "\\u%04X", static_cast<unsigned>(c));
      printed += code;
    } else {
      printed += qn::ToUtf8(text.substr(i, 1));
    }
  }
  return printed + "\"";
}

std::optional<std::u16string> TakeText(std::string_view* text) {
  if (text->substr(0, 1) != "\"") return std::nullopt;
  std::u16string result;
  std::string plain;
  const auto flush = [&] {
    result += qn::FromUtf8(plain);
    plain.clear();
  };
  for (size_t i = 1; i < text->size(); ++i) {
    const char c = (*text)[i];
    if (c == '"') {
      flush();
      text->remove_prefix(i + 1);
      return result;
    }
    if (c != '\\') {
      plain += c;
      continue;
    }
    if (++i == text->size()) break;
    const char escape = (*text)[i];
    if (escape == 'u') {
      uint16_t code = 0;
      const char* const digits = text->data() + i + 1;
      if (i + 4 >= text->size() || std::from_chars(digits, digits + 4, code, 16).ptr != digits + 4) break;
      // It would end the text where it is stored.
      if (code == 0) break;
      flush();
      result += static_cast<WCHAR>(code);
      i += 4;
    } else if (const size_t at = std::string_view("\"\\nrt").find(escape); at != std::string_view::npos) {
      plain += "\"\\\n\r\t"[at];
    } else {
      break;
    }
  }
  return std::nullopt;
}

}  // namespace qnmetric
