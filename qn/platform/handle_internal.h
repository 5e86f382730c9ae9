// The table behind HANDLE values of system objects.
//
// A handle is a slot's number with a generation, not an address: a stale or made-up value is refused, never
// followed. Generations start at a random number, so that values of another process, or of another copy of
// the library in this one, are refused too.
#pragma once

#include <atomic>
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
  uint32_t nextFree = 0;
  std::shared_ptr<SystemObject> object;  // null for an event
};

constexpr uint64_t kSlotOpen = 1;
constexpr uint64_t kSlotEvent = 2;
constexpr uint64_t kSlotAutoReset = 4;
constexpr uint64_t kSlotSignalled = 8;
constexpr uint64_t kSlotWaiters = 16;  // who signals or closes the event has somebody to wake
constexpr uint64_t kSlotCountOne = 256;
constexpr uint64_t kSlotCount = 0xFFFFFF00;

constexpr uint32_t GenerationOf(uint64_t state) {
  return static_cast<uint32_t>(state >> 32);
}
constexpr uint32_t GenerationOf(HANDLE handle) {
  return GenerationOf(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle)));
}
// What a count is after one more signal or end.
constexpr uint64_t Counted(uint64_t state) {
  return (state & ~kSlotCount) | ((state + kSlotCountOne) & kSlotCount);
}

// True for the state of the slot of an event that the handle stands for.
constexpr bool IsEventOf(uint64_t state, uint32_t generation) {
  return GenerationOf(state) == generation && (state & (kSlotOpen | kSlotEvent)) == (kSlotOpen | kSlotEvent);
}

// The slot that a handle names, whatever is in it now; null for none.
HandleSlot* FindSlot(HANDLE handle);

// A new handle for an event: `flags` are kSlotAutoReset and kSlotSignalled. Null when there is no memory.
HANDLE AddEvent(uint64_t flags);

}  // namespace qn
