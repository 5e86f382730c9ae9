// A fuzz input as a file on disk: the parsers under test work on file handles and names.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "fuzz/check.h"
#include "qn/platform/file.h"
#include "qn/platform/text.h"

namespace qnfuzz {

// Open for reading and writing from the first time that its handle is asked for.
class FuzzFile {
 public:
  FuzzFile(const uint8_t* data, size_t size) {
    native_ = access("/dev/shm", W_OK) == 0 ? "/dev/shm/qnfuzz.XXXXXX" : "/tmp/qnfuzz.XXXXXX";
    const int file = mkstemp(native_.data());
    Check(file >= 0 && write(file, data, size) == static_cast<ssize_t>(size), "an input on disk");
    close(file);
    path_ = qn::PathFromNative(native_);
  }
  ~FuzzFile() {
    Close();
    unlink(native_.c_str());
  }
  FuzzFile(const FuzzFile&) = delete;
  FuzzFile& operator=(const FuzzFile&) = delete;

  void Close() { CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE)); }
  const char16_t* Path() const { return path_.c_str(); }
  const std::string& Native() const { return native_; }
  operator HANDLE() {
    if (handle_ == INVALID_HANDLE_VALUE) {
      constexpr DWORD kAccess = GENERIC_READ | GENERIC_WRITE;
      handle_ = CreateFileW(Path(), kAccess, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    }
    return handle_;
  }

 private:
  std::string native_;
  std::u16string path_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

}  // namespace qnfuzz
