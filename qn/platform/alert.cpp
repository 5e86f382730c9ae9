// Alerts: calls that a thread makes for others while it waits.
//
// Ids of threads are used again, so a thread is known by its id and the time of its start.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "qn/platform/error_internal.h"
#include "qn/platform/sync.h"
#include "qn/platform/wait_internal.h"

namespace qn {
namespace {

struct Alert {
  PAPCFUNC call;
  ULONG_PTR parameter;
};

struct ThreadObject final : SystemObject {
  DWORD id = 0;
  uint64_t start = 0;
  std::vector<Alert> alerts;  // under the mutex
};

using Threads = std::vector<std::shared_ptr<ThreadObject>>;

constinit std::mutex g_mutex;
constinit Threads* g_threads = nullptr;      // those that were opened
constinit std::atomic<size_t> g_alerts = 0;  // of all threads, so that most waits need no lock

// When a thread of this process started, in the system's ticks; 0 if there is none.
uint64_t StartOfThread(DWORD id) {
  char text[1024];
  std::snprintf(text, sizeof text, "/proc/self/task/%u/stat", id);
  const int file = open(text, O_RDONLY | O_CLOEXEC);
  if (file < 0) return 0;
  const ssize_t size = read(file, text, sizeof text - 1);
  close(file);
  if (size <= 0) return 0;
  text[size] = 0;
  // The second field is a name in brackets, in which anything may stand; this is the 22nd.
  const char* field = std::strrchr(text, ')');
  for (int i = 2; field && i < 22; ++i) field = std::strchr(field + 1, ' ');
  return field ? std::strtoull(field, nullptr, 10) : 0;
}

bool Lives(const ThreadObject& thread) {
  return StartOfThread(thread.id) == thread.start;
}

// Under the mutex: the object of a thread that was opened, or null.
std::shared_ptr<ThreadObject> FindThread(DWORD id, uint64_t start) {
  for (size_t i = 0; g_threads && i < g_threads->size(); ++i) {
    const auto& thread = (*g_threads)[i];
    if (thread->id == id && thread->start == start) return thread;
  }
  return nullptr;
}

// The object of a thread; threads that have ended go. Null without memory.
std::shared_ptr<ThreadObject> ThreadFor(DWORD id, uint64_t start) try {
  const std::lock_guard guard(g_mutex);
  if (!g_threads) g_threads = new Threads;
  std::erase_if(*g_threads, [](const auto& thread) {
    if (Lives(*thread)) return false;
    g_alerts -= std::exchange(thread->alerts, {}).size();
    return true;
  });
  if (auto known = FindThread(id, start)) return known;
  auto made = std::make_shared<ThreadObject>();
  made->id = id;
  made->start = start;
  g_threads->push_back(made);
  return made;
} catch (const std::bad_alloc&) {
  return nullptr;
}

bool AddAlert(ThreadObject& thread, const Alert& alert) try {
  const std::lock_guard guard(g_mutex);
  thread.alerts.push_back(alert);
  ++g_alerts;
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace

bool HasAlerts() {
  if (g_alerts.load() == 0) return false;
  const DWORD id = GetCurrentThreadId();
  const uint64_t start = StartOfThread(id);
  const std::lock_guard guard(g_mutex);
  const ThreadObject* const self = FindThread(id, start).get();
  return self && !self->alerts.empty();
}

void RunAlerts() {
  std::vector<Alert> alerts;
  const DWORD id = GetCurrentThreadId();
  const uint64_t start = StartOfThread(id);
  {
    const std::lock_guard guard(g_mutex);
    if (const auto self = FindThread(id, start)) alerts = std::exchange(self->alerts, {});
    g_alerts -= alerts.size();
  }
  for (const Alert& alert : alerts) alert.call(alert.parameter);
}

void ReleaseThreads() {
  const std::lock_guard guard(g_mutex);
  delete std::exchange(g_threads, nullptr);
  g_alerts = 0;
}

}  // namespace qn

inline namespace qnplatform {

HANDLE OpenThread(DWORD, BOOL, DWORD threadId) {
  const uint64_t start = qn::StartOfThread(threadId);
  if (start == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  auto thread = qn::ThreadFor(threadId, start);
  const HANDLE handle = thread ? qn::AddHandle(std::move(thread)) : nullptr;
  if (!handle) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return handle;
}

DWORD QueueUserAPC(PAPCFUNC alert, HANDLE thread, ULONG_PTR parameter) {
  const auto object = std::dynamic_pointer_cast<qn::ThreadObject>(qn::FindHandle(thread));
  if (!object || !alert)
    return static_cast<DWORD>(qn::FailWith(object ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE));
  if (!qn::Lives(*object)) return static_cast<DWORD>(qn::FailWith(ERROR_GEN_FAILURE));
  if (!qn::AddAlert(*object, {alert, parameter}))
    return static_cast<DWORD>(qn::FailWith(ERROR_NOT_ENOUGH_MEMORY));
  qn::WakeThread(object->id);
  return TRUE;
}

}  // namespace qnplatform
