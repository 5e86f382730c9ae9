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

// A database, the journal of a write under way, and the log that another program may have made it keep.
constexpr const char* kCompanions[] = {"", "-journal", "-wal"};

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

// Everybody who works in a database holds its gate with others, who sets it aside holds it alone. SQLite
// finds a journal by its path: whoever began in the old file would take the journal of the new one for its
// own. The lock's file stays: two of the same name would order nobody.
class RegistryGate {
 public:
  enum class Kind { kShared = LOCK_SH, kAlone = LOCK_EX };

  RegistryGate(const std::string& database, Kind kind, bool write, const RegistryDeadline& deadline) {
    descriptor_ = open((database + ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor_ < 0) {
      // Who cannot write takes no journal away, and a full disk is to be readable.
      const bool full = errno == ENOSPC || errno == EDQUOT;
      const DWORD failed = RegistrySystemError(errno);
      const bool canWrite = CanWrite(FolderOf(database)) && (!Exists(database) || CanWrite(database));
      status_ = canWrite && (write || !full) ? failed : ERROR_SUCCESS;
      return;
    }
    int result;
    do {
      result = flock(descriptor_, static_cast<int>(kind) | LOCK_NB);
    } while (result != 0 && (errno == EWOULDBLOCK || errno == EINTR) && deadline.Wait());
    holds_ = result == 0;
    // A file system without such locks goes without them.
    if (!holds_ && errno == EWOULDBLOCK) status_ = ERROR_BUSY;
  }
  ~RegistryGate() {
    if (descriptor_ < 0) return;
    // Closing does not end the lock if a fork carried the descriptor along.
    flock(descriptor_, LOCK_UN);
    close(descriptor_);
  }
  RegistryGate(const RegistryGate&) = delete;
  RegistryGate& operator=(const RegistryGate&) = delete;

  DWORD Status() const { return status_; }
  bool Holds() const { return holds_; }

 private:
  int descriptor_ = -1;
  bool holds_ = false;
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
  if (database_ && !IsCurrent()) database_.reset();
  if (!database_) {
    // The gate lies beside the file that a link leads to, and that is known only when it is there.
    const DWORD status = write ? MakeFile(path_) : ERROR_SUCCESS;
    if (status != ERROR_SUCCESS) return status;
    file_ = ResolvedPath(path_);
    if (!write && !HasBytes(file_) && !HasBytes(file_ + "-journal")) return ERROR_FILE_NOT_FOUND;
  }
  const RegistryGate gate(file_, RegistryGate::Kind::kShared, write, deadline_);
  if (gate.Status() != ERROR_SUCCESS) return gate.Status();
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

// With the gate held: nobody sets aside what is opened or made here.
DWORD RegistryStore::Open(bool write) {
  const DWORD status = write ? MakeFile(file_) : ERROR_SUCCESS;
  if (status != ERROR_SUCCESS) return status;
  identity_ = RegistryIdentity::Of(file_);
  owner_ = getpid();
  const auto access = write ? RegistryDatabase::Access::kWrite : RegistryDatabase::Access::kRead;
  database_ = std::make_unique<RegistryDatabase>(file_, access, deadline_);
  if (database_->Root() != 0) return ERROR_SUCCESS;
  database_.reset();
  return ERROR_FILE_NOT_FOUND;
}

// Makes an empty file if there is none; SQLite would hide the reason why it cannot be made. One that is there
// is not opened: closing it would end the locks that another store of this process has on it.
DWORD RegistryStore::MakeFile(const std::string& file) const {
  struct stat info;
  if (stat(file.c_str(), &info) == 0) return ERROR_SUCCESS;
  const DWORD status = MakeFolders(file, folderMode_);
  if (status != ERROR_SUCCESS) return status;
  // Behind a link to nothing there is no file that anybody has locked.
  const int once = Exists(file) ? 0 : O_EXCL;
  const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | once, 0644);
  if (descriptor < 0) return errno == EEXIST ? ERROR_SUCCESS : RegistrySystemError(errno);
  close(descriptor);
  return ERROR_SUCCESS;
}

// Gives the damaged file that was opened last another name, unless somebody else did so before.
DWORD RegistryStore::SetAside() {
  database_.reset();
  const RegistryGate gate(file_, RegistryGate::Kind::kAlone, true, deadline_);
  if (gate.Status() != ERROR_SUCCESS) return gate.Status();
  if (!gate.Holds()) return ERROR_BADDB;
  if (RegistryIdentity::Of(file_) != identity_) return ERROR_SUCCESS;

  std::string target;
  bool taken = true;
  for (int i = 1; taken; ++i) {
    target = file_ + ".damaged-" + std::to_string(i);
    taken = false;
    for (const char* companion : kCompanions) taken = taken || Exists(target + companion);
  }
  // The database goes first. Should we be killed in between, its journal alone is found to be damage and goes
  // the same way; a database alone would read as whole, with a half-done write in it.
  bool moved = false;
  for (const char* companion : kCompanions) {
    const std::string name = target + companion;
    if (rename((file_ + companion).c_str(), name.c_str()) != 0) {
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
  return RegistryIdentity::Of(path_) == identity_;
}

}  // namespace qn
