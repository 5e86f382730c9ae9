// The bytes of media files, and open files over them.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "qn/platform/file.h"
#include "qn/platform/mmreg.h"
#include "tests/support/support.h"

namespace qntest {

// Bytes from text: hexadecimal pairs, 'quoted characters', and *n for n bytes of zero; blanks part them.
inline Bytes Hex(std::string_view text) {
  Bytes bytes;
  for (size_t i = 0; i < text.size();) {
    const std::string word(text.substr(i, text.find(' ', i) - i));
    if (text[i] == ' ') {
      ++i;
    } else if (text[i] == '\'') {
      const size_t end = text.find('\'', i + 1);
      bytes.insert(bytes.end(), text.begin() + i + 1, text.begin() + end);
      i = end + 1;
    } else if (text[i] == '*') {
      bytes.resize(bytes.size() + std::stoul(word.substr(1)));
      i += word.size();
    } else {
      bytes.push_back(static_cast<uint8_t>(std::stoul(word.substr(0, 2), nullptr, 16)));
      i += 2;
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

inline WAVEFORMATEX MakeFormat(int tag, int channels, uint32_t rate, int bits) {
  const int align = channels * (bits / 8);
  return {static_cast<WORD>(tag),   static_cast<WORD>(channels), rate, rate * align,
          static_cast<WORD>(align), static_cast<WORD>(bits),     0};
}

// A file in a folder of its own, open or not.
class TestFile {
 public:
  TestFile() = default;
  explicit TestFile(const Bytes& bytes) { WriteFileBytes(Native(), bytes); }
  ~TestFile() { Close(); }

  std::string Native() const { return folder_.Native("file"); }
  const WCHAR* Path() const { return path_.c_str(); }
  Bytes Content() const { return ReadFileBytes(Native()); }
  HANDLE Open() {
    if (handle_ == INVALID_HANDLE_VALUE) {
      handle_ = CreateFileW(Path(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                            nullptr);
    }
    return handle_;
  }
  void Close() {
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }
  // The position of the open file, and moving it.
  int64_t Position() { return Move(0, FILE_CURRENT); }
  int64_t Move(int64_t distance, DWORD method) {
    LARGE_INTEGER to;
    LARGE_INTEGER reached{};
    to.QuadPart = distance;
    return SetFilePointerEx(Open(), to, &reached, method) ? reached.QuadPart : -1;
  }

 private:
  ScratchFolder folder_;
  std::u16string path_ = folder_.Path("file");
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

}  // namespace qntest
