// What the functions on files and directories share: descriptors, native paths, descriptions, claims.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>

#include "qn/platform/file.h"
#include "qn/platform/filetime.h"
#include "qn/platform/handle_internal.h"

namespace qn {

// A file descriptor that is closed with its owner. -1 for none.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor();

  explicit operator bool() const { return value_ >= 0; }
  int Get() const { return value_; }

  // Hands the descriptor to the caller.
  int Release() { return std::exchange(value_, -1); }

 private:
  int value_;
};

// What a handle of CreateFileW stands for.
class FileObject final : public SystemObject {
 public:
  explicit FileObject(int descriptor) : descriptor_(descriptor) {}
  ~FileObject() override;
  FileObject(const FileObject&) = delete;
  FileObject& operator=(const FileObject&) = delete;

  int Descriptor() const { return descriptor_; }

  // Access as asked for: the descriptor may have more.
  DWORD access = 0;
  void DeleteOnClose(std::string path) { deleteOnClose_ = std::move(path); }

 private:
  int descriptor_;
  std::string deleteOnClose_;
};

// The file of a handle, or null with last error 6.
std::shared_ptr<FileObject> FindFile(HANDLE handle);

// The native form of a path; false for a null or empty one.
bool ToPath(const WCHAR* name, std::string* path);

// Cuts separators from the end of a native path, apart from the root's: behind one, the system would follow
// a link that the path names. True if there were any.
bool StripSlashes(std::string* path);

// The published number for errno after a failed call on `path`: a missing file in a missing folder is
// another error than a missing file.
DWORD OpenError(const std::string& path);

// Seconds since 1970 and nanoseconds as a count since 1601; 0 for a time before that.
FILETIME FileTimeFromUnix(int64_t seconds, int64_t nanoseconds);

struct FileDescription {
  DWORD attributes;
  uint64_t size;
  FILETIME created;  // time of writing where the file system does not keep it
  FILETIME accessed;
  FILETIME written;
};

// Describes `name` relative to the open folder (or AT_FDCWD) without opening it: a symbolic link by what it
// leads to, with FILE_ATTRIBUTE_REPARSE_POINT, or by itself when it leads nowhere. An empty name is what the
// descriptor itself has open. False with errno.
bool DescribeFile(int folder, const char* name, FileDescription* description);

// Hidden by a mark, for names without a leading dot. A file system without extended attributes leaves the
// file visible, which loses nothing.
bool IsHidden(const std::string& path);
void MarkHidden(int descriptor);

// Copies the extended attributes that are the user's, the mark of hidden files among them, as far as the file
// system takes them.
void CopyUserAttributes(int from, int to);

// Opens a regular file for reading, relative to a folder; anything else is refused with EISDIR, and not
// opened, since that could block or act on a device. None with errno on failure.
Descriptor OpenRegular(int folder, const char* name, bool follow, struct stat* info);

// The right to remove or replace a file, which open handles may refuse, held against others while the object
// lives. A file that cannot be asked (no regular one, or not readable) is left to the system's own rules.
class DeleteClaim {
 public:
  DeleteClaim(int folder, const char* name, DWORD access = DELETE);

  // A handle is open that does not share this: error 32.
  bool Refused() const { return refused_; }

 private:
  Descriptor file_;
  bool refused_;
};

// Renames unless the new name is taken, which gives EEXIST. False with errno.
bool RenameToFree(const char* from, const char* to);

// Copies a file's content, whose holes stay holes, and its extended attributes to an empty one, then mode and
// time of writing from `info`. False with errno.
bool CopyOpenFile(int from, int to, const struct stat& info);

}  // namespace qn
