// Memory blocks that cross the library's border, and private heaps.
//
// A block handed to a caller comes from GlobalAlloc with GlobalLock and is released by GlobalUnlock and
// GlobalFree on its handle, which GlobalHandle finds again from the pointer.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr UINT GMEM_FIXED = 0x0000;
constexpr UINT GMEM_MOVEABLE = 0x0002;
constexpr UINT GMEM_ZEROINIT = 0x0040;
constexpr UINT GHND = GMEM_MOVEABLE | GMEM_ZEROINIT;
constexpr UINT GPTR = GMEM_FIXED | GMEM_ZEROINIT;

// A block of `bytes` bytes, aligned to 16, zero-filled with GMEM_ZEROINIT. The handle of a fixed block is
// its address; that of a movable one is not, and GlobalLock leads to the address. Null when there is no
// memory (last error 8). Free with GlobalFree.
QN_API HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes);

// The address of a block, and one lock more on a movable one. Null for a handle that is no block.
QN_API void* GlobalLock(HGLOBAL block);

// Takes one lock off a movable block. Nonzero while locks are left; 0 with last error 0 after the last one
// and for a fixed block.
QN_API BOOL GlobalUnlock(HGLOBAL block);

// The handle of the block that starts at `address`, or null.
QN_API HGLOBAL GlobalHandle(const void* address);

// The bytes asked for at the latest allocation of the block; 0 for a handle that is no block.
QN_API SIZE_T GlobalSize(HGLOBAL block);

// Resizes a block; new bytes are zero with GMEM_ZEROINIT. A fixed or locked block moves only if `flags` has
// GMEM_MOVEABLE. The handle of the resized block (for a movable one the same), or null with the block as it
// was.
QN_API HGLOBAL GlobalReAlloc(HGLOBAL block, SIZE_T bytes, UINT flags);

// Frees a block, locked or not. Null on success, else the handle.
QN_API HGLOBAL GlobalFree(HGLOBAL block);

constexpr DWORD HEAP_NO_SERIALIZE = 0x00000001;
constexpr DWORD HEAP_ZERO_MEMORY = 0x00000008;

// A private heap: an arena that grows as needed and goes as a whole with HeapDestroy. With HEAP_NO_SERIALIZE
// one thread at a time uses it. The sizes are hints. Null when there is no memory.
QN_API HANDLE HeapCreate(DWORD options, SIZE_T initialSize, SIZE_T maximumSize);
QN_API BOOL HeapDestroy(HANDLE heap);

// A block of the heap, aligned to 16, zero-filled with HEAP_ZERO_MEMORY; null when there is no memory.
QN_API void* HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);

// Resizes a block of the heap, keeping its content; null with the block as it was when there is no memory.
QN_API void* HeapReAlloc(HANDLE heap, DWORD flags, void* block, SIZE_T bytes);
QN_API BOOL HeapFree(HANDLE heap, DWORD flags, void* block);

// The bytes asked for at the latest allocation of the block.
QN_API SIZE_T HeapSize(HANDLE heap, DWORD flags, const void* block);

// True when `bytes` bytes from `address` on cannot all be read. The kernel is asked, nothing is touched, so
// another thread can make the answer stale.
QN_API BOOL IsBadReadPtr(const void* address, SIZE_T bytes);

}  // namespace qnplatform
