// A writer of JSON text, indented, with every string escaped.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qntool {

class JsonWriter {
 public:
  // `key` is empty inside an array and for the outermost value.
  void BeginObject(std::string_view key = {}) { Begin(key, '{'); }
  void BeginArray(std::string_view key = {}) { Begin(key, '['); }
  void EndObject() { End('}'); }
  void EndArray() { End(']'); }

  // Text may be any bytes: ill-formed UTF-8 becomes U+FFFD.
  void String(std::string_view key, std::string_view text);
  void Number(std::string_view key, uint64_t number);
  void Real(std::string_view key, double number);  // finite
  void Bool(std::string_view key, bool value);
  void Null(std::string_view key);

  // The whole text with a line end.
  const std::string& Text() const { return text_; }

 private:
  void Begin(std::string_view key, char bracket);
  void End(char bracket);
  void Item(std::string_view key);
  void Raw(std::string_view key, std::string_view value);
  void Escaped(std::string_view text);

  std::string text_;
  std::vector<bool> hasItems_;
};

}  // namespace qntool
