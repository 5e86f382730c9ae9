// An open file of the library under a name of the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qn/platform/file.h"

namespace qnwave {

// The library's form of a native name. Reports and returns false for a name that the library cannot reach.
bool LibraryPath(const std::string& name, std::u16string* path);

class File {
 public:
  File() = default;
  explicit File(HANDLE handle) : handle_(handle) {}
  ~File() { Close(); }
  File(File&& other) noexcept : handle_(other.handle_) { other.handle_ = INVALID_HANDLE_VALUE; }
  File& operator=(File&& other) noexcept;

  // Open an existing file and report why that fails. What is no regular file is refused: a pipe or a device
  // has no offsets to go to.
  static File ForReading(const std::string& name);
  static File ForChange(const std::string& name);

  // Creates a file under a name that no other file has; not open, with the reason in GetLastError, when that
  // fails. A name that cannot be reached is reported.
  static File CreateNew(const std::string& name);

  explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }
  void Close();

  uint64_t Size() const;
  bool Seek(uint64_t offset) const;

  // Reads at an offset: all of the bytes, or it returns false.
  bool ReadAt(uint64_t offset, void* buffer, uint32_t bytes) const;

  // Writes at an offset; false with the reason in GetLastError.
  bool WriteAt(uint64_t offset, const void* buffer, uint32_t bytes) const;

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// Small reads at many offsets through one block, so that a file of a million chunks is walked at the speed of
// its bytes.
class ByteWindow {
 public:
  explicit ByteWindow(const File& file) : file_(file), size_(file.Size()) {}

  uint64_t FileSize() const { return size_; }

  // The bytes at an offset, or null when the file does not hold them all. They last until the next call.
  // `bytes` is at most kMost.
  const uint8_t* At(uint64_t offset, uint32_t bytes);

  static constexpr uint32_t kMost = 4096;

 private:
  const File& file_;
  uint64_t size_;
  uint64_t start_ = 0;
  uint32_t filled_ = 0;
  std::vector<uint8_t> block_ = std::vector<uint8_t>(4 * kMost);
};

}  // namespace qnwave
