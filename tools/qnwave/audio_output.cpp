#include "tools/qnwave/audio_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/qnwave/file.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/wave_header.h"

namespace qnwave {

using qntool::StatusFromErrno;

bool AudioOutput::Create(const std::string& target, Container container, const AudioFormat& format,
                         uint64_t frames, bool overwrite) {
  format_ = format;
  std::u16string path;
  if (!LibraryPath(target, &path)) return false;
  if (!file_.Create(target, overwrite)) return false;

  const bool headerless = container == Container::kUnknown;
  const uint64_t dataBytes = frames * format.FrameBytes();
  dataStart_ = headerless ? 0 : WaveHeaderBytes(container, format);
  fileBytes_ = headerless ? dataBytes : WaveFileBytes(container, format, frames);
  // The room is taken at once: a full disk shows now and not after minutes, and blocks that are there make
  // writing faster. A file system that cannot do it does without.
  if (fileBytes_ != 0 && fallocate(file_.Descriptor(), 0, 0, static_cast<off_t>(fileBytes_)) != 0 &&
      errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL) {
    return file_.Fail(StatusFromErrno(QN_E_FILE_WRITE));
  }
  if (ftruncate(file_.Descriptor(), static_cast<off_t>(fileBytes_)) != 0)
    return file_.Fail(StatusFromErrno(QN_E_FILE_WRITE));
  return headerless || WriteHeader(container, frames);
}

bool AudioOutput::WriteHeader(Container container, uint64_t frames) {
  std::u16string path;
  if (!LibraryPath(file_.Temporary(), &path)) return false;
  const File header(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!header) return file_.Fail(SystemStatus(QN_E_FILE_CREATE));
  const HRESULT status = WriteWaveHeader(header.Get(), container, format_, frames);
  return status == S_OK || file_.Fail(SystemStatus(status));
}

HRESULT AudioOutput::Write(uint64_t first, const void* frames, uint32_t count) {
  const auto* bytes = static_cast<const char*>(frames);
  auto offset = static_cast<off_t>(OffsetOf(first));
  size_t left = size_t{count} * format_.FrameBytes();
  while (left > 0) {
    const ssize_t put = pwrite(file_.Descriptor(), bytes, left, offset);
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

}  // namespace qnwave
