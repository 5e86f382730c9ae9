// Memory tokens: blocks of memory by names that another process can follow.
//
// Plug-ins run in helper processes, so blocks pass between processes as tokens and not as pointers. Who has a
// block makes a COutOfProcessMemoryToken of it and sends the token that this gives; who gets the token opens
// a CMappingOfQnMemoryToken, or copies with CopyData. docs/processes.md tells what the system must allow.
//
// Access is FILE_MAP_WRITE (2), FILE_MAP_READ (4) or both (6), as what is done to the token's memory; neither
// means both, other bits do not count.
//
// What a token of another process names is checked before it is read or written: one that lies gives a
// failure. The memory of one's own process is taken as it is named, like a pointer. Tokens are plain values;
// an object belongs to one thread at a time. Both sides may be at a shared block at once, which is their
// matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "qn/platform/types.h"

constexpr DWORD QNMEMORYTOKEN_PROCESS = 0;  // kinds: plain memory of its process
constexpr DWORD QNMEMORYTOKEN_MAPPING = 1;  // a shared mapping (CreateFileMappingW)

// Travels between processes as it is.
struct _qnmemorytoken {
  int64_t handle;      // of the mapping, in the owner's process; -1 or 0 for none
  uint64_t address;    // base of the memory in the owner's process
  uint32_t size;       // bytes of data
  uint32_t capacity;   // bytes of room
  uint64_t offset;     // from `address`, or from the start of the mapping, to the data
  uint32_t kind;       // QNMEMORYTOKEN_*
  uint32_t processId;  // of the owner
};
static_assert(sizeof(_qnmemorytoken) == 40 && std::is_trivially_copyable_v<_qnmemorytoken>);
static_assert(offsetof(_qnmemorytoken, size) == 16 && offsetof(_qnmemorytoken, offset) == 24 &&
              offsetof(_qnmemorytoken, kind) == 32 && offsetof(_qnmemorytoken, processId) == 36);

// A token's memory in this process: the memory itself where the token is of this process, a view where it is
// a mapping, else a copy. A copy starts with the data, or with access for writing alone with zeros, whether
// or not the owner's memory is there, and goes to the owner on Dispose if the access has writing: all of it,
// so what the owner wrote meanwhile is lost.
class QN_API CMappingOfQnMemoryToken {
 public:
  // Opens the memory. What went wrong shows in the functions below.
  CMappingOfQnMemoryToken(const _qnmemorytoken& token, DWORD access);
  ~CMappingOfQnMemoryToken();

  // Copies the members and no more, as hosts rely on: only one of the copies may dispose, and what the target
  // held stays open. The others' `failed` set to 1 keeps them from it.
  CMappingOfQnMemoryToken(const CMappingOfQnMemoryToken& other);
  CMappingOfQnMemoryToken& operator=(const CMappingOfQnMemoryToken& other);

  // 0 with the place of the data; E_FAIL with null in `*target` on failure; E_POINTER for null.
  HRESULT GetPointer(void** target) const;
  // The place of the data, until Dispose; null on failure.
  void* Pointer() const;
  // Bytes of data, or -1 on failure. (The largest size of all is -1 too; Pointer tells them apart.)
  LONG DataSize() const;

  // Gives back what was opened and writes a copy to the owner, whose failures nobody hears of. The object is
  // failed afterwards, so that disposing again does nothing. Always 0. The destructor does it, too.
  HRESULT Dispose();
  HRESULT Close();

  // Copies a token's data out, or `size` bytes from its start in, without an object. 0; E_POINTER for a null
  // pointer, also one that a token of this process names; 0x8004E03C reading out to fewer bytes than the
  // token has, and writing more than it has; E_INVALIDARG writing a negative count; else the status of the
  // system's error (QnErrorHandler_TranslateWin32Error). After a failure some of the bytes may have been
  // copied.
  static HRESULT CopyData(void* destination, const _qnmemorytoken& token, LONG size);
  static HRESULT CopyData(const _qnmemorytoken& token, const void* source, LONG size);

  _qnmemorytoken token;
  void* pointer;     // where the data is visible here
  void* view;        // of the mapping
  HANDLE duplicate;  // of the mapping's handle; -1 for none
  uint8_t mapped;
  uint8_t copied;  // `pointer` is a block of GlobalAlloc
  uint8_t failed;
  uint8_t writeBack;
};

// Makes a token usable for a process that cannot address the block. A mapping is passed on as it is, and so
// is plain memory with `direct` nonzero or below 4 GiB, which the other side can reach. For other memory
// there is a mirror: a shared mapping with a copy of the data, which with access for writing is copied back
// when this object ends. Until then the token is good.
class QN_API COutOfProcessMemoryToken {
 public:
  COutOfProcessMemoryToken(_qnmemorytoken& token, DWORD access, int direct);
  ~COutOfProcessMemoryToken();

  // Copies the members and no more, as that of mappings does: a mirror goes with the first copy that ends.
  COutOfProcessMemoryToken(const COutOfProcessMemoryToken& other);
  COutOfProcessMemoryToken& operator=(const COutOfProcessMemoryToken& other);

  // 0 with the token to give to the other process; E_FAIL, and `token` as it was, if there is none: no memory
  // for a mirror, data that cannot be read, or a mirror of 0 bytes.
  HRESULT GetMemoryToken(_qnmemorytoken& token) const;

  _qnmemorytoken source;
  _qnmemorytoken mirror;
  uint32_t mirrorActive;
  uint32_t failed;
  uint32_t access;
};
