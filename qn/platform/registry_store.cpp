#include "qn/platform/registry_store_internal.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <optional>
#include <utility>

#include "qn/platform/error_internal.h"

namespace qn {
namespace {

// How often work begins anew because the file was exchanged or set aside meanwhile.
constexpr int kAttempts = 5;

// The files that SQLite keeps beside a database.
constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

bool HasBytes(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && info.st_size != 0;
}

std::string ResolvedPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : path;
}

// Orders openers and those who set a database aside, in all processes. Without it an opener could get the
// old file with the log of the new one. Where the lock cannot be made, the folder cannot be written, and
// nobody of our rights sets aside.
class OpenGate {
 public:
  explicit OpenGate(const std::string& path) {
    const std::string name = path + ".lock";
    descriptor_ = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor_ < 0) descriptor_ = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) return;
    constexpr int kTries = 10'000;
    const timespec pause = {0, 1'000'000};
    int result = flock(descriptor_, LOCK_EX | LOCK_NB);
    for (int i = 0; i < kTries && result != 0 && errno == EWOULDBLOCK; ++i) {
      nanosleep(&pause, nullptr);
      result = flock(descriptor_, LOCK_EX | LOCK_NB);
    }
    busy_ = result != 0 && errno == EWOULDBLOCK;
  }
  ~OpenGate() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  OpenGate(const OpenGate&) = delete;
  OpenGate& operator=(const OpenGate&) = delete;

  bool IsBusy() const { return busy_; }

 private:
  int descriptor_ = -1;
  bool busy_ = false;
};

// Makes the folders above a file. A power cut must not take away a new folder with what was reported as
// written in it, so its entry is brought to the disk.
DWORD MakeFolders(const std::string& file, mode_t mode) {
  for (size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1)) {
    const std::string folder = file.substr(0, slash);
    if (Exists(folder)) continue;
    if (mkdir(folder.c_str(), mode) != 0) {
      if (errno == EEXIST) continue;
      return errno == EROFS ? ERROR_ACCESS_DENIED : ErrorFromErrno(errno);
    }
    const std::string above = folder.substr(0, folder.rfind('/') + 1);
    const int descriptor = open(above.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) continue;
    fsync(descriptor);
    close(descriptor);
  }
  return ERROR_SUCCESS;
}

}  // namespace

// All stores of the process, for what concerns them together: a fork and the end.
class RegistryStoreList {
 public:
  // Never destroyed: keys may be closed by destructors that run at exit.
  static RegistryStoreList& Get() {
    static RegistryStoreList* const list = [] {
      auto* const made = new RegistryStoreList;
      pthread_atfork([] { Get().BeforeFork(); }, [] { Get().AfterFork(); }, [] { Get().AfterFork(); });
      return made;
    }();
    // Logs are folded into their databases at the end of the process, or when the library is unloaded.
    static const CloseAtExit closeAtExit;
    return *list;
  }

  void Add(RegistryStore* store) {
    const std::lock_guard guard(mutex_);
    stores_.push_back(store);
  }
  void Remove(RegistryStore* store) {
    const std::lock_guard guard(mutex_);
    stores_.remove(store);
  }

 private:
  struct CloseAtExit {
    ~CloseAtExit() { Get().CloseIdle(); }
  };

  void BeforeFork() {
    mutex_.lock();
    for (RegistryStore* store : stores_) {
      store->mutex_.lock();
      store->database_.reset();
    }
  }
  void AfterFork() {
    for (RegistryStore* store : stores_) store->mutex_.unlock();
    mutex_.unlock();
  }
  // Does not wait for threads that still run at exit.
  void CloseIdle() {
    const std::unique_lock guard(mutex_, std::try_to_lock);
    if (!guard.owns_lock()) return;
    for (RegistryStore* store : stores_) {
      const std::unique_lock storeGuard(store->mutex_, std::try_to_lock);
      if (storeGuard.owns_lock()) store->database_.reset();
    }
  }

  std::mutex mutex_;  // before those of the stores
  std::list<RegistryStore*> stores_;
};

RegistryStore::RegistryStore(std::string path, mode_t folderMode, RegistryDamage& damage)
    : path_(std::move(path)), folderMode_(folderMode), damage_(damage) {
  RegistryStoreList::Get().Add(this);
}

RegistryStore::~RegistryStore() {
  RegistryStoreList::Get().Remove(this);
}

DWORD RegistryStore::Read(const Work& work) {
  return Run(false, work);
}

DWORD RegistryStore::Write(const Work& work) {
  return Run(true, work);
}

bool RegistryStore::IsWritable() {
  const std::string file = ResolvedPath(path_);
  const std::string folder = file.substr(0, file.rfind('/') + 1);
  const auto work = [](RegistryDatabase& database) -> DWORD {
    return database.IsReadOnly() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
  };
  return Read(work) == ERROR_SUCCESS && access(folder.c_str(), W_OK) == 0;
}

DWORD RegistryStore::Run(bool write, const Work& work) {
  const std::lock_guard guard(mutex_);
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
  // A file that could not be written may have become writable; nothing tells a connection to one that is
  // taken not to change that it did.
  if (database_ && (immutable_ || (write && database_->IsReadOnly()))) database_.reset();
  if (database_ && !IsCurrent()) {
    database_->Abandon();
    database_.reset();
  }
  if (!database_) {
    const DWORD status = Open(write);
    if (status != ERROR_SUCCESS) return status;
  }
  if (!write) return work(*database_);
  if (database_->IsReadOnly()) return ERROR_ACCESS_DENIED;
  RegistryDatabase::Transaction transaction(*database_);
  const DWORD status = work(*database_);
  if (status == ERROR_SUCCESS) transaction.Commit();
  return status;
}

DWORD RegistryStore::Open(bool write) {
  if (!HasBytes(path_)) {
    if (!write) return ERROR_FILE_NOT_FOUND;
    const DWORD status = MakeFolders(path_, folderMode_);
    if (status != ERROR_SUCCESS) return status;
  }
  const std::string file = ResolvedPath(path_);
  const OpenGate gate(file);
  if (gate.IsBusy()) return ERROR_BUSY;
  identity_ = Identify(file);
  immutable_ = false;
  if (write) {
    database_ = std::make_unique<RegistryDatabase>(file, RegistryDatabase::Access::kWrite);
  } else {
    OpenForReading(file);
  }
  identity_ = Identify(file);
  if (database_->Root() != 0) return ERROR_SUCCESS;
  database_.reset();
  return ERROR_FILE_NOT_FOUND;
}

// A log needs files beside the database. Where they cannot be made (a folder without rights, a full disk) and
// none is there, nobody writes, and the database is read as a file that does not change.
void RegistryStore::OpenForReading(const std::string& file) {
  try {
    database_ = std::make_unique<RegistryDatabase>(file, RegistryDatabase::Access::kRead);
  } catch (const RegistryFailure& failure) {
    if (!IsLackOfCompanions(failure) || HasBytes(file + "-wal") || HasBytes(file + "-journal")) throw;
    database_ = std::make_unique<RegistryDatabase>(file, RegistryDatabase::Access::kImmutable);
    immutable_ = true;
  }
}

// Gives the damaged file that was opened last another name, unless somebody else did so before.
DWORD RegistryStore::SetAside() {
  if (immutable_) {
    // Perhaps it was only read while somebody with more rights wrote.
    database_.reset();
    return ERROR_BADDB;
  }
  if (database_) database_->Abandon();
  database_.reset();

  const std::string file = ResolvedPath(path_);
  const OpenGate gate(file);
  if (gate.IsBusy()) return ERROR_BUSY;
  if (Identify(file) != identity_) return ERROR_SUCCESS;
  std::string target;
  bool taken = true;
  for (int i = 1; taken; ++i) {
    target = file + ".damaged-" + std::to_string(i);
    taken = Exists(target);
    for (const char* companion : kCompanions) taken = taken || Exists(target + companion);
  }
  // The database goes last: until then whoever comes finds the damage again.
  for (const char* companion : kCompanions) {
    static_cast<void>(rename((file + companion).c_str(), (target + companion).c_str()));
  }
  if (rename(file.c_str(), target.c_str()) != 0) return ERROR_BADDB;
  const std::lock_guard guard(damage_.mutex);
  damage_.path = target;
  return ERROR_SUCCESS;
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
