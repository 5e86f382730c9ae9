#include "qn/settings/qnerror.h"

namespace {

struct SystemErrorRow {
  DWORD code;
  HRESULT status;
};

// Only the numbers whose status differs from E_FAIL.
constexpr SystemErrorRow kSystemErrors[] = {
    {ERROR_SUCCESS, S_OK},
    {ERROR_INVALID_FUNCTION, E_INVALIDARG},
    {ERROR_FILE_NOT_FOUND, QN_E_NOT_FOUND},
    {ERROR_PATH_NOT_FOUND, QN_E_NOT_FOUND},
    {ERROR_TOO_MANY_OPEN_FILES, QN_E_TOO_MANY_FILES},
    {ERROR_ACCESS_DENIED, E_ACCESSDENIED},
    {ERROR_INVALID_HANDLE, E_HANDLE},
    {ERROR_OUTOFMEMORY, E_OUTOFMEMORY},
    {ERROR_INVALID_DRIVE, MakeStatus(0x800404B0)},
    {ERROR_SHARING_VIOLATION, QN_E_FILE_SHARING},
    {ERROR_HANDLE_DISK_FULL, QN_E_DISK_FULL},
    {ERROR_FILE_EXISTS, QN_E_FILE_EXISTS},
    {84, E_OUTOFMEMORY},  // out of structures
    {ERROR_OPEN_FAILED, QN_E_FILE_OPEN},
    {ERROR_DISK_FULL, QN_E_DISK_FULL},
    {ERROR_CALL_NOT_IMPLEMENTED, E_NOTIMPL},
    {ERROR_INVALID_NAME, QN_E_FILE_NAME},
    {126, QN_E_NOT_FOUND},  // module not found
    {127, QN_E_NOT_FOUND},  // procedure not found
    {ERROR_BUSY, QN_E_BUSY},
    {ERROR_ALREADY_EXISTS, QN_E_ALREADY_EXISTS},
};

}  // namespace

HRESULT QnErrorHandler_TranslateWin32Error(DWORD code) {
  for (const SystemErrorRow& row : kSystemErrors) {
    if (row.code == code) return row.status;
  }
  return E_FAIL;
}
