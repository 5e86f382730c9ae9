// What the tests of media files share: their bytes, made with nothing of the library, and files to try.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <tuple>

#include "qn/media/qnwav.h"
#include "qn/platform/file.h"
#include "qn/settings/qnstatus.h"
#include "tests/support/support.h"

namespace qntest {

// The statuses of the tables.
constexpr HRESULT kMissing = QN_E_NOT_FOUND;
constexpr HRESULT kShort = QN_E_FILE_READ;

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

// Ids as they are passed: a Wave64 one becomes a pointer there.
inline uint32_t RiffId(std::string_view text) {
  uint32_t id;
  std::memcpy(&id, text.data(), sizeof id);
  return id;
}
struct GuidKey {
  explicit GuidKey(const Bytes& bytes) { std::memcpy(&guid, bytes.data(), sizeof guid); }
  operator const GUID*() const { return &guid; }
  GUID guid;
};

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

inline WAVEFORMATEX MakeFormat(int tag, int channels, uint32_t rate, int bits) {
  const auto align = static_cast<WORD>(channels * (bits / 8));
  return {WORD(tag), WORD(channels), rate, rate * align, align, WORD(bits), 0};
}

// A file in a folder of its own, opened for reading and writing, or as given, when it is first asked for.
class TestFile {
 public:
  explicit TestFile(const Bytes& bytes = {}, DWORD access = GENERIC_READ | GENERIC_WRITE) : access_(access) {
    WriteFileBytes(Native(), bytes);
  }
  ~TestFile() { Close(); }

  std::string Native() const { return folder_.Native("file"); }
  const WCHAR* Path() const { return path_.c_str(); }
  Bytes Content() const { return ReadFileBytes(Native()); }
  operator HANDLE() {
    if (handle_ == INVALID_HANDLE_VALUE) {
      handle_ = CreateFileW(Path(), access_, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    }
    return handle_;
  }
  void Close() { CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE)); }

  uint64_t Go(uint64_t distance, DWORD method = FILE_BEGIN) {
    LARGE_INTEGER to, reached{};
    to.QuadPart = static_cast<int64_t>(distance);
    EXPECT_TRUE(SetFilePointerEx(*this, to, &reached, method));
    return static_cast<uint64_t>(reached.QuadPart);
  }
  uint64_t At() { return Go(0, FILE_CURRENT); }
  uint64_t Length() const { return std::filesystem::file_size(Native()); }
  // Writes at a place; one beyond the end leaves a hole before it.
  void Put(uint64_t place, const Bytes& bytes) {
    DWORD put = 0;
    Go(place);
    WriteFile(*this, bytes.data(), static_cast<DWORD>(bytes.size()), &put, nullptr);
  }

 private:
  const DWORD access_;
  ScratchFolder folder_;
  std::u16string path_ = folder_.Path("file");
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// What is read of an audio file by its name.
struct AudioFile {
  explicit AudioFile(const WCHAR* path) : record(QnGetFileWfx(path, &frames, &start), &std::free) {}
  Bytes Format() const { return record ? BytesOf(*record) : Bytes(); }

  uint64_t frames = 77;
  uint64_t start = 77;
  std::unique_ptr<WAVEFORMATEX, decltype(&std::free)> record;
};

}  // namespace qntest
