#include "qn/platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"
#include "qn/platform/file_share_internal.h"
#include "qn/platform/handle_internal.h"
#include "qn/platform/text.h"

namespace qn {

FileObject::~FileObject() {
  if (!deleteOnClose_.empty()) unlink(deleteOnClose_.c_str());
  close(descriptor_);
}

std::shared_ptr<FileObject> FindFile(HANDLE handle) {
  auto file = std::dynamic_pointer_cast<FileObject>(FindHandle(handle));
  if (!file) SetLastError(ERROR_INVALID_HANDLE);
  return file;
}

bool ToPath(const WCHAR* name, std::string* path) {
  if (!name || !*name) return false;
  *path = PathToNative(name);
  return !path->empty();
}

}  // namespace qn

namespace {

using qn::FailWith;
using qn::FailWithErrno;
using qn::FileObject;
using qn::FindFile;
using qn::OpenError;
using qn::ToPath;

// A locking descriptor must be able to read, so writers are opened for reading too. Where the file forbids
// that, the plain access is tried.
int OpenDescriptor(const std::string& path, DWORD access, int flags, mode_t mode) {
  const bool writes = access & GENERIC_WRITE;
  const int descriptor = open(path.c_str(), (writes ? O_RDWR : O_RDONLY) | flags, mode);
  if (descriptor >= 0 || errno != EACCES || (access & GENERIC_READ)) return descriptor;
  return writes ? open(path.c_str(), O_WRONLY | flags, mode) : descriptor;
}

struct Opened {
  int descriptor = -1;
  bool isNameOnly = false;  // without a right to the content: neither read, written nor locked
  bool created = false;
};

// Opens by disposition, without cutting an existing file: that waits until the share modes allow it.
Opened OpenByDisposition(const std::string& path, DWORD access, DWORD disposition, DWORD attributes) {
  const mode_t mode = (attributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;
  const bool create = disposition == CREATE_NEW || disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
  // Between two tries another process can create or remove the file, hence more than one round.
  constexpr int kRounds = 8;
  Opened opened;
  for (int i = 0; i < kRounds; ++i) {
    // O_NONBLOCK as a FIFO would wait for its other end. Regular files know no difference.
    if (disposition != CREATE_NEW) {
      opened.descriptor = OpenDescriptor(path, access, O_NONBLOCK | O_CLOEXEC, mode);
      if (opened.descriptor < 0 && errno == EACCES && !(access & (GENERIC_READ | GENERIC_WRITE))) {
        opened.descriptor = open(path.c_str(), O_PATH | O_CLOEXEC);
        opened.isNameOnly = true;
      }
      if (opened.descriptor >= 0 || errno != ENOENT || !create) return opened;
    }
    opened.descriptor = OpenDescriptor(path, access, O_CLOEXEC | O_CREAT | O_EXCL, mode);
    opened.created = opened.descriptor >= 0;
    if (opened.created || errno != EEXIST || disposition == CREATE_NEW) return opened;
  }
  return opened;
}

// What is opened for writing waits for its turn again; what is only read never does, whoever may have put a
// FIFO in the place of a file. False with errno.
bool Settle(const std::string& path, DWORD access, const struct stat& info, qn::Descriptor* descriptor) {
  const bool writes = access & GENERIC_WRITE;
  if (S_ISREG(info.st_mode) || (S_ISFIFO(info.st_mode) && !writes)) return true;
  if (S_ISFIFO(info.st_mode)) {
    // Opened for both directions it was its own reader.
    errno = EACCES;
    if (access & GENERIC_READ) return false;
    *descriptor = qn::Descriptor();
    *descriptor = qn::Descriptor(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (!*descriptor) return false;
  }
  const int flags = fcntl(descriptor->Get(), F_GETFL);
  return flags >= 0 && fcntl(descriptor->Get(), F_SETFL, flags & ~O_NONBLOCK) == 0;
}

// Removes a new file that another opener got hold of first, if that one lets it go.
void TakeBack(const std::string& path, const struct stat& own) {
  const qn::DeleteClaim claim(AT_FDCWD, path.c_str());
  struct stat there;
  const bool isOwn =
      lstat(path.c_str(), &there) == 0 && there.st_dev == own.st_dev && there.st_ino == own.st_ino;
  if (isOwn && !claim.Refused()) unlink(path.c_str());
}

HANDLE OpenFile(const std::string& path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) {
  const Opened opened = OpenByDisposition(path, access, disposition, attributes);
  if (opened.descriptor < 0) {
    // Only a lease of another program makes the opening of a file wait.
    SetLastError(errno == EWOULDBLOCK ? ERROR_SHARING_VIOLATION : OpenError(path));
    return INVALID_HANDLE_VALUE;
  }
  qn::Descriptor descriptor(opened.descriptor);
  struct stat info;
  if (fstat(descriptor.Get(), &info) != 0 || S_ISDIR(info.st_mode)) {
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  }
  if (!opened.isNameOnly && !Settle(path, access, info, &descriptor)) {
    FailWithErrno();
    return INVALID_HANDLE_VALUE;
  }
  const int number = descriptor.Get();
  if (!opened.isNameOnly && qn::EnterShareMode(number, access, share) == qn::ShareResult::kConflict) {
    if (disposition == CREATE_NEW) TakeBack(path, info);
    SetLastError(ERROR_SHARING_VIOLATION);
    return INVALID_HANDLE_VALUE;
  }
  const bool cut = !opened.created && (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING);
  if (cut && ftruncate(number, 0) != 0) {
    FailWithErrno();
    return INVALID_HANDLE_VALUE;
  }
  if (opened.created && (attributes & FILE_ATTRIBUTE_HIDDEN) && !qn::IsHidden(path)) {
    qn::MarkHidden(number);
  }
  if (attributes & FILE_FLAG_SEQUENTIAL_SCAN) {
    posix_fadvise(number, 0, 0, POSIX_FADV_SEQUENTIAL);
  } else if (attributes & FILE_FLAG_RANDOM_ACCESS) {
    posix_fadvise(number, 0, 0, POSIX_FADV_RANDOM);
  }
  const auto file = std::make_shared<FileObject>(number);
  static_cast<void>(descriptor.Release());
  file->access = access;
  if (attributes & FILE_FLAG_DELETE_ON_CLOSE) file->DeleteOnClose(path);

  const HANDLE handle = qn::AddHandle(file);
  if (!handle) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return INVALID_HANDLE_VALUE;
  }
  const bool tellsExisting = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
  SetLastError(tellsExisting && !opened.created ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return handle;
}

constexpr int kSeekMethods[] = {SEEK_SET, SEEK_CUR, SEEK_END};

// Moves the position; negative on failure, with the last error set.
int64_t Seek(HANDLE handle, int64_t distance, DWORD method) {
  const auto file = FindFile(handle);
  if (!file) return -1;
  if (method > FILE_END) {
    FailWith(ERROR_INVALID_PARAMETER);
    return -1;
  }
  const off_t position = lseek(file->Descriptor(), distance, kSeekMethods[method]);
  if (position >= 0) return position;
  // lseek reports a position before the start and a bad descriptor kind alike; only the first occurs here.
  FailWith(errno == EINVAL ? ERROR_NEGATIVE_SEEK : qn::ErrorFromErrno(errno));
  return -1;
}

}  // namespace

namespace qn {

bool ReserveFile(HANDLE handle, int64_t bytes) {
  const auto file = FindFile(handle);
  if (!file) return false;
  const int descriptor = file->Descriptor();
  int failed = bytes > 0 ? fallocate(descriptor, 0, 0, bytes) : 0;
  if (failed != 0 && (errno == EOPNOTSUPP || errno == ENOSYS)) failed = 0;
  return (failed == 0 && ftruncate(descriptor, bytes) == 0) || FailWithErrno();
}

}  // namespace qn

inline namespace qnplatform {

HANDLE CreateFileW(const WCHAR* name, DWORD access, DWORD share, void*, DWORD disposition, DWORD attributes,
                   HANDLE) try {
  std::string path;
  if (!ToPath(name, &path)) {
    SetLastError(name && *name ? ERROR_INVALID_NAME : ERROR_PATH_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  const bool validDisposition = disposition >= CREATE_NEW && disposition <= TRUNCATE_EXISTING;
  if (!validDisposition || (disposition == TRUNCATE_EXISTING && !(access & GENERIC_WRITE))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  return OpenFile(path, access, share, disposition, attributes);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return INVALID_HANDLE_VALUE;
}

BOOL ReadFile(HANDLE handle, void* buffer, DWORD bytes, DWORD* got, void* overlapped) {
  if (got) *got = 0;
  const auto file = FindFile(handle);
  if (!file) return FALSE;
  if (overlapped) return FailWith(ERROR_INVALID_PARAMETER);
  if (!(file->access & GENERIC_READ)) return FailWith(ERROR_ACCESS_DENIED);
  DWORD done = 0;
  while (done < bytes) {
    const ssize_t count = read(file->Descriptor(), static_cast<char*>(buffer) + done, bytes - done);
    if (count == 0) break;
    if (count < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN) break;  // an empty FIFO
      return FailWithErrno();
    }
    done += static_cast<DWORD>(count);
    if (got) *got = done;
  }
  return TRUE;
}

BOOL WriteFile(HANDLE handle, const void* buffer, DWORD bytes, DWORD* put, void* overlapped) {
  if (put) *put = 0;
  const auto file = FindFile(handle);
  if (!file) return FALSE;
  if (overlapped) return FailWith(ERROR_INVALID_PARAMETER);
  if (!(file->access & GENERIC_WRITE)) return FailWith(ERROR_ACCESS_DENIED);
  DWORD done = 0;
  while (done < bytes) {
    const ssize_t count = write(file->Descriptor(), static_cast<const char*>(buffer) + done, bytes - done);
    if (count < 0) {
      if (errno == EINTR) continue;
      return FailWithErrno();
    }
    done += static_cast<DWORD>(count);
    if (put) *put = done;
  }
  return TRUE;
}

DWORD SetFilePointer(HANDLE handle, LONG distance, LONG* high, DWORD method) {
  int64_t wide = distance;
  if (high)
    wide = static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(*high)) << 32) |
                                static_cast<uint32_t>(distance));
  const int64_t before = high ? 0 : Seek(handle, 0, FILE_CURRENT);
  const int64_t position = before < 0 ? before : Seek(handle, wide, method);
  if (position < 0) return INVALID_SET_FILE_POINTER;
  if (!high && position > 0xFFFFFFFF) {
    Seek(handle, before, FILE_BEGIN);
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_SET_FILE_POINTER;
  }
  if (high) *high = static_cast<LONG>(position >> 32);
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(position);
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method) {
  const int64_t reached = Seek(handle, distance.QuadPart, method);
  if (reached < 0) return FALSE;
  if (position) position->QuadPart = reached;
  return TRUE;
}

BOOL SetEndOfFile(HANDLE handle) {
  const auto file = FindFile(handle);
  if (!file) return FALSE;
  if (!(file->access & GENERIC_WRITE)) return FailWith(ERROR_ACCESS_DENIED);
  const off_t position = lseek(file->Descriptor(), 0, SEEK_CUR);
  if (position < 0 || ftruncate(file->Descriptor(), position) != 0) return FailWithErrno();
  return TRUE;
}

DWORD GetFileSize(HANDLE handle, DWORD* high) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(handle, &size)) return INVALID_FILE_SIZE;
  if (high) *high = static_cast<DWORD>(size.u.HighPart);
  SetLastError(ERROR_SUCCESS);
  return size.u.LowPart;
}

BOOL GetFileSizeEx(HANDLE handle, LARGE_INTEGER* size) {
  const auto file = FindFile(handle);
  if (!file) return FALSE;
  struct stat info;
  if (fstat(file->Descriptor(), &info) != 0) return FailWithErrno();
  size->QuadPart = info.st_size;
  return TRUE;
}

BOOL FlushFileBuffers(HANDLE handle) {
  const auto file = FindFile(handle);
  if (!file) return FALSE;
  return fsync(file->Descriptor()) == 0 ? TRUE : FailWithErrno();
}

BOOL DeleteFileW(const WCHAR* name) try {
  std::string path;
  if (!ToPath(name, &path)) return FailWith(ERROR_INVALID_NAME);
  const qn::DeleteClaim claim(AT_FDCWD, path.c_str());
  if (claim.Refused()) return FailWith(ERROR_SHARING_VIOLATION);
  return unlink(path.c_str()) == 0 ? TRUE : FailWith(OpenError(path));
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qnplatform
