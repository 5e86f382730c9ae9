// Shared memory: making it, taking it over, and finding the descriptor of a handle of another process.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>

#include "qn/platform/error_internal.h"
#include "qn/platform/mapping_object_internal.h"

#ifndef MFD_NOEXEC_SEAL
#define MFD_NOEXEC_SEAL 8U
#endif

namespace qn {
namespace {

constexpr char kName[] = "qnkernel-mapping";
constexpr char kLinkStart[] = "/memfd:qnkernel-mapping";

std::atomic<ProcessAccess> g_access = ProcessAccess::kFull;

qn::Descriptor MakeMemory() {
  constexpr unsigned kFlags = MFD_CLOEXEC | MFD_ALLOW_SEALING;
  const int made = memfd_create(kName, kFlags | MFD_NOEXEC_SEAL);
  // Older systems do not know the mark of memory that holds no program.
  return qn::Descriptor(made < 0 && errno == EINVAL ? memfd_create(kName, kFlags) : made);
}

// The same memory through an open file of its own, with a position of its own.
qn::Descriptor Reopen(int descriptor) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
  return qn::Descriptor(open(path, O_RDWR | O_CLOEXEC));
}

HANDLE AddMapping(qn::Descriptor memory, uint64_t bytes, bool isServed, bool isMarked) try {
  const auto object = std::make_shared<SharedMapping>(std::move(memory), static_cast<size_t>(bytes));
  const HANDLE handle = AddHandle(object);
  if (!handle) {
    FailWith(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  if (isMarked) lseek(object->Descriptor(), MarkOf(handle), SEEK_SET);
  if (isServed) BeginServing(object.get(), handle);
  return handle;
} catch (const std::bad_alloc&) {
  FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

// The descriptor of the mapping that was found last: the next one is often it again, or the one behind it.
std::atomic<int> g_lastFound = -1;

// Whether the descriptor with a name in a process's list is a handle's mapping. kNone with errno.
Answer Take(int folder, const char* name, int processDescriptor, HANDLE handle, qn::Descriptor* found) {
  char link[sizeof kLinkStart] = {};
  if (readlinkat(folder, name, link, sizeof link - 1) < 0 || std::strcmp(link, kLinkStart) != 0) {
    return Answer::kUnknown;
  }
  int number = -1;
  std::from_chars(name, name + std::strlen(name), number);
  qn::Descriptor taken(static_cast<int>(syscall(SYS_pidfd_getfd, processDescriptor, number, 0)));
  if (!taken && errno != EBADF) return Answer::kNone;
  // Whatever has got the number since the look at it, the mark tells which handle it is of.
  if (!taken || lseek(taken.Get(), 0, SEEK_CUR) != MarkOf(handle)) return Answer::kUnknown;
  *found = std::move(taken);
  g_lastFound = number;
  return Answer::kFound;
}

// Looks through the descriptors of a process. kNone with errno where that cannot be done.
Answer FindDescriptor(int processDescriptor, pid_t process, HANDLE handle, qn::Descriptor* found) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/fd", static_cast<int>(process));
  constexpr auto kClose = [](DIR* opened) { closedir(opened); };
  const std::unique_ptr<DIR, decltype(kClose)> folder(opendir(path), kClose);
  if (!folder) return Answer::kNone;
  const int last = g_lastFound;
  for (const int number : {last, last + 1}) {
    char name[16];
    std::snprintf(name, sizeof name, "%d", number);
    const Answer answer = Take(dirfd(folder.get()), name, processDescriptor, handle, found);
    if (answer != Answer::kUnknown) return answer;
  }
  while (const dirent* entry = readdir(folder.get())) {
    const Answer answer = Take(dirfd(folder.get()), entry->d_name, processDescriptor, handle, found);
    if (answer != Answer::kUnknown) return answer;
  }
  return Answer::kUnknown;
}

}  // namespace

void SetProcessAccess(ProcessAccess access) {
  g_access = access;
}

ProcessAccess AllowedProcessAccess() {
  return g_access;
}

bool HasEnded(int processDescriptor, int milliseconds) {
  pollfd waited = {processDescriptor, POLLIN, 0};
  int result;
  // A signal cuts a step short, not more.
  do {
    result = poll(&waited, 1, milliseconds > 0 ? 1 : 0);
  } while (result <= 0 && milliseconds-- > 0);
  return result > 0;
}

bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE;
}

HANDLE MakeSharedMapping(uint64_t bytes) {
  qn::Descriptor memory = MakeMemory();
  if (!memory || bytes > INT64_MAX || ftruncate(memory.Get(), static_cast<off_t>(bytes)) != 0 ||
      fcntl(memory.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
    FailWith(memory && bytes > INT64_MAX ? ERROR_INVALID_PARAMETER : ErrorFromErrno(errno));
    return nullptr;
  }
  return AddMapping(std::move(memory), bytes, true, true);
}

HANDLE AdoptSharedMapping(int descriptor, bool isServed) {
  struct stat info;
  const int seals = fcntl(descriptor, F_GET_SEALS);
  if (seals < 0 || !(seals & F_SEAL_SHRINK) || fstat(descriptor, &info) != 0 || info.st_size <= 0) {
    FailWith(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  qn::Descriptor own = Reopen(descriptor);
  // Without the system's lists of descriptors nobody finds it by a mark; one shared with its owner has his.
  const bool isMarked = static_cast<bool>(own);
  if (!own) own = qn::Descriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  if (!own) {
    FailWithErrno();
    return nullptr;
  }
  return AddMapping(std::move(own), static_cast<uint64_t>(info.st_size), isServed, isMarked);
}

Descriptor FetchMapping(int processDescriptor, pid_t process, HANDLE handle) {
  qn::Descriptor found;
  // What can be no handle has no mark.
  if (!handle || reinterpret_cast<uintptr_t>(handle) % 4 != 0) {
    FailWith(ERROR_INVALID_HANDLE);
    return found;
  }
  const ProcessAccess access = AllowedProcessAccess();
  Answer answer = Answer::kNone;
  int error = EACCES;
  if (access == ProcessAccess::kFull) {
    answer = FindDescriptor(processDescriptor, process, handle, &found);
    if (answer == Answer::kNone) error = errno;
  }
  if (access != ProcessAccess::kNone && answer != Answer::kFound && !IsShortage(error)) {
    answer = std::max(answer, AskForMapping(process, handle, &found));
    error = errno;
  }
  // What an id leads to is only right while its process lives; one that is ending refuses everything first.
  constexpr int kEndingMilliseconds = 5;
  const bool hasEnded = HasEnded(processDescriptor, answer == Answer::kNone ? kEndingMilliseconds : 0);
  if (found && !hasEnded) return found;
  if (hasEnded || answer == Answer::kUnknown) {
    FailWith(ERROR_INVALID_HANDLE);
  } else if (answer == Answer::kLate) {
    FailWith(ERROR_BUSY);
  } else {
    FailWith(IsShortage(error) ? ERROR_TOO_MANY_OPEN_FILES : ERROR_ACCESS_DENIED);
  }
  return qn::Descriptor();
}

}  // namespace qn
