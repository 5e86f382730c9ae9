#include "benchmarks/support/allocations.h"

#include <atomic>
#include <cstddef>

#define QN_EXPORTED __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
}

namespace {

std::atomic<int64_t> allocations = 0;

void* Counted(void* block) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return block;
}

}  // namespace

int64_t qnbench::Allocations() {
  return allocations.load(std::memory_order_relaxed);
}

extern "C" {
QN_EXPORTED void* malloc(size_t bytes) {
  return Counted(__libc_malloc(bytes));
}
QN_EXPORTED void* calloc(size_t count, size_t bytes) {
  return Counted(__libc_calloc(count, bytes));
}
QN_EXPORTED void* realloc(void* block, size_t bytes) {
  return Counted(__libc_realloc(block, bytes));
}
}
