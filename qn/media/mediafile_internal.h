// A media file that is opened by name, and its size.
#pragma once

#include "qn/platform/file.h"

namespace qn {

// An open file that lets others read it meanwhile.
class File {
 public:
  File(const WCHAR* name, DWORD access, DWORD disposition)
      : handle_(CreateFileW(name, access, FILE_SHARE_READ, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                            nullptr)) {}
  ~File() {
    if (*this) CloseHandle(handle_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_;
};

// The length of an open file in bytes; 0 for a handle that has none.
inline int64_t FileLength(HANDLE file) {
  LARGE_INTEGER size;
  return GetFileSizeEx(file, &size) ? size.QuadPart : 0;
}

}  // namespace qn
