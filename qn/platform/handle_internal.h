// The table behind HANDLE values of system objects.
//
// A handle is a slot's number with a generation, not an address: a stale or made-up value is refused, never
// followed. Generations start at a random number, so that values of another process, or of another copy of
// the library in this one, are refused too.
#pragma once

#include <atomic>
#include <bit>
#include <memory>

#include "qn/platform/types.h"

namespace qn {

// What a handle stands for. It ends when the last user lets go of it, so closing a handle while another
// thread still works with it harms nobody.
class SystemObject {
 public:
  virtual ~SystemObject() = default;

  // A descriptor that poll finds readable once the object is signalled, for waits on its handle; -1 for an
  // object that nobody can wait for. It stays the object's, and open while the object lives.
  virtual int WaitDescriptor() const { return -1; }
};

// A new handle for an object; null when there is no memory.
HANDLE AddHandle(std::shared_ptr<SystemObject> object);

// The object of an open handle, or null.
std::shared_ptr<SystemObject> FindHandle(HANDLE handle);

// Takes a handle out of the table and gives what it stood for, or null.
std::shared_ptr<SystemObject> RemoveHandle(HANDLE handle);

// A place of the table. It never moves, so that events, which are no more than the state in their slot, are
// used without a lock: every change of the state is one exchange that fails if the generation has changed.
struct alignas(64) HandleSlot {
  // Bits 32 to 63: the generation of the handle, or of the next one while none is open. Bits 8 to 31: a count
  // of the signals of the events that lived here and of their ends. Below: kSlot*.
  std::atomic<uint64_t> state = 0;
  std::atomic<uint32_t> waiters = 0;  // threads that are to be woken when the state changes
  uint32_t nextFree = 0;
  std::shared_ptr<SystemObject> object;  // null for an event
};

constexpr uint64_t kSlotOpen = 1;
constexpr uint64_t kSlotEvent = 2;
constexpr uint64_t kSlotAutoReset = 4;
constexpr uint64_t kSlotSignalled = 8;
constexpr uint64_t kSlotCountOne = 256;
constexpr uint64_t kSlotCount = 0xFFFFFF00;

constexpr uint32_t GenerationOf(uint64_t state) {
  return static_cast<uint32_t>(state >> 32);
}
inline uint32_t GenerationOf(HANDLE handle) {
  return GenerationOf(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle)));
}
// The generation after a handle has ended. 0 would give values that look like the published numbers of keys,
// and with 0xFFFFFFFF a slot would read as the invalid handle value.
constexpr uint32_t NextGeneration(uint32_t generation) {
  return generation >= 0xFFFFFFFE ? 1 : generation + 1;
}
// What a count is after one more signal or end.
constexpr uint64_t Counted(uint64_t state) {
  return (state & ~kSlotCount) | ((state + kSlotCountOne) & kSlotCount);
}

// True for the state of the slot of an event that the handle stands for.
constexpr bool IsEventOf(uint64_t state, uint32_t generation) {
  return GenerationOf(state) == generation && (state & (kSlotOpen | kSlotEvent)) == (kSlotOpen | kSlotEvent);
}

// Slots stand in chunks, each of twice the size of the one before.
constexpr unsigned kFirstChunkBits = 8;
constexpr unsigned kFirstChunk = 1 << kFirstChunkBits;
constexpr unsigned kChunks = 22;  // numbers of slots have 30 bits in a handle
extern constinit std::atomic<HandleSlot*> g_chunks[kChunks];

constexpr unsigned ChunkOf(uint32_t slot) {
  return static_cast<unsigned>(std::bit_width(slot + kFirstChunk)) - 1 - kFirstChunkBits;
}
constexpr uint32_t ChunkSize(unsigned chunk) {
  return kFirstChunk << chunk;
}
inline HandleSlot* SlotAt(uint32_t slot) {
  const unsigned chunk = slot < kFirstChunk ? 0 : ChunkOf(slot);  // most are there, without arithmetic
  if (chunk >= kChunks) return nullptr;
  HandleSlot* const slots = g_chunks[chunk].load(std::memory_order_acquire);
  return slots ? slots + (slot + kFirstChunk - ChunkSize(chunk)) : nullptr;
}

// Handle values: slot + 1 in bits 2 to 31 (values are multiples of 4, as hosts expect), generation above.
inline uint32_t NumberOf(HANDLE handle) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle)) >> 2;
}

// The slot that a handle names, whatever is in it now; null for none.
inline HandleSlot* FindSlot(HANDLE handle) {
  const uint32_t number = NumberOf(handle);
  return number == 0 || (reinterpret_cast<uintptr_t>(handle) & 3) != 0 ? nullptr : SlotAt(number - 1);
}

// A new handle for an event: `flags` are kSlotAutoReset and kSlotSignalled. Null when there is no memory.
HANDLE AddEvent(uint64_t flags);

}  // namespace qn
