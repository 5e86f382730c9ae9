// Waits for several things at once: poll over the descriptors of objects and of the messages, and one for all
// the rest, which is written to by whoever signals an event or alerts the thread.
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>

#include "qn/platform/sync.h"
#include "qn/platform/wait_internal.h"

namespace {

__attribute__((tls_model("initial-exec"))) constinit thread_local qn::ThreadMessages* t_messages = nullptr;

bool IsReadable(int descriptor) {
  pollfd asked = {descriptor, POLLIN, 0};
  return poll(&asked, 1, 0) > 0;
}

// One handle of a wait: an event by its slot, any other object by its descriptor.
struct WaitItem {
  HANDLE handle = nullptr;
  qn::HandleSlot* slot = nullptr;
  uint64_t seen = 0;
  std::shared_ptr<qn::SystemObject> object;
  bool ready = false;  // at the latest look of a wait for all

  bool Find(HANDLE given) {
    handle = given;
    slot = qn::FindSlot(handle);
    if (slot && qn::IsEventOf(State(), qn::GenerationOf(handle))) return true;
    slot = nullptr;
    object = qn::FindHandle(handle);
    return object && object->WaitDescriptor() >= 0;
  }
  DWORD Look(bool take) {
    if (slot) return qn::LookAtEvent(slot, qn::GenerationOf(handle), take, &seen);
    return IsReadable(object->WaitDescriptor()) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
  }
  bool TakeUnchanged() const {
    return slot ? qn::TakeUnchanged(slot, seen) : IsReadable(object->WaitDescriptor());
  }
  void GiveBack() const {
    if (slot && (State() & qn::kSlotAutoReset)) SetEvent(handle);
  }
  uint64_t State() const { return slot->state.load(std::memory_order_relaxed); }
};

class MultiWait;

// The waits that sleep, in a list that a fork's child finds empty: its copies belong to threads that it does
// not have, and would wake the parent's.
constinit std::mutex g_mutex;
constinit MultiWait* g_first = nullptr;
constinit std::atomic<int> g_count = 0;

void LockWaits() {
  g_mutex.lock();
}
void UnlockWaits() {
  g_mutex.unlock();
}
void ForgetWaits() {
  g_first = nullptr;
  g_count.store(0, std::memory_order_relaxed);
  g_mutex.unlock();
}
[[maybe_unused]] const int g_forkHandlers = pthread_atfork(LockWaits, UnlockWaits, ForgetWaits);

class MultiWait {
 public:
  MultiWait(DWORD count, DWORD wakeMask, DWORD flags) : count_(count), wakeMask_(wakeMask), flags_(flags) {}
  ~MultiWait() { Leave(); }
  MultiWait(const MultiWait&) = delete;
  MultiWait& operator=(const MultiWait&) = delete;

  DWORD Run(const HANDLE* handles, DWORD milliseconds) {
    for (DWORD i = 0; i < count_; ++i) {
      if (!items_[i].Find(handles[i])) return Failed(ERROR_INVALID_HANDLE);
      // All at the same time: of a signal that goes to one wait, nobody has two.
      if ((flags_ & MWMO_WAITALL) && std::find(handles, handles + i, handles[i]) != handles + i)
        return Failed(ERROR_INVALID_PARAMETER);
    }
    const int64_t deadline = milliseconds == 0 ? 0 : qn::DeadlineAfter(milliseconds);
    for (;;) {
      const DWORD result = (flags_ & MWMO_WAITALL) && Parts() > 0 ? LookForAll() : LookForOne();
      if (result != WAIT_TIMEOUT) return result;
      if ((flags_ & MWMO_ALERTABLE) && qn::CountAlerts() > 0) return WAIT_IO_COMPLETION;
      const int64_t left = deadline > 0 ? deadline - qn::MonotonicNow() : deadline;
      if (deadline != qn::kNoDeadline && left <= 0) return WAIT_TIMEOUT;
      if (wakeUp_ >= 0) {
        Sleep(left);
      } else if (!Join()) {  // and look again, for what came before others could find this wait
        return Failed(ERROR_TOO_MANY_OPEN_FILES);
      }
    }
  }

  // Under the mutex: wakes the waits that `concerned` chooses.
  template <typename Concerned>
  static void Wake(Concerned concerned) {
    if (g_count.load(std::memory_order_seq_cst) == 0) return;
    const std::lock_guard guard(g_mutex);
    for (const MultiWait* wait = g_first; wait; wait = wait->next_) {
      if (concerned(*wait)) eventfd_write(wait->wakeUp_, 1);
    }
  }
  bool Has(const qn::HandleSlot* slot) const {
    for (DWORD i = 0; i < count_; ++i) {
      if (items_[i].slot == slot) return true;
    }
    return false;
  }
  bool IsAlertable(DWORD threadId) const { return (flags_ & MWMO_ALERTABLE) && thread_ == threadId; }

 private:
  static DWORD Failed(DWORD error) {
    SetLastError(error);
    return WAIT_FAILED;
  }
  DWORD Parts() const { return count_ + (wakeMask_ != 0 ? 1 : 0); }
  bool HasInput() const {
    return wakeMask_ != 0 && t_messages &&
           t_messages->HasInput(wakeMask_, (flags_ & MWMO_INPUTAVAILABLE) != 0);
  }

  DWORD LookForOne() {
    for (DWORD i = 0; i < count_; ++i) {
      const DWORD result = items_[i].Look(true);
      if (result != WAIT_TIMEOUT) return result == WAIT_OBJECT_0 ? i : result;
    }
    return HasInput() ? count_ : WAIT_TIMEOUT;
  }

  // All at the same time: signals are taken when all are there, and given back if one has changed by then.
  DWORD LookForAll() {
    for (;;) {
      bool all = wakeMask_ == 0 || HasInput();
      for (DWORD i = 0; i < count_; ++i) {
        items_[i].seen = 0;  // a signal that is gone again does not count here
        const DWORD look = items_[i].Look(false);
        if (look == WAIT_FAILED) return look;
        items_[i].ready = look == WAIT_OBJECT_0;
        all = all && items_[i].ready;
      }
      if (!all) return WAIT_TIMEOUT;
      DWORD taken = 0;
      while (taken < count_ && items_[taken].TakeUnchanged()) ++taken;
      if (taken == count_) return WAIT_OBJECT_0;
      while (taken > 0) items_[--taken].GiveBack();
    }
  }

  // From here on others find this wait.
  bool Join() {
    wakeUp_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeUp_ < 0) return false;
    CountIn(1);
    const std::lock_guard guard(g_mutex);
    next_ = g_first;
    if (next_) next_->previous_ = this;
    g_first = this;
    g_count.fetch_add(1, std::memory_order_seq_cst);
    return true;
  }
  void Leave() {
    if (wakeUp_ < 0) return;
    {
      const std::lock_guard guard(g_mutex);
      (previous_ ? previous_->next_ : g_first) = next_;
      if (next_) next_->previous_ = previous_;
      g_count.fetch_sub(1, std::memory_order_relaxed);
    }
    CountIn(-1);
    close(wakeUp_);
  }
  void CountIn(int difference) {
    for (DWORD i = 0; i < count_; ++i) {
      if (items_[i].slot) items_[i].slot->waiters.fetch_add(static_cast<uint32_t>(difference));
    }
  }

  // A wait for all does not watch what it has already: that would end each sleep at once.
  void Sleep(int64_t left) {
    pollfd watched[MAXIMUM_WAIT_OBJECTS + 1] = {{wakeUp_, POLLIN, 0}};
    nfds_t number = 1;
    for (DWORD i = 0; i < count_; ++i) {
      if (items_[i].object && !items_[i].ready)
        watched[number++] = {items_[i].object->WaitDescriptor(), POLLIN, 0};
    }
    if (wakeMask_ != 0 && t_messages) watched[number++] = {t_messages->Descriptor(), POLLIN, 0};
    const timespec time = {left / 1'000'000'000, left % 1'000'000'000};
    ppoll(watched, number, left == qn::kNoDeadline ? nullptr : &time, nullptr);
    eventfd_t woken;
    eventfd_read(wakeUp_, &woken);
  }

  const DWORD thread_ = GetCurrentThreadId();
  const DWORD count_;
  const DWORD wakeMask_;
  const DWORD flags_;
  WaitItem items_[MAXIMUM_WAIT_OBJECTS - 1];
  int wakeUp_ = -1;
  MultiWait* next_ = nullptr;
  MultiWait* previous_ = nullptr;
};

}  // namespace

namespace qn {

void SetThreadMessages(ThreadMessages* messages) {
  t_messages = messages;
}

void WakeMultiWaits(const HandleSlot* slot) {
  MultiWait::Wake([slot](const MultiWait& wait) { return wait.Has(slot); });
}

void WakeThread(DWORD threadId) {
  MultiWait::Wake([threadId](const MultiWait& wait) { return wait.IsAlertable(threadId); });
}

}  // namespace qn

inline namespace qnplatform {

DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, DWORD milliseconds, DWORD wakeMask,
                                  DWORD flags) {
  if (count >= MAXIMUM_WAIT_OBJECTS || (count > 0 && !handles)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  const DWORD result = MultiWait(count, wakeMask, flags).Run(handles, milliseconds);
  if (result == WAIT_IO_COMPLETION) qn::RunAlerts();  // which may do as they like: the wait is over
  return result;
}

BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT flags) {
  return message && t_messages ? t_messages->Peek(message, window, first, last, flags) : FALSE;
}

}  // namespace qnplatform
