// What the two classes of tokens share.
#pragma once

#include "qn/kernel/qnmemtoken.h"
#include "qn/platform/file.h"

namespace qn {

// Neither reading nor writing means both.
constexpr DWORD TokenAccess(DWORD access) {
  constexpr DWORD kBoth = FILE_MAP_WRITE | FILE_MAP_READ;
  return access & kBoth ? access & kBoth : kBoth;
}

inline HANDLE TokenHandle(const _qnmemorytoken& token) {
  return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(token.handle));
}

}  // namespace qn
