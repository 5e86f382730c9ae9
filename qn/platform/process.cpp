#include "qn/platform/process.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "qn/platform/error_internal.h"
#include "qn/platform/mapping_object_internal.h"

namespace {

// What a handle of OpenProcess stands for.
class ProcessObject final : public qn::SystemObject {
 public:
  ProcessObject(qn::Descriptor descriptor, pid_t id) : descriptor_(std::move(descriptor)), id_(id) {}

  int WaitDescriptor() const override { return descriptor_.Get(); }
  pid_t Id() const { return id_; }

 private:
  const qn::Descriptor descriptor_;
  const pid_t id_;
};

std::shared_ptr<ProcessObject> FindProcess(HANDLE handle) {
  auto process = std::dynamic_pointer_cast<ProcessObject>(qn::FindHandle(handle));
  if (!process) qn::FailWith(ERROR_INVALID_HANDLE);
  return process;
}

HANDLE DuplicateOwn(HANDLE source) {
  auto object = qn::FindHandle(source);
  if (!object) {
    qn::FailWith(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  // Each handle of shared memory has a descriptor of its own, by which others find it.
  if (const auto* shared = dynamic_cast<const qn::SharedMapping*>(object.get())) {
    return qn::AdoptSharedMapping(shared->Descriptor(), qn::IsServed(*shared));
  }
  const HANDLE handle = qn::AddHandle(std::move(object));
  if (!handle) qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return handle;
}

HANDLE DuplicateForeign(HANDLE sourceProcess, HANDLE source) {
  const auto process = FindProcess(sourceProcess);
  if (!process) return nullptr;
  const qn::Descriptor found = qn::FetchMapping(process->WaitDescriptor(), process->Id(), source);
  return found ? qn::AdoptSharedMapping(found.Get(), false) : nullptr;
}

using Transfer = ssize_t (*)(pid_t, const iovec*, unsigned long, const iovec*, unsigned long, unsigned long);

BOOL Copy(Transfer transfer, HANDLE handle, uintptr_t remote, uintptr_t local, size_t bytes, SIZE_T* moved) {
  const bool isOwn = handle == GetCurrentProcess();
  const auto process = isOwn ? nullptr : FindProcess(handle);
  if (!isOwn && !process) return FALSE;
  const pid_t id = isOwn ? getpid() : process->Id();
  if (!isOwn && id != getpid() && qn::AllowedProcessAccess() != qn::ProcessAccess::kFull) {
    return qn::FailWith(ERROR_ACCESS_DENIED);
  }
  // The system moves about 2 GiB at a time, and less where the memory ends: what follows then moves nothing.
  constexpr size_t kStep = size_t{1} << 30;
  size_t done = 0;
  ssize_t step = 1;
  while (done < bytes && step > 0) {
    if (process && qn::HasEnded(process->WaitDescriptor())) break;
    const size_t count = std::min(bytes - done, kStep);
    const iovec here = {reinterpret_cast<void*>(local + done), count};
    const iovec there = {reinterpret_cast<void*>(remote + done), count};
    step = transfer(id, &here, 1, &there, 1, 0);
    if (step > 0) done += static_cast<size_t>(step);
  }
  const int error = step < 0 ? errno : 0;
  // Somebody else may have got the id of a process that has ended.
  const bool isGone = process && qn::HasEnded(process->WaitDescriptor());
  if (isGone) done = 0;
  if (moved) *moved = done;
  if (done == bytes && !isGone) return TRUE;
  const bool isRefused = error && error != EFAULT && error != ESRCH;
  return qn::FailWith(isRefused ? qn::ErrorFromErrno(error) : ERROR_PARTIAL_COPY);
}

}  // namespace

inline namespace qnplatform {

HANDLE GetCurrentProcess() {
  return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
}

DWORD GetCurrentProcessId() {
  return static_cast<DWORD>(getpid());
}

HANDLE OpenProcess(DWORD, BOOL, DWORD id) try {
  qn::Descriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0)));
  if (!descriptor || qn::HasEnded(descriptor.Get())) {
    const bool isMissing = descriptor || errno == ESRCH || errno == EINVAL || errno == ENOENT;
    qn::FailWith(isMissing ? ERROR_INVALID_PARAMETER : qn::ErrorFromErrno(errno));
    return nullptr;
  }
  const HANDLE handle =
      qn::AddHandle(std::make_shared<ProcessObject>(std::move(descriptor), static_cast<pid_t>(id)));
  if (!handle) qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return handle;
} catch (const std::bad_alloc&) {
  qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target, DWORD, BOOL,
                     DWORD options) {
  if (!target || targetProcess != GetCurrentProcess() || options != DUPLICATE_SAME_ACCESS) {
    return qn::FailWith(ERROR_INVALID_PARAMETER);
  }
  const HANDLE made =
      sourceProcess == GetCurrentProcess() ? DuplicateOwn(source) : DuplicateForeign(sourceProcess, source);
  if (made) *target = made;
  return made != nullptr;
}

BOOL ReadProcessMemory(HANDLE process, const void* address, void* buffer, SIZE_T bytes, SIZE_T* got) {
  return Copy(process_vm_readv, process, reinterpret_cast<uintptr_t>(address),
              reinterpret_cast<uintptr_t>(buffer), bytes, got);
}

BOOL WriteProcessMemory(HANDLE process, void* address, const void* buffer, SIZE_T bytes, SIZE_T* put) {
  return Copy(process_vm_writev, process, reinterpret_cast<uintptr_t>(address),
              reinterpret_cast<uintptr_t>(buffer), bytes, put);
}

}  // namespace qnplatform
