#include "tools/qnwave/audio_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "qn/settings/qnstatus.h"
#include "tools/qnwave/file.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/wave_header.h"

namespace qnwave {

using qntool::StatusFromErrno;

AudioOutput::~AudioOutput() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

bool AudioOutput::Fail(HRESULT status) {
  ReportError(target_, status, {}, qntool::kSavingFiles);
  return false;
}

bool AudioOutput::Create(const std::string& target, Container container, const AudioFormat& format,
                         uint64_t frames, bool overwrite) {
  target_ = target;
  overwrite_ = overwrite;
  format_ = format;
  std::u16string path;
  if (!LibraryPath(target, &path)) return false;
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(target, error);
  if (std::filesystem::exists(status)) {
    if (!std::filesystem::is_regular_file(status)) {
      ReportError(target, QN_E_FILE_CREATE, messages::TargetNoRegularFile, qntool::kSavingFiles);
      return false;
    }
    if (!overwrite) {
      ReportError(target, QN_E_FILE_EXISTS, messages::ForceOverwrites, qntool::kSavingFiles);
      return false;
    }
    if (access(target.c_str(), W_OK) != 0) return Fail(StatusFromErrno(E_ACCESSDENIED));
    // What a link leads to is replaced, not the link.
    const std::filesystem::path real = std::filesystem::canonical(target, error);
    if (!error) target_ = real.string();
  }
  if (!CreateTemporary()) return false;

  const bool headerless = container == Container::kUnknown;
  const uint64_t dataBytes = frames * format.FrameBytes();
  dataStart_ = headerless ? 0 : WaveHeaderBytes(container, format);
  fileBytes_ = headerless ? dataBytes : WaveFileBytes(container, format, frames);
  // The room is taken at once: a full disk shows now and not after minutes, and blocks that are there make
  // writing faster. A file system that cannot do it does without.
  if (fileBytes_ != 0 && fallocate(descriptor_, 0, 0, static_cast<off_t>(fileBytes_)) != 0 &&
      errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL) {
    return Fail(StatusFromErrno(QN_E_FILE_WRITE));
  }
  if (ftruncate(descriptor_, static_cast<off_t>(fileBytes_)) != 0)
    return Fail(StatusFromErrno(QN_E_FILE_WRITE));
  return headerless || WriteHeader(container, frames);
}

// The name is short and its own, so that a long target name does not make it too long.
bool AudioOutput::CreateTemporary() {
  std::string folder = std::filesystem::path(target_).parent_path().string();
  if (!folder.empty() && folder.back() != '/') folder += '/';
  constexpr int kTries = 100;
  for (int i = 0; i < kTries; ++i) {
    const std::string name =
        folder + ".qnwave-" + std::to_string(getpid()) + "-" + std::to_string(i) + ".tmp";
    descriptor_ = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno == EEXIST) continue;
    if (descriptor_ < 0 && (errno == ENOENT || errno == ENOTDIR)) {
      ReportError(target_, QN_E_FILE_CREATE, messages::FolderMissing, qntool::kSavingFiles);
      return false;
    }
    if (descriptor_ < 0) return Fail(StatusFromErrno(QN_E_FILE_CREATE));
    temporary_ = name;
    // A file that is replaced keeps its permissions; where that is not allowed the new file has the usual
    // ones.
    struct stat old = {};
    if (stat(target_.c_str(), &old) == 0 && fchmod(descriptor_, old.st_mode & 0777) != 0) errno = 0;
    return true;
  }
  return Fail(QN_E_FILE_CREATE);
}

bool AudioOutput::WriteHeader(Container container, uint64_t frames) {
  std::u16string path;
  if (!LibraryPath(temporary_, &path)) return false;
  const File file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return Fail(SystemStatus(QN_E_FILE_CREATE));
  const HRESULT status = WriteWaveHeader(file.Get(), container, format_, frames);
  return status == S_OK || Fail(SystemStatus(status));
}

HRESULT AudioOutput::Write(uint64_t first, const void* frames, uint32_t count) {
  const auto* bytes = static_cast<const char*>(frames);
  auto offset = static_cast<off_t>(OffsetOf(first));
  size_t left = size_t{count} * format_.FrameBytes();
  while (left > 0) {
    const ssize_t put = pwrite(descriptor_, bytes, left, offset);
    if (put < 0) {
      if (errno == EINTR) continue;
      return StatusFromErrno(QN_E_FILE_WRITE);
    }
    bytes += put;
    offset += put;
    left -= static_cast<size_t>(put);
  }
  return S_OK;
}

bool AudioOutput::Commit() {
  // Closing can bring up a write that failed behind our back.
  const int result = close(descriptor_);
  descriptor_ = -1;
  if (result != 0) return Fail(StatusFromErrno(QN_E_FILE_WRITE));
  if (!Publish()) return false;
  temporary_.clear();
  return true;
}

bool AudioOutput::Publish() {
  if (!overwrite_) {
    // Another program may have made the target meanwhile: it is not to be replaced.
    if (renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) == 0)
      return true;
    if (errno != EINVAL && errno != ENOSYS) return Fail(StatusFromErrno(QN_E_FILE_CREATE));
    if (access(target_.c_str(), F_OK) == 0) return Fail(QN_E_FILE_EXISTS);
  }
  return rename(temporary_.c_str(), target_.c_str()) == 0 || Fail(StatusFromErrno(QN_E_FILE_CREATE));
}

}  // namespace qnwave
