#include "qn/settings/qnerror.h"

namespace {

struct SystemErrorRow {
  DWORD code;
  HRESULT status;
};

// System errors: only the numbers whose status differs from E_FAIL.
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

// The failures of the system's common dialogs.
constexpr SystemErrorRow kDialogErrors[] = {
    {0x0000, S_OK},           // the user closed the dialog
    {0x0001, E_INVALIDARG},   // structure size
    {0x0002, E_OUTOFMEMORY},  // initialization
    {0x0003, E_INVALIDARG},   // no template
    {0x0004, E_INVALIDARG},   // no instance
    {0x0005, E_OUTOFMEMORY},  // string not loaded
    {0x0006, QN_E_RESOURCE_MISSING},
    {0x0007, E_OUTOFMEMORY},   // resource not loaded
    {0x0008, E_OUTOFMEMORY},   // resource not locked
    {0x0009, E_OUTOFMEMORY},   // no memory
    {0x000A, E_OUTOFMEMORY},   // memory not locked
    {0x000B, E_INVALIDARG},    // no hook
    {0x3001, E_OUTOFMEMORY},   // list of files not subclassed
    {0x3002, QN_E_FILE_NAME},  // invalid file name
    {0x3003, E_INVALIDARG},    // buffer too small
    {0x4001, E_INVALIDARG},    // find text buffer of length 0
    {0xFFFF, E_INVALIDARG},    // no dialog
};

template <size_t kCount>
HRESULT Translate(const SystemErrorRow (&rows)[kCount], DWORD code) {
  for (const SystemErrorRow& row : rows) {
    if (row.code == code) return row.status;
  }
  return E_FAIL;
}

}  // namespace

HRESULT QnErrorHandler_TranslateWin32Error(DWORD code) {
  return Translate(kSystemErrors, code);
}

HRESULT QnErrorHandler_TranslateCommDlgError(DWORD code) {
  return Translate(kDialogErrors, code);
}
