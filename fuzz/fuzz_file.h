// A fuzz input as a file on disk: the parsers under test work on file handles and names.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "qn/platform/file.h"
#include "qn/platform/text.h"

namespace qnfuzz {

class FuzzFile {
 public:
  FuzzFile(const uint8_t* data, size_t size) {
    static const char* const folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    native_ = std::string(folder) + "/qnfuzz.XXXXXX";
    const int file = mkstemp(native_.data());
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) abort();
    close(file);
    path_ = qn::PathFromNative(native_);
  }
  ~FuzzFile() { unlink(native_.c_str()); }
  FuzzFile(const FuzzFile&) = delete;
  FuzzFile& operator=(const FuzzFile&) = delete;

  const char16_t* Path() const { return path_.c_str(); }
  const std::string& Native() const { return native_; }

  // A handle for reading and writing; the caller closes it.
  HANDLE Open() const {
    return CreateFileW(Path(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                       nullptr);
  }

 private:
  std::string native_;
  std::u16string path_;
};

// Ends the run when a property does not hold, in every build.
inline void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "property broken: %s\n", what);
  abort();
}

}  // namespace qnfuzz
