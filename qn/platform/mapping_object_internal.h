// What handles of mappings stand for, and how a shared one comes to another process.
//
// Shared memory is a file without a folder, sealed so that nobody can cut it: touching a view never faults.
// The handle of a mapping is marked on its descriptor, as the position of the open file, which nothing else
// uses. So another process that may look at its descriptors finds the one of a handle and takes it, and finds
// none once the handle is closed. Where that is refused it asks the owner through a socket.
#pragma once

#include <sys/types.h>

#include <memory>
#include <utility>

#include "qn/platform/file_internal.h"

namespace qn {

class SharedMapping;

// The answering side, mapping_server.cpp: a thread that runs while something is served, which is what this
// process made and has a handle of.
void BeginServing(SharedMapping* mapping, HANDLE handle);
bool IsServed(const SharedMapping& mapping);
void EndServing(SharedMapping* mapping);

class MappingObject : public SystemObject {
 public:
  int Descriptor() const { return descriptor_; }
  size_t Bytes() const { return bytes_; }

  // What a view may be asked for: FILE_MAP_* bits.
  DWORD Access() const { return access_; }

 protected:
  MappingObject(int descriptor, size_t bytes, DWORD access)
      : descriptor_(descriptor), bytes_(bytes), access_(access) {}

 private:
  const int descriptor_;
  const size_t bytes_;
  const DWORD access_;
};

// Of a file, which it keeps open.
class FileMapping final : public MappingObject {
 public:
  FileMapping(std::shared_ptr<FileObject> file, size_t bytes)
      : MappingObject(file->Descriptor(), bytes, FILE_MAP_READ), file_(std::move(file)) {}

 private:
  const std::shared_ptr<FileObject> file_;
};

// Of shared memory.
class SharedMapping final : public MappingObject {
 public:
  SharedMapping(qn::Descriptor memory, size_t bytes)
      : MappingObject(memory.Get(), bytes, FILE_MAP_READ | FILE_MAP_WRITE), memory_(std::move(memory)) {}
  ~SharedMapping() override { EndServing(this); }

  // Its place among those that this process answers for; under the lock of the server.
  struct {
    HANDLE handle = nullptr;
    SharedMapping* next = nullptr;
    SharedMapping** link = nullptr;  // null while it is not served
  } served;

 private:
  const qn::Descriptor memory_;
};

// A handle of new, zeroed shared memory; null with the last error.
HANDLE MakeSharedMapping(uint64_t bytes);

// A new handle for the memory of a descriptor that may have come from anywhere: null with last error 6 for
// what is no sealed memory. The descriptor stays the caller's.
HANDLE AdoptSharedMapping(int descriptor, bool isServed);

// The descriptor of another process's mapping by its handle there; none with the last error.
Descriptor FetchMapping(int processDescriptor, pid_t process, HANDLE handle);

// What this process tries in others. Tests let it be refused what policies of systems refuse.
enum class ProcessAccess {
  kFull,
  kSocket,  // neither memory nor descriptors of other processes can be reached
  kNone,    // nor does anybody answer
};
void SetProcessAccess(ProcessAccess access);
ProcessAccess AllowedProcessAccess();

// True once the process of a descriptor has ended, which may be waited for.
bool HasEnded(int processDescriptor, int milliseconds = 0);

// True for the errno of a call that found no free descriptor.
bool IsShortage(int error);

// The mark of a handle's descriptor.
inline off_t MarkOf(HANDLE handle) {
  // Handles are multiples of 4.
  return static_cast<off_t>(reinterpret_cast<uintptr_t>(handle) >> 2);
}

// How far a search got; of several the greatest counts. kLate is that nobody answered in time.
enum class Answer { kNone, kLate, kUnknown, kFound };

// Asks a process for the descriptor of a handle. errno tells of a shortage of descriptors, or EACCES.
Answer AskForMapping(pid_t process, HANDLE handle, Descriptor* found);

}  // namespace qn
