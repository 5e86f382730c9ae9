#include "qn/media/peak_scratch_internal.h"

#include <mutex>
#include <utility>

#include "qn/kernel/qnkernel_internal.h"
#include "qn/kernel/qnlist.h"

namespace qn {

struct PeakScratchBlock {
  DWORD thread;
  bool isTaken;
  alignas(16) uint8_t bytes[kPeakScratchBytes];
};

namespace {

// So many blocks stay with their threads. Threads come and go, so beyond them a new thread takes over a block
// that is not in use.
constexpr LONG kKeptBlocks = 64;

constinit std::mutex g_mutex;
constinit tQNLIST* g_blocks = nullptr;

PeakScratchBlock* BlockAt(LONG index) {
  return static_cast<PeakScratchBlock*>(static_cast<void**>(g_blocks->items)[index]);
}

PeakScratchBlock* FindBlock(DWORD thread) {
  PeakScratchBlock* other = nullptr;
  for (LONG i = 0; i < g_blocks->count; ++i) {
    PeakScratchBlock* const block = BlockAt(i);
    if (block->isTaken) continue;
    if (block->thread == thread) return block;
    other = block;
  }
  return g_blocks->count >= kKeptBlocks ? other : nullptr;
}

__attribute__((constructor(101))) void Register() {
  Steps().releasePeakScratch = ReleasePeakScratch;
}

}  // namespace

PeakScratch::PeakScratch() : block_(nullptr) {
  const std::lock_guard guard(g_mutex);
  if (!g_blocks && QnList_CreateExZ(&g_blocks, 0, -1, -1, QNLIST_OPT_OWNED_ITEMS, 0, 0, 0) != S_OK) return;
  const DWORD thread = GetCurrentThreadId();
  block_ = FindBlock(thread);
  if (!block_) {
    LONG index = -1;
    if (QnList_AllocAndInsertItem(g_blocks, nullptr, sizeof(PeakScratchBlock), -1, &index) != S_OK) return;
    block_ = BlockAt(index);
  }
  block_->thread = thread;
  block_->isTaken = true;
}

PeakScratch::~PeakScratch() {
  const std::lock_guard guard(g_mutex);
  if (block_) block_->isTaken = false;
}

uint8_t* PeakScratch::Bytes() const {
  return block_ ? block_->bytes : nullptr;
}

void ReleasePeakScratch() {
  const std::lock_guard guard(g_mutex);
  if (tQNLIST* const blocks = std::exchange(g_blocks, nullptr)) QnList_Destroy(blocks);
}

}  // namespace qn
