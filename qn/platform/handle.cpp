#include <pthread.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "qn/platform/error_internal.h"
#include "qn/platform/file.h"
#include "qn/platform/handle_internal.h"
#include "qn/platform/unload_internal.h"
#include "qn/platform/wait_internal.h"

namespace qn {

constinit std::atomic<HandleSlot*> g_chunks[kChunks] = {};

namespace {

constexpr uint32_t kNone = 0xFFFFFFFF;

// All that changes under the mutex. It has no destructor to run at exit, where others may still close
// handles.
struct HandleTable {
  pid_t owner = 0;  // 0 before the first handle
  uint32_t firstGeneration = 0;
  uint32_t used = 0;  // slots that ever were in use
  uint32_t freeSlot = kNone;
};

constinit std::mutex g_mutex;
constinit HandleTable g_table;

// The first chunk, which most processes get by with: it comes and goes with the library.
alignas(HandleSlot) constinit std::byte g_firstChunk[kFirstChunk * sizeof(HandleSlot)] = {};

HANDLE Encode(uint32_t slot, uint32_t generation) {
  const uint64_t value = (uint64_t{generation} << 32) | (uint64_t{slot + 1} << 2);
  return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(value));
}

uint32_t RandomGeneration() {
  uint32_t random = 0;
  if (getrandom(&random, sizeof random, GRND_NONBLOCK) != sizeof random) {
    random = static_cast<uint32_t>(getpid()) * 0x9E3779B1 ^
             static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&g_table));
  }
  return NextGeneration(random);
}

// A slot for a new handle, under the mutex; null without memory.
HandleSlot* TakeSlot(uint32_t* number) {
  if (g_table.owner == 0) g_table = {getpid(), RandomGeneration(), 0, kNone};
  HandleSlot* slot;
  for (uint32_t* link = &g_table.freeSlot; *link != kNone; link = &slot->nextFree) {
    slot = SlotAt(*link);
    if (slot->waiters.load() != 0) continue;  // somebody is still to learn what became of the latest handle
    *number = std::exchange(*link, slot->nextFree);
    return slot;
  }
  *number = g_table.used;
  const unsigned chunk = ChunkOf(*number);
  if (chunk >= kChunks) return nullptr;
  if (!g_chunks[chunk].load(std::memory_order_relaxed)) {
    HandleSlot* const slots = chunk == 0 ? reinterpret_cast<HandleSlot*>(g_firstChunk)
                                         : new (std::nothrow) HandleSlot[ChunkSize(chunk)];
    if (!slots) return nullptr;
    if (chunk == 0) std::uninitialized_default_construct_n(slots, kFirstChunk);
    for (uint32_t i = 0; i < ChunkSize(chunk); ++i) {
      slots[i].state.store(uint64_t{g_table.firstGeneration} << 32, std::memory_order_relaxed);
    }
    g_chunks[chunk].store(slots, std::memory_order_release);
  }
  ++g_table.used;
  return SlotAt(*number);
}

HANDLE Open(uint64_t flags, std::shared_ptr<SystemObject> object) {
  const std::lock_guard guard(g_mutex);
  uint32_t number;
  HandleSlot* const slot = TakeSlot(&number);
  if (!slot) return nullptr;
  slot->object = std::move(object);
  const uint64_t state = slot->state.load(std::memory_order_relaxed);
  slot->state.store(state | kSlotOpen | flags, std::memory_order_release);
  return Encode(number, GenerationOf(state));
}

// Ends a slot's handle: the generation goes on, and whoever waits finds that out when woken.
void Close(HandleSlot& slot) {
  uint64_t state = slot.state.load(std::memory_order_relaxed);
  uint64_t closed;
  do {
    const uint64_t count = Counted(state) & kSlotCount;
    closed = (uint64_t{NextGeneration(GenerationOf(state))} << 32) | count;
  } while (!slot.state.compare_exchange_weak(state, closed));
}

bool IsOpen(const HandleSlot& slot, HANDLE handle) {
  const uint64_t state = slot.state.load(std::memory_order_acquire);
  return (state & kSlotOpen) != 0 && GenerationOf(state) == GenerationOf(handle);
}

// Takes what a handle stands for out of the table; false for no open handle.
bool Remove(HANDLE handle, std::shared_ptr<SystemObject>* object) {
  HandleSlot* const slot = FindSlot(handle);
  if (!slot) return false;
  {
    const std::lock_guard guard(g_mutex);
    if (!IsOpen(*slot, handle)) return false;
    Close(*slot);
    *object = std::move(slot->object);
    slot->nextFree = std::exchange(g_table.freeSlot, NumberOf(handle) - 1);
  }
  WakeWaiters(slot);
  return true;
}

// A fork's child finds the table whole, and nobody who waits.
void LockTable() {
  g_mutex.lock();
}
void UnlockTable() {
  g_mutex.unlock();
}
void ForgetWaiters() {
  for (uint32_t i = 0; i < g_table.used; ++i) SlotAt(i)->waiters = 0;
  g_mutex.unlock();
}
[[maybe_unused]] const int g_forkHandlers = pthread_atfork(LockTable, UnlockTable, ForgetWaiters);

}  // namespace

bool IsOnlyThread() {
  struct stat tasks;
  return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 3;  // its own two links and one folder
}

HANDLE AddHandle(std::shared_ptr<SystemObject> object) {
  return Open(0, std::move(object));
}

HANDLE AddEvent(uint64_t flags) {
  return Open(kSlotEvent | flags, nullptr);
}

std::shared_ptr<SystemObject> FindHandle(HANDLE handle) {
  const std::lock_guard guard(g_mutex);
  const HandleSlot* const slot = FindSlot(handle);
  return slot && IsOpen(*slot, handle) ? slot->object : nullptr;
}

std::shared_ptr<SystemObject> RemoveHandle(HANDLE handle) {
  std::shared_ptr<SystemObject> object =
      FindHandle(handle);  // which an event has not: it is not for its users
  if (object && !Remove(handle, &object)) object = nullptr;
  return object;
}

void ReleaseHandles() {
  uint32_t used;
  {
    const std::lock_guard guard(g_mutex);
    // A fork's copies go with its process: closing them here could delete a file that the parent works with.
    if (g_table.owner != getpid()) return;
    used = g_table.used;
  }
  for (uint32_t i = 0; i < used; ++i) {
    std::shared_ptr<SystemObject> object;
    Remove(Encode(i, GenerationOf(SlotAt(i)->state.load())), &object);
  }
  ReleaseThreads();
  if (!IsOnlyThread()) return;
  g_table = {};
  for (unsigned i = 1; i < kChunks; ++i) delete[] g_chunks[i].exchange(nullptr);
}

}  // namespace qn

inline namespace qnplatform {

BOOL CloseHandle(HANDLE handle) {
  std::shared_ptr<qn::SystemObject> object;
  return qn::Remove(handle, &object) ? TRUE : qn::FailWith(ERROR_INVALID_HANDLE);
}

}  // namespace qnplatform
