#include <unistd.h>

#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "qn/platform/error_internal.h"
#include "qn/platform/file.h"
#include "qn/platform/handle_internal.h"
#include "qn/platform/unload_internal.h"

namespace qn {
namespace {

struct Slot {
  std::shared_ptr<SystemObject> object;
  uint32_t generation = 1;
};

struct HandleTable {
  const pid_t owner = getpid();
  std::vector<Slot> slots;
  std::vector<uint32_t> freeSlots;
};

// Made by the first handle. It has no destructor to run at exit, where others may still close handles;
// ReleaseHandles ends it.
constinit std::mutex g_mutex;
constinit HandleTable* g_table = nullptr;

// Handle values: slot + 1 in bits 2 to 31 (values are multiples of 4, as hosts expect), generation above.
constexpr unsigned kGenerationShift = 32;

HANDLE Encode(uint32_t slot, uint32_t generation) {
  const uint64_t value = (uint64_t{generation} << kGenerationShift) | (uint64_t{slot + 1} << 2);
  return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(value));
}

Slot* Decode(HANDLE handle, uint32_t* index) {
  if (!g_table) return nullptr;
  const HandleTable& table = *g_table;
  const uint64_t value = reinterpret_cast<uintptr_t>(handle);
  const uint64_t slot = (value & 0xFFFFFFFF) >> 2;
  if (slot == 0 || slot > table.slots.size() || (value & 3) != 0) return nullptr;
  Slot& found = g_table->slots[slot - 1];
  if (found.generation != value >> kGenerationShift || !found.object) return nullptr;
  *index = static_cast<uint32_t>(slot - 1);
  return &found;
}

}  // namespace

HANDLE AddHandle(std::shared_ptr<SystemObject> object) try {
  const std::lock_guard guard(g_mutex);
  if (!g_table) g_table = new HandleTable;
  HandleTable& table = *g_table;
  if (table.freeSlots.empty()) {
    // Room for the slot's later return is made now, so that closing never allocates.
    table.freeSlots.reserve(table.slots.size() + 1);
    table.slots.emplace_back();
    table.freeSlots.push_back(static_cast<uint32_t>(table.slots.size() - 1));
  }
  const uint32_t slot = table.freeSlots.back();
  table.freeSlots.pop_back();
  table.slots[slot].object = std::move(object);
  return Encode(slot, table.slots[slot].generation);
} catch (const std::bad_alloc&) {
  return nullptr;
}

std::shared_ptr<SystemObject> FindHandle(HANDLE handle) {
  const std::lock_guard guard(g_mutex);
  uint32_t index = 0;
  const Slot* slot = Decode(handle, &index);
  return slot ? slot->object : nullptr;
}

std::shared_ptr<SystemObject> RemoveHandle(HANDLE handle) {
  const std::lock_guard guard(g_mutex);
  uint32_t index = 0;
  Slot* slot = Decode(handle, &index);
  if (!slot) return nullptr;
  // Generation 0xFFFFFFFF is left out: with it, slot 0x3FFFFFFE would read as the invalid handle value.
  slot->generation = slot->generation == 0xFFFFFFFE ? 1 : slot->generation + 1;
  g_table->freeSlots.push_back(index);
  return std::move(slot->object);
}

void ReleaseHandles() {
  // What stands in the table is closed outside of its lock.
  std::unique_ptr<HandleTable> table;
  const std::lock_guard guard(g_mutex);
  // A fork's copies go with its process: closing them here could delete a file that the parent works with.
  if (!g_table || g_table->owner != getpid()) return;
  table.reset(std::exchange(g_table, nullptr));
}

}  // namespace qn

inline namespace qnplatform {

BOOL CloseHandle(HANDLE handle) {
  return qn::RemoveHandle(handle) ? TRUE : qn::FailWith(ERROR_INVALID_HANDLE);
}

}  // namespace qnplatform
