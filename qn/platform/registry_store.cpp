#include "qn/platform/registry_store_internal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>
#include <utility>

namespace qn {
namespace {

// How often work begins anew because the file was exchanged or set aside meanwhile.
constexpr int kAttempts = 5;

bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

bool HasBytes(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && info.st_size != 0;
}

bool CanWrite(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

std::string ResolvedPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : path;
}

// Orders those who open, make or set aside a database, in all processes. Without it an opener could get the
// old file with the journal of the new one. The lock's file stays: two of the same name would order nobody.
class OpenGate {
 public:
  OpenGate(const std::string& database, const RegistryDeadline& deadline) {
    descriptor_ = open((database + ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor_ < 0) {
      // Where nothing can be made nobody of our rights sets aside, and a full disk is to be readable.
      const bool full = errno == ENOSPC || errno == EDQUOT;
      const DWORD failed = RegistrySystemError(errno);
      status_ = full || !CanWrite(FolderOf(database)) ? ERROR_SUCCESS : failed;
      return;
    }
    while (status_ == ERROR_SUCCESS && flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK)
        status_ = RegistrySystemError(errno);
      else if (!deadline.Wait())
        status_ = ERROR_BUSY;
    }
  }
  ~OpenGate() {
    if (descriptor_ < 0) return;
    // Closing does not end the lock if a fork carried the descriptor along.
    flock(descriptor_, LOCK_UN);
    close(descriptor_);
  }
  OpenGate(const OpenGate&) = delete;
  OpenGate& operator=(const OpenGate&) = delete;

  DWORD Status() const { return status_; }

 private:
  int descriptor_ = -1;
  DWORD status_ = ERROR_SUCCESS;
};

// Makes the folders above a file. A power cut must not take away a new folder with what was reported as
// written in it, so its entry is brought to the disk.
DWORD MakeFolders(const std::string& file, mode_t mode) {
  for (size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1)) {
    const std::string folder = file.substr(0, slash);
    if (Exists(folder)) continue;
    if (mkdir(folder.c_str(), mode) != 0) {
      if (errno == EEXIST) continue;
      return RegistrySystemError(errno);
    }
    const int descriptor = open(FolderOf(folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) continue;
    fsync(descriptor);
    close(descriptor);
  }
  return ERROR_SUCCESS;
}

}  // namespace

RegistryStore::RegistryStore(std::string path, mode_t folderMode, RegistryDamage& damage)
    : path_(std::move(path)), folderMode_(folderMode), damage_(damage) {}

RegistryStore::~RegistryStore() {
  LeaveInherited();
}

DWORD RegistryStore::Read(const Work& work) {
  return Run(false, work);
}

DWORD RegistryStore::Write(const Work& work) {
  return Run(true, work);
}

bool RegistryStore::IsWritable() const {
  const std::string file = ResolvedPath(path_);
  return CanWrite(file) && CanWrite(FolderOf(file));
}

DWORD RegistryStore::Run(bool write, const Work& work) {
  // Waiting for other threads, each of which may wait for a process, counts too.
  const RegistryDeadline deadline;
  const std::lock_guard guard(mutex_);
  deadline_ = deadline;
  LeaveInherited();
  for (int i = 0; i < kAttempts; ++i) {
    std::optional<RegistryFailure> failure;
    DWORD status = ERROR_SUCCESS;
    try {
      status = Attempt(write, work);
    } catch (const RegistryFailure& thrown) {
      failure = thrown;
    }
    if (!write && !failure) return status;
    // What was written into a file that was set aside meanwhile is written again, into the one after it.
    const bool exchanged = database_ && !IsCurrent();
    if (!exchanged && !failure) return status;
    if (!exchanged && !IsDamage(*failure)) return ErrorFromFailure(*failure);
    if (!exchanged && (status = SetAside()) != ERROR_SUCCESS) return status;
  }
  return ERROR_BADDB;
}

DWORD RegistryStore::Attempt(bool write, const Work& work) {
  // A file that could not be written may have become writable.
  if (database_ && (!IsCurrent() || (write && database_->IsReadOnly()))) database_.reset();
  if (!database_) {
    const DWORD status = Open(write);
    if (status != ERROR_SUCCESS) return status;
  }
  if (!write) return work(*database_);
  // SQLite asks for rights only when it finds something to change.
  if (!IsWritable()) return ERROR_ACCESS_DENIED;
  RegistryDatabase::Transaction transaction(*database_);
  const DWORD status = work(*database_);
  if (status == ERROR_SUCCESS) transaction.Commit();
  return status;
}

DWORD RegistryStore::Open(bool write) {
  if (write) {
    const DWORD status = MakeFile();
    if (status != ERROR_SUCCESS) return status;
  }
  const std::string file = ResolvedPath(path_);
  if (!write && !HasBytes(file) && !HasBytes(file + "-journal")) return ERROR_FILE_NOT_FOUND;
  const OpenGate gate(file, deadline_);
  if (gate.Status() != ERROR_SUCCESS) return gate.Status();
  identity_ = Identify(file);
  owner_ = getpid();
  const auto access = write ? RegistryDatabase::Access::kWrite : RegistryDatabase::Access::kRead;
  database_ = std::make_unique<RegistryDatabase>(file, access, deadline_);
  if (database_->Root() != 0) return ERROR_SUCCESS;
  database_.reset();
  return ERROR_FILE_NOT_FOUND;
}

// Makes an empty file if there is none. SQLite would hide the reason why it cannot be made, and where a link
// leads is known only when something is there.
DWORD RegistryStore::MakeFile() const {
  struct stat info;
  if (stat(path_.c_str(), &info) == 0) return ERROR_SUCCESS;
  const DWORD status = MakeFolders(path_, folderMode_);
  if (status != ERROR_SUCCESS) return status;
  const int descriptor = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (descriptor < 0) return RegistrySystemError(errno);
  close(descriptor);
  return ERROR_SUCCESS;
}

// Gives the damaged file that was opened last another name, unless somebody else did so before. Nobody writes
// meanwhile: a writer of the old file would take away the journal of the new one.
DWORD RegistryStore::SetAside() {
  database_.reset();
  const std::string file = ResolvedPath(path_);
  const OpenGate gate(file, deadline_);
  if (gate.Status() != ERROR_SUCCESS) return gate.Status();
  if (Identify(file) != identity_) return ERROR_SUCCESS;
  const RegistryFileLock lock(file, deadline_);
  if (lock.IsBusy()) return ERROR_BUSY;

  std::string target;
  bool taken = true;
  for (int i = 1; taken; ++i) {
    target = file + ".damaged-" + std::to_string(i);
    taken = Exists(target) || Exists(target + "-journal");
  }
  // The database goes first. Should we be killed in between, its journal alone is found to be damage and goes
  // the same way; a database alone would read as whole, with a half-done write in it.
  bool moved = false;
  for (const char* companion : {"", "-journal", "-wal"}) {
    const std::string name = target + companion;
    if (rename((file + companion).c_str(), name.c_str()) != 0) {
      if (errno == ENOENT) continue;
      return ERROR_BADDB;
    }
    const std::lock_guard guard(damage_.mutex);
    if (!std::exchange(moved, true)) damage_.path = name;
  }
  return ERROR_SUCCESS;
}

void RegistryStore::LeaveInherited() {
  if (owner_ != getpid()) static_cast<void>(database_.release());
}

bool RegistryStore::IsCurrent() const {
  return Identify(path_) == identity_;
}

RegistryStore::Identity RegistryStore::Identify(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino};
}

}  // namespace qn
