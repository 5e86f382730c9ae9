// What the tests of the chunk functions share: files with given bytes, open and with a position to look at,
// and a builder of such bytes that uses nothing of the library.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "qn/platform/file.h"
#include "qn/settings/qnstatus.h"
#include "tests/support/support.h"

namespace qntest {

// Appends fields to a file's bytes, integers with the lowest byte first.
class ByteBuilder {
 public:
  ByteBuilder& Text(std::string_view text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  ByteBuilder& Number(uint64_t value, int width) {
    for (int i = 0; i < width; ++i) bytes_.push_back(static_cast<uint8_t>(value >> 8 * i));
    return *this;
  }
  ByteBuilder& Fill(size_t count, uint8_t value) {
    bytes_.insert(bytes_.end(), count, value);
    return *this;
  }
  ByteBuilder& Add(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  operator const Bytes&() const { return bytes_; }

 private:
  Bytes bytes_;
};

class ChunkFile {
 public:
  explicit ChunkFile(const Bytes& bytes = {}, DWORD access = GENERIC_READ | GENERIC_WRITE) {
    WriteFileBytes(folder_.Native("chunks"), bytes);
    handle_ = CreateFileW(folder_.Path("chunks").c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                          FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
  }
  ~ChunkFile() { CloseHandle(handle_); }
  ChunkFile(const ChunkFile&) = delete;
  ChunkFile& operator=(const ChunkFile&) = delete;

  operator HANDLE() const { return handle_; }
  std::u16string Path() const { return folder_.Path("chunks"); }
  Bytes Content() const { return ReadFileBytes(folder_.Native("chunks")); }

  void Go(uint64_t position) { Move(static_cast<int64_t>(position), FILE_BEGIN); }
  uint64_t At() const { return Move(0, FILE_CURRENT); }
  uint64_t Length() const {
    LARGE_INTEGER size = {};
    EXPECT_TRUE(GetFileSizeEx(handle_, &size));
    return static_cast<uint64_t>(size.QuadPart);
  }

  // Writes at a place, which makes a file with holes when it lies beyond the end.
  void Put(uint64_t position, const Bytes& bytes) {
    DWORD put = 0;
    Go(position);
    EXPECT_TRUE(WriteFile(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), &put, nullptr));
  }

 private:
  uint64_t Move(int64_t distance, DWORD method) const {
    LARGE_INTEGER move;
    LARGE_INTEGER position = {};
    move.QuadPart = distance;
    EXPECT_TRUE(SetFilePointerEx(handle_, move, &position, method));
    return static_cast<uint64_t>(position.QuadPart);
  }

  ScratchFolder folder_;
  HANDLE handle_;
};

}  // namespace qntest
