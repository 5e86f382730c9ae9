#include "tools/common/json.h"

#include <charconv>
#include <cstdio>

#include "qn/platform/text.h"

namespace qntool {

void JsonWriter::String(std::string_view key, std::string_view text) {
  Item(key);
  Escaped(text);
}

void JsonWriter::Number(std::string_view key, uint64_t number) {
  Raw(key, std::to_string(number));
}

void JsonWriter::Real(std::string_view key, double number) {
  char digits[32];
  const auto [end, error] = std::to_chars(digits, digits + sizeof(digits), number);
  Raw(key, std::string_view(digits, static_cast<size_t>(end - digits)));
}

void JsonWriter::Bool(std::string_view key, bool value) {
  Raw(key, value ? "true" : "false");
}

void JsonWriter::Null(std::string_view key) {
  Raw(key, "null");
}

void JsonWriter::Begin(std::string_view key, char bracket) {
  Item(key);
  text_ += bracket;
  hasItems_.push_back(false);
}

void JsonWriter::End(char bracket) {
  const bool hasItems = hasItems_.back();
  hasItems_.pop_back();
  if (hasItems) text_ += '\n' + std::string(2 * hasItems_.size(), ' ');
  text_ += bracket;
  if (hasItems_.empty()) text_ += '\n';
}

void JsonWriter::Item(std::string_view key) {
  if (!hasItems_.empty()) {
    if (hasItems_.back()) text_ += ',';
    hasItems_.back() = true;
    text_ += '\n' + std::string(2 * hasItems_.size(), ' ');
  }
  if (key.empty()) return;
  Escaped(key);
  text_ += ": ";
}

void JsonWriter::Raw(std::string_view key, std::string_view value) {
  Item(key);
  text_ += value;
}

void JsonWriter::Escaped(std::string_view text) {
  text_ += '"';
  for (const char c : qn::ToUtf8(qn::FromUtf8(text))) {
    if (c == '"' || c == '\\') {
      text_ += '\\';
      text_ += c;
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(c));
      text_ += escape;
    } else {
      text_ += c;
    }
  }
  text_ += '"';
}

}  // namespace qntool
