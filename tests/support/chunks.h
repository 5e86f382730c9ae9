// The bytes of chunk files, made with nothing of the library.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/support.h"

namespace qntest {

// Bytes from text: hexadecimal pairs, 'quoted characters', and *n for n bytes of zero; blanks part them.
inline Bytes Hex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\'') {
      while (text[++i] != '\'') bytes.push_back(static_cast<uint8_t>(text[i]));
    } else if (text[i] == '*') {
      bytes.resize(bytes.size() + std::stoul(text.substr(i + 1)));
      i = std::min(text.find(' ', i), text.size());
    } else if (text[i] != ' ') {
      bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i++, 2), nullptr, 16)));
    }
  }
  return bytes;
}

inline Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

template <class Value>
Bytes BytesOf(const Value& value) {
  const auto start = reinterpret_cast<const uint8_t*>(&value);
  return Bytes(start, start + sizeof value);
}

// A number of `width` bytes, the lowest first.
inline Bytes Le(uint64_t value, ptrdiff_t width) {
  const Bytes bytes = BytesOf(value);
  return Bytes(bytes.begin(), bytes.begin() + width);
}

// The chunks of the two kinds of file. A form's size is right unless one is given.
template <class Kind>
struct Shape {
  static Bytes Chunk(const Bytes& id, const Bytes& data) {
    return Kind::Header(id, data.size()) + data + Bytes(-data.size() % Kind::kAlign);
  }
  static Bytes Chunk(std::string_view id, const Bytes& data) { return Chunk(Kind::Name(id), data); }
  static Bytes List(std::string_view type, const Bytes& chunks) {
    return Chunk(Kind::ListId(), Kind::Name(type) + chunks);
  }
};

struct RiffShape : Shape<RiffShape> {
  static constexpr size_t kForm = 12, kHeader = 8, kType = 4, kAlign = 2;
  static Bytes Name(std::string_view text) { return Bytes(text.begin(), text.end()); }
  static Bytes Header(const Bytes& id, uint64_t size) { return id + Le(size, 4); }
  static Bytes ListId() { return Name("LIST"); }
  static Bytes Form(const Bytes& chunks, std::optional<uint64_t> size = {}) {
    return Name("RIFF") + Le(size.value_or(chunks.size() + 4), 4) + Name("WAVE") + chunks;
  }
};

struct Wave64Shape : Shape<Wave64Shape> {
  static constexpr size_t kForm = 40, kHeader = 24, kType = 16, kAlign = 8;
  static Bytes Name(std::string_view text) {
    return RiffShape::Name(text) + Hex("F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A");
  }
  static Bytes Header(const Bytes& id, uint64_t size) { return id + Le(size + 24, 8); }
  static Bytes ListId() { return Hex("'list' 2F 91 CF 11 A5 D6 28 DB 04 C1 00 00"); }
  static Bytes Form(const Bytes& chunks, std::optional<uint64_t> size = {}) {
    return Hex("'riff' 2E 91 CF 11 A5 D6 28 DB 04 C1 00 00") + Le(size.value_or(chunks.size() + 40), 8) +
           Name("wave") + chunks;
  }
};

}  // namespace qntest
