#include <cstring>

#include "qn/kernel/qnmemtoken_internal.h"
#include "qn/platform/handle_internal.h"
#include "qn/platform/process.h"

namespace {

// A mapping of `size` bytes with a view of it; an empty token on failure.
_qnmemorytoken MakeMirror(uint32_t size) {
  const HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, nullptr);
  if (!mapping) return {};
  void* const view = MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, size);
  if (!view) {
    CloseHandle(mapping);
    return {};
  }
  return {.handle = static_cast<int64_t>(reinterpret_cast<uintptr_t>(mapping)),
          .address = reinterpret_cast<uintptr_t>(view),
          .size = size,
          .capacity = size,
          .offset = 0,
          .kind = QNMEMORYTOKEN_MAPPING,
          .processId = GetCurrentProcessId()};
}

void ReleaseMirror(_qnmemorytoken* mirror) {
  // A handle is closed once: if a copy of the object has done it, the view has gone, too.
  if (CloseHandle(qn::TokenHandle(*mirror))) UnmapViewOfFile(reinterpret_cast<void*>(mirror->address));
  *mirror = {};
}

bool CopyAll(const _qnmemorytoken& from, const _qnmemorytoken& to) {
  const CMappingOfQnMemoryToken source(from, FILE_MAP_READ);
  const CMappingOfQnMemoryToken target(to, FILE_MAP_WRITE);
  if (source.DataSize() != target.DataSize() || !source.Pointer() || !target.Pointer()) return false;
  std::memcpy(target.Pointer(), source.Pointer(), from.size);
  return true;
}

}  // namespace

COutOfProcessMemoryToken::COutOfProcessMemoryToken(_qnmemorytoken& token, DWORD wanted, int direct)
    : source(token), mirror{}, mirrorActive(1), failed(1), access(qn::TokenAccess(wanted)) {
  const bool isReachable = source.address + source.offset <= UINT32_MAX;
  if (source.kind == QNMEMORYTOKEN_MAPPING ||
      (source.kind == QNMEMORYTOKEN_PROCESS && (direct || isReachable))) {
    mirror = source;
    mirrorActive = 0;
    failed = 0;
    return;
  }
  mirror = MakeMirror(source.size);
  const bool isMade = mirror.handle != 0;
  failed = !isMade || ((access & FILE_MAP_READ) && !CopyAll(source, mirror));
  if (failed) ReleaseMirror(&mirror);
}

COutOfProcessMemoryToken::~COutOfProcessMemoryToken() {
  if (!mirrorActive || failed) return;
  // A copy of this object may have released the mirror already.
  const bool isThere = qn::FindHandle(qn::TokenHandle(mirror)) != nullptr;
  if (access & FILE_MAP_WRITE) failed = !isThere || !CopyAll(mirror, source);
  ReleaseMirror(&mirror);
}

COutOfProcessMemoryToken::COutOfProcessMemoryToken(const COutOfProcessMemoryToken& other) = default;
COutOfProcessMemoryToken& COutOfProcessMemoryToken::operator=(const COutOfProcessMemoryToken& other) =
    default;

HRESULT COutOfProcessMemoryToken::GetMemoryToken(_qnmemorytoken& token) const {
  if (failed) return E_FAIL;
  token = mirror;
  return S_OK;
}
