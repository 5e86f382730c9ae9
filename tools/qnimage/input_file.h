// An existing file that is read.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "qn/platform/types.h"
#include "tools/common/text.h"

namespace qnimage {

class InputFile {
 public:
  // Opens a regular file; reports why that fails.
  bool Open(const std::string& name);

  const std::string& Name() const { return name_; }
  uint64_t Size() const { return size_; }
  std::FILE* Get() const { return file_.get(); }

  // All of the bytes at an offset; false, with a failure reported, where they are not there.
  bool ReadAt(uint64_t offset, void* bytes, size_t count) const;

  // True if a name leads to this very file.
  bool IsUnder(const std::string& name) const;

  // Reports a failure about the file. Always false.
  bool Fail(HRESULT status, const qntool::Message& details = {}) const;

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::string name_;
  uint64_t size_ = 0;
  std::unique_ptr<std::FILE, Close> file_;
};

}  // namespace qnimage
