// The table behind HANDLE values of system objects.
//
// A handle is an index with a generation, not an address: a stale or made-up value is refused, never
// followed.
#pragma once

#include <memory>

#include "qn/platform/types.h"

namespace qn {

// What a handle stands for. It ends when the last user lets go of it, so closing a handle while another
// thread still works with it harms nobody.
class SystemObject {
 public:
  virtual ~SystemObject() = default;

  // A descriptor that poll finds readable once the object is signalled, for waits on its handle; -1 for an
  // object that nobody can wait for. It stays the object's, and open while the object lives.
  virtual int WaitDescriptor() const { return -1; }
};

// A new handle for an object; null when there is no memory.
HANDLE AddHandle(std::shared_ptr<SystemObject> object);

// The object of an open handle, or null.
std::shared_ptr<SystemObject> FindHandle(HANDLE handle);

// Takes a handle out of the table and gives what it stood for, or null.
std::shared_ptr<SystemObject> RemoveHandle(HANDLE handle);

}  // namespace qn
