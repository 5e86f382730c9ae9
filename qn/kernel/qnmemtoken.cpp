#include "qn/kernel/qnmemtoken.h"

#include <cstring>

#include "qn/kernel/qnmemtoken_internal.h"
#include "qn/platform/memory.h"
#include "qn/platform/open_file_internal.h"
#include "qn/platform/process.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr DWORD kMemoryAccess = PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE;

HRESULT LastStatus() {
  return QnErrorHandler_TranslateWin32Error(GetLastError());
}

bool IsOwn(const _qnmemorytoken& token) {
  return token.processId == GetCurrentProcessId();
}

// Where the data is in the owner's process. An offset may lead backwards, by a sum that wraps. What is not in
// that process's memory, or reaches beyond all memory, the system refuses to read and write.
void* DataAddress(const _qnmemorytoken& token) {
  return reinterpret_cast<void*>(token.address + token.offset);
}

// A view of another process's mapping, up to the end of the token's data. False with the last error.
bool OpenView(const _qnmemorytoken& token, DWORD access, HANDLE* duplicate, void** view) {
  uint64_t length;
  if (__builtin_add_overflow(token.offset, token.size, &length)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  const qn::OpenedHandle owner(OpenProcess(PROCESS_DUP_HANDLE, FALSE, token.processId));
  HANDLE made = nullptr;
  if (!owner || !DuplicateHandle(owner.Get(), qn::TokenHandle(token), GetCurrentProcess(), &made, 0, FALSE,
                                 DUPLICATE_SAME_ACCESS)) {
    return false;
  }
  *view = MapViewOfFile(made, access, 0, 0, length);
  if (!*view) {
    CloseHandle(made);
    return false;
  }
  *duplicate = made;
  return true;
}

// Copies between a token's data and the caller's memory, `copy` in this process and `transfer` otherwise.
template <typename Copy, typename Transfer>
HRESULT CopyBytes(const _qnmemorytoken& token, DWORD access, Copy copy, Transfer transfer) {
  void* const address = DataAddress(token);
  if (IsOwn(token)) {
    if (!address) return token.size > 0 ? E_POINTER : S_OK;
    copy(address);
    return S_OK;
  }
  if (token.kind == QNMEMORYTOKEN_MAPPING) {
    HANDLE duplicate;
    void* view;
    if (!OpenView(token, access, &duplicate, &view)) return LastStatus();
    copy(static_cast<char*>(view) + token.offset);
    UnmapViewOfFile(view);
    CloseHandle(duplicate);
    return S_OK;
  }
  if (token.kind != QNMEMORYTOKEN_PROCESS) return E_FAIL;
  const qn::OpenedHandle owner(OpenProcess(kMemoryAccess, FALSE, token.processId));
  if (!owner || !transfer(owner.Get(), address)) return LastStatus();
  return S_OK;
}

}  // namespace

CMappingOfQnMemoryToken::CMappingOfQnMemoryToken(const _qnmemorytoken& source, DWORD access)
    : token(source),
      pointer(nullptr),
      view(nullptr),
      duplicate(INVALID_HANDLE_VALUE),
      mapped(0),
      copied(0),
      failed(1),
      writeBack(0) {
  access = qn::TokenAccess(access);
  if (IsOwn(token)) {
    pointer = DataAddress(token);
    failed = 0;
  } else if (token.kind == QNMEMORYTOKEN_MAPPING) {
    if (!OpenView(token, access, &duplicate, &view)) return;
    pointer = static_cast<char*>(view) + token.offset;
    mapped = 1;
    failed = 0;
  } else if (token.kind == QNMEMORYTOKEN_PROCESS) {
    void* const block = GlobalAlloc(GPTR, token.size);
    if (!block) return;
    if (access & FILE_MAP_READ) {
      const qn::OpenedHandle owner(OpenProcess(kMemoryAccess, FALSE, token.processId));
      if (!owner || !ReadProcessMemory(owner.Get(), DataAddress(token), block, token.size, nullptr)) {
        GlobalFree(block);
        return;
      }
    }
    pointer = block;
    copied = 1;
    failed = 0;
    writeBack = (access & FILE_MAP_WRITE) != 0;
  }
}

CMappingOfQnMemoryToken::~CMappingOfQnMemoryToken() {
  Dispose();
}

CMappingOfQnMemoryToken::CMappingOfQnMemoryToken(const CMappingOfQnMemoryToken& other) = default;
CMappingOfQnMemoryToken& CMappingOfQnMemoryToken::operator=(const CMappingOfQnMemoryToken& other) = default;

HRESULT CMappingOfQnMemoryToken::GetPointer(void** target) const {
  if (!target) return E_POINTER;
  *target = Pointer();
  return failed ? E_FAIL : S_OK;
}

void* CMappingOfQnMemoryToken::Pointer() const {
  return failed ? nullptr : pointer;
}

LONG CMappingOfQnMemoryToken::DataSize() const {
  return failed ? -1 : static_cast<LONG>(token.size);
}

HRESULT CMappingOfQnMemoryToken::Dispose() {
  if (!failed && mapped) {
    // A handle is closed once: if a copy of this object has done it, the view's place may be another one's.
    if (CloseHandle(duplicate)) UnmapViewOfFile(view);
    duplicate = INVALID_HANDLE_VALUE;
    view = nullptr;
  }
  if (!failed && copied) {
    if (writeBack) {
      const qn::OpenedHandle owner(OpenProcess(kMemoryAccess, FALSE, token.processId));
      if (owner) WriteProcessMemory(owner.Get(), DataAddress(token), pointer, token.size, nullptr);
    }
    GlobalFree(pointer);
  }
  pointer = nullptr;
  mapped = copied = writeBack = 0;
  failed = 1;
  return S_OK;
}

HRESULT CMappingOfQnMemoryToken::Close() {
  return Dispose();
}

HRESULT CMappingOfQnMemoryToken::CopyData(void* destination, const _qnmemorytoken& token, LONG size) {
  if (!destination) return E_POINTER;
  if (size < int64_t{token.size}) return QN_E_BUFFER_TOO_SMALL;
  return CopyBytes(
      token, FILE_MAP_READ, [&](const void* data) { std::memmove(destination, data, token.size); },
      [&](HANDLE owner, const void* address) {
        return ReadProcessMemory(owner, address, destination, token.size, nullptr);
      });
}

HRESULT CMappingOfQnMemoryToken::CopyData(const _qnmemorytoken& token, const void* source, LONG size) {
  if (!source) return E_POINTER;
  if (size > int64_t{token.size}) return QN_E_BUFFER_TOO_SMALL;
  if (size < 0) return E_INVALIDARG;
  const auto count = static_cast<size_t>(size);
  return CopyBytes(
      token, FILE_MAP_WRITE, [&](void* data) { std::memmove(data, source, count); },
      [&](HANDLE owner, void* address) {
        return WriteProcessMemory(owner, address, source, count, nullptr);
      });
}
