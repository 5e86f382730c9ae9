// A new file that appears under its name only when it is whole.
//
// It is written beside its target under another name and moved there at the end, so that an interrupted run
// leaves nothing under the target's name and an existing target stays whole until then.
#pragma once

#include <cstddef>
#include <string>

#include "qn/platform/types.h"
#include "tools/common/text.h"

namespace qntool {

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Starts an empty file and reports a failure. What a link leads to is replaced, not the link, and the new
  // file has the permissions of the old one, and its owner and group as far as the system allows. A target
  // that exists is refused without `overwrite`, and always when it is no regular file or may not be written.
  bool Create(const std::string& target, bool overwrite);

  // For reading and writing.
  int Descriptor() const { return descriptor_; }
  // The file that the target's name leads to, behind links, by the one name for it that all others lead to.
  std::string Resolved() const;
  // The name that the file has for now.
  const std::string& Temporary() const { return temporary_; }

  // Writes at the end of what was written; the status of a failure, which is not reported.
  HRESULT Write(const void* bytes, size_t count);

  // Ends the file and moves it to its target; reports a failure.
  bool Commit();

  // Reports a failure about the file. Always false.
  bool Fail(HRESULT status, const Message& details = {}) const;

 private:
  bool CreateTemporary();
  bool FailAtFolder() const;
  void KeepOwnership() const;
  bool Publish();

  std::string name_;       // as the user gave it
  std::string target_;     // behind links
  std::string temporary_;  // empty when there is none
  int descriptor_ = -1;
  bool overwrite_ = false;
};

}  // namespace qntool
