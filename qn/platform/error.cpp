#include <cerrno>

#include "qn/platform/error_internal.h"

namespace {

// In a signal too, where the first use of other thread-local memory might allocate.
__attribute__((tls_model("initial-exec"))) constinit thread_local DWORD lastError = ERROR_SUCCESS;

struct ErrnoRow {
  int error;
  DWORD code;
};

constexpr ErrnoRow kErrnoRows[] = {
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {ELOOP, ERROR_PATH_NOT_FOUND},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {EACCES, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},
    {EISDIR, ERROR_ACCESS_DENIED},
    {ETXTBSY, ERROR_SHARING_VIOLATION},
    {EROFS, ERROR_WRITE_PROTECT},
    {EBADF, ERROR_INVALID_HANDLE},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {ENOSPC, ERROR_DISK_FULL},
    {EDQUOT, ERROR_DISK_FULL},
    {EEXIST, ERROR_FILE_EXISTS},
    {EXDEV, ERROR_NOT_SAME_DEVICE},
    {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ENAMETOOLONG, ERROR_INVALID_NAME},
    {EFBIG, ERROR_FILE_TOO_LARGE},
    {EBUSY, ERROR_BUSY},
    {ENOSYS, ERROR_CALL_NOT_IMPLEMENTED},
};

}  // namespace

inline namespace qnplatform {

DWORD GetLastError() {
  return lastError;
}
void SetLastError(DWORD error) {
  lastError = error;
}

}  // namespace qnplatform

namespace qn {

DWORD ErrorFromErrno(int error) {
  for (const ErrnoRow& row : kErrnoRows) {
    if (row.error == error) return row.code;
  }
  return ERROR_GEN_FAILURE;
}

BOOL FailWithErrno() {
  return FailWith(ErrorFromErrno(errno));
}

BOOL FailWith(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace qn
