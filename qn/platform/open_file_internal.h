// Handles and files that are open as long as an object of theirs lives.
#pragma once

#include "qn/platform/file.h"

namespace qn {

// Makes the file `bytes` bytes long, with room on the disk for all of them: what is written there later finds
// it. A file system that keeps no room lengthens the file alone. False with the last error, 112 for a full
// disk.
bool ReserveFile(HANDLE file, int64_t bytes);

// What failed to open is null or INVALID_HANDLE_VALUE, by the function.
class OpenedHandle {
 public:
  explicit OpenedHandle(HANDLE handle) : handle_(handle) {}
  ~OpenedHandle() {
    if (*this) CloseHandle(handle_);
  }
  OpenedHandle(const OpenedHandle&) = delete;
  OpenedHandle& operator=(const OpenedHandle&) = delete;

  explicit operator bool() const { return handle_ && handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }

 private:
  const HANDLE handle_;
};

class OpenedFile : public OpenedHandle {
 public:
  OpenedFile(const WCHAR* name, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
      : OpenedHandle(CreateFileW(name, access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr)) {
  }
};

}  // namespace qn
