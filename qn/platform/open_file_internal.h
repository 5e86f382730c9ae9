// A file that is open as long as this lives.
#pragma once

#include "qn/platform/file.h"

namespace qn {

// Makes the file `bytes` bytes long, with room on the disk for all of them: what is written there later finds
// it. A file system that keeps no room lengthens the file alone. False with the last error, 112 for a full
// disk.
bool ReserveFile(HANDLE file, int64_t bytes);

class OpenedFile {
 public:
  OpenedFile(const WCHAR* name, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
      : handle_(CreateFileW(name, access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr)) {}
  ~OpenedFile() {
    if (*this) CloseHandle(handle_);
  }
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;

  explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }

 private:
  const HANDLE handle_;
};

}  // namespace qn
