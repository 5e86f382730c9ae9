#include "tools/common/output_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/common/report.h"

namespace qntool {

namespace fs = std::filesystem;

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

bool OutputFile::Fail(HRESULT status, const Message& details) const {
  ReportFailure(name_, kSavingFiles, status, details);
  return false;
}

bool OutputFile::Create(const std::string& target, bool overwrite) {
  name_ = target;
  target_ = target;
  overwrite_ = overwrite;
  std::error_code error;
  constexpr int kMaxLinks = 40;
  for (int i = 0; i < kMaxLinks && fs::is_symlink(fs::symlink_status(target_, error)); ++i)
    target_ = (fs::path(target_).parent_path() / fs::read_symlink(target_, error)).string();
  const fs::file_status status = fs::status(target_, error);
  if (status.type() == fs::file_type::none) {
    errno = error.value();
    return FailAtFolder();
  }
  if (fs::exists(status)) {
    if (!fs::is_regular_file(status)) return Fail(QN_E_FILE_CREATE, messages::TargetNoRegularFile);
    if (!overwrite) return Fail(QN_E_FILE_EXISTS, messages::ForceOverwrites);
    if (access(target_.c_str(), W_OK) != 0) return Fail(StatusFromErrno(E_ACCESSDENIED));
  }
  return CreateTemporary();
}

std::string OutputFile::Resolved() const {
  const fs::path file = target_;
  std::error_code ignored;
  return (fs::canonical("." / file.parent_path(), ignored) / file.filename()).string();
}

// The name is short and its own, so that a long target name does not make it too long.
bool OutputFile::CreateTemporary() {
  std::string folder = fs::path(target_).parent_path().string();
  if (!folder.empty() && folder.back() != '/') folder += '/';
  constexpr int kTries = 1000;  // a tool may be at work on a file for each of many channels
  for (int i = 0; i < kTries; ++i) {
    const std::string name =
        folder + "." + kProgram + "-" + std::to_string(getpid()) + "-" + std::to_string(i) + ".tmp";
    descriptor_ = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno == EEXIST) continue;
    if (descriptor_ < 0) return FailAtFolder();
    temporary_ = name;
    KeepOwnership();
    return true;
  }
  return Fail(QN_E_FILE_CREATE);
}

// For errno of a name that was to be made or looked up.
bool OutputFile::FailAtFolder() const {
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
      return Fail(QN_E_FILE_CREATE, messages::FolderMissing);
    case EACCES:
    case EPERM:
    case EROFS:
      return Fail(QN_E_FILE_CREATE, messages::FolderNotWritable);
    default:
      return Fail(StatusFromErrno(QN_E_FILE_CREATE));
  }
}

// Where the old owner, group or permissions are not allowed the new file has the usual ones. The owner comes
// first: a change of it takes permissions away.
void OutputFile::KeepOwnership() const {
  struct stat old = {};
  if (stat(target_.c_str(), &old) != 0) return;
  const bool isOwned = fchown(descriptor_, old.st_uid, old.st_gid) == 0 ||
                       fchown(descriptor_, static_cast<uid_t>(-1), old.st_gid) == 0;
  if (fchmod(descriptor_, old.st_mode & 0777) != 0 || !isOwned) errno = 0;
}

HRESULT OutputFile::Write(const void* bytes, size_t count) {
  const char* at = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = write(descriptor_, at, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return StatusFromErrno(QN_E_FILE_WRITE);
    at += written;
    count -= static_cast<size_t>(written);
  }
  return S_OK;
}

bool OutputFile::Commit() {
  // Closing can bring up a write that failed behind our back.
  const int result = close(descriptor_);
  descriptor_ = -1;
  if (result != 0) return Fail(StatusFromErrno(QN_E_FILE_WRITE));
  if (!Publish()) return false;
  temporary_.clear();
  return true;
}

bool OutputFile::Publish() {
  if (!overwrite_) {
    // Another program may have made the target meanwhile: it is not to be replaced.
    if (renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) == 0)
      return true;
    if (errno == EEXIST) return Fail(QN_E_FILE_EXISTS, messages::ForceOverwrites);
    if (errno != EINVAL && errno != ENOSYS) return Fail(StatusFromErrno(QN_E_FILE_CREATE));
    if (access(target_.c_str(), F_OK) == 0) return Fail(QN_E_FILE_EXISTS, messages::ForceOverwrites);
  }
  return rename(temporary_.c_str(), target_.c_str()) == 0 || Fail(StatusFromErrno(QN_E_FILE_CREATE));
}

}  // namespace qntool
