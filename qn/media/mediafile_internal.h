// A media file that is opened by name, and its size.
#pragma once

#include "qn/platform/open_file_internal.h"

namespace qn {

// An open file that lets others read it meanwhile.
class File : public OpenedFile {
 public:
  File(const WCHAR* name, DWORD access, DWORD disposition)
      : OpenedFile(name, access, FILE_SHARE_READ, disposition) {}
};

// The length of an open file in bytes; 0 for a handle that has none.
inline int64_t FileLength(HANDLE file) {
  LARGE_INTEGER size;
  return GetFileSizeEx(file, &size) ? size.QuadPart : 0;
}

}  // namespace qn
