// What the tests of the chunk functions share: open files with a position to look at, and the bytes of chunks
// and forms, made with nothing of the library.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string_view>

#include "qn/settings/qnstatus.h"
#include "tests/media/media_bytes.h"

namespace qntest {

// The statuses of the tables.
constexpr HRESULT kFound = S_OK;
constexpr HRESULT kMissing = QN_E_NOT_FOUND;
constexpr HRESULT kShort = QN_E_FILE_READ;

// A file that is open with the access given.
class ChunkFile {
 public:
  explicit ChunkFile(const Bytes& bytes = {}, DWORD access = GENERIC_READ | GENERIC_WRITE) {
    WriteFileBytes(folder_.Native("chunks"), bytes);
    handle_ = CreateFileW(Path().c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  }
  ~ChunkFile() { CloseHandle(handle_); }
  ChunkFile(const ChunkFile&) = delete;
  ChunkFile& operator=(const ChunkFile&) = delete;

  operator HANDLE() const { return handle_; }
  std::u16string Path() const { return folder_.Path("chunks"); }
  Bytes Content() const { return ReadFileBytes(folder_.Native("chunks")); }
  void Go(uint64_t position) const { Move(position, FILE_BEGIN); }
  uint64_t At() const { return Move(0, FILE_CURRENT); }
  uint64_t Length() const {
    LARGE_INTEGER size = {};
    GetFileSizeEx(handle_, &size);
    return static_cast<uint64_t>(size.QuadPart);
  }
  // Writes at a place; one beyond the end leaves a hole before it.
  void Put(uint64_t position, const Bytes& bytes) const {
    DWORD put = 0;
    Go(position);
    WriteFile(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), &put, nullptr);
  }

 private:
  uint64_t Move(uint64_t distance, DWORD method) const {
    LARGE_INTEGER move, position;
    move.QuadPart = static_cast<int64_t>(distance);
    EXPECT_TRUE(SetFilePointerEx(handle_, move, &position, method));
    return static_cast<uint64_t>(position.QuadPart);
  }

  ScratchFolder folder_;
  HANDLE handle_;
};

// A number of `width` bytes, the lowest first.
inline Bytes Le(uint64_t value, size_t width) {
  Bytes bytes(width);
  for (size_t i = 0; i < width; ++i) bytes[i] = static_cast<uint8_t>(value >> 8 * i);
  return bytes;
}

// The two kinds of file. A form's size is right unless one is given.
struct RiffShape {
  static constexpr size_t kForm = 12, kHeader = 8, kType = 4, kAlign = 2;
  static Bytes Name(std::string_view text) { return Bytes(text.begin(), text.end()); }
  static Bytes Chunk(std::string_view id, const Bytes& data) {
    return Name(id) + Le(data.size(), 4) + data + Bytes(data.size() % 2);
  }
  static Bytes List(std::string_view type, const Bytes& chunks) { return Chunk("LIST", Name(type) + chunks); }
  static Bytes Form(const Bytes& chunks, std::optional<uint64_t> size = {}) {
    return Name("RIFF") + Le(size.value_or(chunks.size() + 4), 4) + Name("WAVE") + chunks;
  }
};

struct Wave64Shape {
  static constexpr size_t kForm = 40, kHeader = 24, kType = 16, kAlign = 8;
  static Bytes Name(std::string_view text) {
    return RiffShape::Name(text) + Hex("F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A");
  }
  static Bytes Chunk(const Bytes& id, const Bytes& data) {
    return id + Le(data.size() + 24, 8) + data + Bytes((8 - data.size() % 8) % 8);
  }
  static Bytes Chunk(std::string_view id, const Bytes& data) { return Chunk(Name(id), data); }
  static Bytes List(std::string_view type, const Bytes& chunks) {
    return Chunk(Hex("'list' 2F 91 CF 11 A5 D6 28 DB 04 C1 00 00"), Name(type) + chunks);
  }
  static Bytes Form(const Bytes& chunks, std::optional<uint64_t> size = {}) {
    return Hex("'riff' 2E 91 CF 11 A5 D6 28 DB 04 C1 00 00") + Le(size.value_or(chunks.size() + 40), 8) +
           Name("wave") + chunks;
  }
};

}  // namespace qntest
