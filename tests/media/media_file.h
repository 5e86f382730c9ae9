// What the tests of media files share: statuses, ids, formats, and files to try.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <tuple>

#include "qn/media/qnwav.h"
#include "qn/platform/file.h"
#include "qn/settings/qnstatus.h"
#include "tests/support/chunks.h"

namespace qntest {

// The statuses of the tables.
constexpr HRESULT kMissing = QN_E_NOT_FOUND;
constexpr HRESULT kShort = QN_E_FILE_READ;

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
