#include "qn/platform/file_share_internal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <time.h>

#include "qn/platform/file.h"

namespace qn {
namespace {

// Two bytes for each kind of access: one is locked (shared) by those that have the access, the other by
// those that deny it to others. An opener conflicts with a denier of what it wants and with a user of what
// it denies. The locks belong to the open file description, so two handles of one process see each other
// too.
struct AccessKind {
  DWORD access;
  DWORD share;
  off_t usedAt;
  off_t deniedAt;
};

constexpr off_t kLockBase = 0x7FFFFFFFFFFFFF00;

constexpr AccessKind kAccessKinds[] = {
    {GENERIC_READ, FILE_SHARE_READ, kLockBase + 0, kLockBase + 1},
    {GENERIC_WRITE, FILE_SHARE_WRITE, kLockBase + 2, kLockBase + 3},
    {DELETE, FILE_SHARE_DELETE, kLockBase + 4, kLockBase + 5},
};

struct flock ByteLock(short type, off_t at) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = at;
  lock.l_len = 1;
  return lock;
}

// Needs a descriptor that can read: writers are opened for reading too whenever the file allows it.
bool Place(int descriptor, off_t at) {
  struct flock lock = ByteLock(F_RDLCK, at);
  return fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
}

bool LockedByOther(int descriptor, off_t at) {
  struct flock lock = ByteLock(F_WRLCK, at);
  return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Checking and placing must not interleave with another opener's. A whole-file lock held for these few
// calls orders them; a foreign program that holds one for long is not waited for beyond a moment.
class OpenGate {
 public:
  explicit OpenGate(int descriptor) : descriptor_(descriptor) {
    constexpr int kTries = 200;
    const timespec pause = {0, 500'000};
    for (int i = 0; i < kTries && !held_; ++i) {
      held_ = flock(descriptor, LOCK_EX | LOCK_NB) == 0;
      if (!held_) nanosleep(&pause, nullptr);
    }
  }
  ~OpenGate() {
    if (held_) flock(descriptor_, LOCK_UN);
  }
  OpenGate(const OpenGate&) = delete;
  OpenGate& operator=(const OpenGate&) = delete;

 private:
  int descriptor_;
  bool held_ = false;
};

}  // namespace

ShareResult EnterShareMode(int descriptor, DWORD access, DWORD share) {
  const OpenGate gate(descriptor);
  for (const AccessKind& kind : kAccessKinds) {
    if ((access & kind.access) && LockedByOther(descriptor, kind.deniedAt)) return ShareResult::kConflict;
    if (!(share & kind.share) && LockedByOther(descriptor, kind.usedAt)) return ShareResult::kConflict;
  }
  for (const AccessKind& kind : kAccessKinds) {
    if ((access & kind.access) && !Place(descriptor, kind.usedAt)) break;
    if (!(share & kind.share) && !Place(descriptor, kind.deniedAt)) break;
  }
  return ShareResult::kGranted;
}

}  // namespace qn
