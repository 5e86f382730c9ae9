#include "tools/qnimage/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"

namespace qnimage {

namespace messages = qntool::messages;

bool InputFile::Fail(HRESULT status, const qntool::Message& details) const {
  qntool::ReportFailure(name_.empty() ? "''" : name_, qntool::kOpeningFiles, status, details);
  return false;
}

bool InputFile::Open(const std::string& name) {
  name_ = name;
  if (name.empty()) return Fail(QN_E_FILE_NAME, messages::NameEmpty);
  // A pipe that nobody writes to must not hold up the refusal.
  const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return Fail(qntool::StatusFromErrno(QN_E_FILE_OPEN));
  file_.reset(fdopen(descriptor, "rb"));
  struct stat status = {};
  if (!file_ || fstat(descriptor, &status) != 0) return Fail(qntool::StatusFromErrno(QN_E_FILE_OPEN));
  if (S_ISDIR(status.st_mode)) return Fail(QN_E_FILE_OPEN, messages::IsDirectory);
  if (!S_ISREG(status.st_mode)) return Fail(QN_E_FILE_OPEN, messages::NoRegularFile);
  size_ = static_cast<uint64_t>(status.st_size);
  return true;
}

bool InputFile::ReadAt(uint64_t offset, void* bytes, size_t count) const {
  return (fseeko(file_.get(), static_cast<off_t>(offset), SEEK_SET) == 0 &&
          std::fread(bytes, 1, count, file_.get()) == count) ||
         Fail(QN_E_FILE_READ);
}

bool InputFile::IsUnder(const std::string& name) const {
  struct stat mine = {}, other = {};
  return fstat(fileno(file_.get()), &mine) == 0 && stat(name.c_str(), &other) == 0 &&
         mine.st_dev == other.st_dev && mine.st_ino == other.st_ino;
}

}  // namespace qnimage
