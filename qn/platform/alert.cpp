// Alerts: calls that a thread makes for others while it waits.
//
// Ids of threads are used again, so a thread is known by its id and the time of its start.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
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
  std::deque<Alert> alerts;  // under the mutex
};

using Threads = std::vector<std::shared_ptr<ThreadObject>>;

constinit std::mutex g_mutex;
constinit Threads* g_threads = nullptr;      // those that were opened
constinit std::atomic<size_t> g_alerts = 0;  // of all threads, so that most waits need no lock
constinit DWORD g_forkingThread = 0;  // in a fork's child its first thread, which has its parent's id here

// For want of a descriptor to look with. It passes for the start of any thread with the same id.
constexpr uint64_t kUnknownStart = ~uint64_t{0};

__attribute__((tls_model("initial-exec"))) constinit thread_local uint64_t t_start = 0;  // 0: not looked up

uint64_t ReadStart(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno == EMFILE || errno == ENFILE ? kUnknownStart : 0;
  char text[1024];
  const ssize_t size = read(file, text, sizeof text - 1);
  close(file);
  if (size <= 0) return 0;
  text[size] = 0;
  // The second field is a name in brackets, in which anything may stand; this is the 22nd.
  const char* field = std::strrchr(text, ')');
  for (int i = 2; field && i < 22; ++i) field = std::strchr(field + 1, ' ');
  return field ? std::strtoull(field, nullptr, 10) : 0;
}

// When a thread of this process started, in the system's ticks; 0 if there is none. A thread knows its own
// start, also where it has another id than the system says: in a fork's child.
uint64_t StartOfThread(DWORD id) {
  if (id == GetCurrentThreadId()) {
    if (t_start == 0 || t_start == kUnknownStart) t_start = ReadStart("/proc/thread-self/stat");
    return t_start;
  }
  char path[64];
  std::snprintf(path, sizeof path, "/proc/self/task/%u/stat", id);
  return ReadStart(path);
}

bool IsThread(const ThreadObject& thread, DWORD id, uint64_t start) {
  return thread.id == id && (thread.start == start || start == kUnknownStart);
}

bool Lives(const ThreadObject& thread) {
  return thread.id == g_forkingThread || IsThread(thread, thread.id, StartOfThread(thread.id));
}

// Under the mutex: the object of a thread that was opened, or null.
std::shared_ptr<ThreadObject> FindThread(DWORD id, uint64_t start) {
  for (size_t i = 0; g_threads && i < g_threads->size(); ++i) {
    const auto& thread = (*g_threads)[i];
    if (IsThread(*thread, id, start)) return thread;
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

// Under the mutex: the alerts of the calling thread; null if nobody has opened it.
std::deque<Alert>* OwnAlerts() {
  const DWORD id = GetCurrentThreadId();
  const auto self = FindThread(id, StartOfThread(id));
  return self ? &self->alerts : nullptr;
}

bool TakeAlert(Alert* alert) {
  const std::lock_guard guard(g_mutex);
  std::deque<Alert>* const alerts = OwnAlerts();
  if (!alerts || alerts->empty()) return false;
  *alert = alerts->front();
  alerts->pop_front();
  --g_alerts;
  return true;
}

// A fork's child has no alerts: they were for the parent's threads.
void LockAlerts() {
  g_mutex.lock();
}
void UnlockAlerts() {
  g_mutex.unlock();
}
void ForgetAlerts() {
  for (size_t i = 0; g_threads && i < g_threads->size(); ++i) (*g_threads)[i]->alerts.clear();
  g_alerts = 0;
  g_forkingThread = GetCurrentThreadId();
  g_mutex.unlock();
}
[[maybe_unused]] const int g_forkHandlers = pthread_atfork(LockAlerts, UnlockAlerts, ForgetAlerts);

}  // namespace

size_t CountAlerts() {
  if (g_alerts.load() == 0) return 0;
  const std::lock_guard guard(g_mutex);
  const std::deque<Alert>* const alerts = OwnAlerts();
  return alerts ? alerts->size() : 0;
}

// One at a time, so that an alert that waits in turn finds those that follow it; and no more than there are
// now, so that the wait ends whatever they do.
void RunAlerts() {
  Alert alert;
  for (size_t left = CountAlerts(); left > 0 && TakeAlert(&alert); --left) alert.call(alert.parameter);
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
  if (start == 0 || start == qn::kUnknownStart) {
    SetLastError(start == 0 ? ERROR_INVALID_PARAMETER : ERROR_TOO_MANY_OPEN_FILES);
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
