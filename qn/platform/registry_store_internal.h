// The file of a hive: when it is opened, made, found to have been exchanged, or set aside.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "qn/platform/registry_database_internal.h"

namespace qn {

// Where the latest damaged database of a hive went; empty while there was none.
struct RegistryDamage {
  std::mutex mutex;
  std::string path;
};

// Nothing is opened before the first use. Threads take turns: one connection serves them all.
//
// SQLite does not bear to be carried along by a fork, so a child leaves the connection that it inherited
// alone, open for good, and opens its own.
class RegistryStore {
 public:
  // Folders that are missing on the way to the file get `folderMode`.
  RegistryStore(std::string path, mode_t folderMode, RegistryDamage& damage);
  ~RegistryStore();
  RegistryStore(const RegistryStore&) = delete;
  RegistryStore& operator=(const RegistryStore&) = delete;

  // What is done with the database, giving an error number. It can be called more than once, the last time
  // for good, and may throw RegistryFailure.
  using Work = std::function<DWORD(RegistryDatabase&)>;

  // ERROR_FILE_NOT_FOUND without a database, which is not made.
  DWORD Read(const Work& work);
  // One transaction, undone when `work` fails; the database is made if need be.
  DWORD Write(const Work& work);

  // Whether the rights of a database that exists allow writing.
  bool IsWritable() const;

 private:
  DWORD Run(bool write, const Work& work);
  DWORD Attempt(bool write, const Work& work);
  DWORD Open(bool write);
  DWORD MakeFile(const std::string& file) const;
  DWORD SetAside();
  void LeaveInherited();
  bool IsCurrent() const;

  const std::string path_;
  const mode_t folderMode_;
  RegistryDamage& damage_;
  std::mutex mutex_;
  std::unique_ptr<RegistryDatabase> database_;
  pid_t owner_ = 0;            // the process that opened it
  std::string file_;           // where `path_` led at the latest opening
  RegistryIdentity identity_;  // of the file that was opened last
  RegistryDeadline deadline_;
};

}  // namespace qn
