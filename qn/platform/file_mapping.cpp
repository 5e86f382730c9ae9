// Views of files, read only, and of shared memory, from the start on.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <map>
#include <mutex>
#include <new>
#include <utility>

#include "qn/platform/error_internal.h"
#include "qn/platform/mapping_object_internal.h"
#include "qn/platform/unload_internal.h"

namespace qn {
namespace {

using Views = std::map<const void*, size_t>;

// Made by the first view and ended by ReleaseViews, as the table of handles is.
constinit std::mutex g_mutex;
constinit Views* g_views = nullptr;
[[maybe_unused]] const int g_forkHandlers =
    pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); }, [] { g_mutex.unlock(); });

bool AddView(const void* view, size_t bytes) try {
  const std::lock_guard guard(g_mutex);
  if (!g_views) g_views = new Views;
  g_views->emplace(view, bytes);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace

void ReleaseViews() {
  const std::lock_guard guard(g_mutex);
  if (!g_views || !IsOnlyThread()) return;
  for (const auto& [view, bytes] : *g_views) munmap(const_cast<void*>(view), bytes);
  delete std::exchange(g_views, nullptr);
}

}  // namespace qn

inline namespace qnplatform {

HANDLE CreateFileMappingW(HANDLE handle, void*, DWORD protection, DWORD high, DWORD low,
                          const WCHAR* name) try {
  const uint64_t bytes = uint64_t{high} << 32 | low;
  const bool isShared = handle == INVALID_HANDLE_VALUE;
  const auto file = isShared ? nullptr : qn::FindFile(handle);
  if (!isShared && !file) return nullptr;
  const bool isPossible =
      isShared ? protection == PAGE_READWRITE && bytes : protection == PAGE_READONLY && !bytes;
  if (!isPossible || name) {
    qn::FailWith(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  if (isShared) return qn::MakeSharedMapping(bytes);
  struct stat info;
  if (fstat(file->Descriptor(), &info) != 0) {
    qn::FailWithErrno();
    return nullptr;
  }
  if (info.st_size == 0) {
    qn::FailWith(ERROR_FILE_INVALID);
    return nullptr;
  }
  const HANDLE mapping =
      qn::AddHandle(std::make_shared<qn::FileMapping>(file, static_cast<size_t>(info.st_size)));
  if (!mapping) qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return mapping;
} catch (const std::bad_alloc&) {
  qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

void* MapViewOfFile(HANDLE handle, DWORD access, DWORD high, DWORD low, SIZE_T bytes) {
  const auto mapping = std::dynamic_pointer_cast<qn::MappingObject>(qn::FindHandle(handle));
  if (!mapping || !access || (access & ~mapping->Access()) || high || low || bytes > mapping->Bytes()) {
    qn::FailWith(mapping ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
    return nullptr;
  }
  const size_t length = bytes ? bytes : mapping->Bytes();
  // Writing takes reading with it, as published.
  const int protection = access & FILE_MAP_WRITE ? PROT_READ | PROT_WRITE : PROT_READ;
  void* const view = mmap(nullptr, length, protection, MAP_SHARED, mapping->Descriptor(), 0);
  if (view == MAP_FAILED) {
    qn::FailWithErrno();
    return nullptr;
  }
  if (qn::AddView(view, length)) return view;
  munmap(view, length);
  qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

BOOL UnmapViewOfFile(const void* view) {
  const std::lock_guard guard(qn::g_mutex);
  if (!qn::g_views) return qn::FailWith(ERROR_INVALID_ADDRESS);
  const auto found = qn::g_views->find(view);
  if (found == qn::g_views->end()) return qn::FailWith(ERROR_INVALID_ADDRESS);
  munmap(const_cast<void*>(view), found->second);
  qn::g_views->erase(found);
  return TRUE;
}

}  // namespace qnplatform
