#include "tools/qnwave/file.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <utility>

#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

File Open(const std::string& name, DWORD access) {
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(name, ignored);
  if (std::filesystem::is_directory(status)) {
    ReportOpenError(name, QN_E_FILE_OPEN, messages::IsDirectory);
    return File();
  }
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    ReportOpenError(name, QN_E_FILE_OPEN, messages::NoRegularFile);
    return File();
  }
  std::u16string path;
  if (!LibraryPath(name, &path)) return File();
  File file(CreateFileW(path.c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                        nullptr));
  if (!file) {
    const HRESULT reason = SystemStatus(QN_E_FILE_OPEN);
    ReportOpenError(name, reason == QN_E_NOT_FOUND ? QN_E_FILE_OPEN : reason);
  }
  return file;
}

}  // namespace

bool LibraryPath(const std::string& name, std::u16string* path) {
  if (name.empty()) {
    ReportOpenError("''", QN_E_FILE_NAME, messages::NameEmpty);
    return false;
  }
  if (name.find('\\') != std::string::npos) {
    ReportOpenError(name, QN_E_FILE_NAME, messages::NameBackslash);
    return false;
  }
  if (!qntool::IsUtf8(name)) {
    ReportOpenError(name, QN_E_FILE_NAME, messages::NameNotUtf8);
    return false;
  }
  // The library drops a drive letter: a native name that starts like one is kept whole by its folder.
  const bool drive = name.size() > 1 && name[1] == ':' && std::isalpha(static_cast<unsigned char>(name[0]));
  *path = qn::PathFromNative(drive ? "./" + name : name);
  return true;
}

File& File::operator=(File&& other) noexcept {
  std::swap(handle_, other.handle_);
  return *this;
}

File File::ForReading(const std::string& name) {
  return Open(name, GENERIC_READ);
}

File File::ForChange(const std::string& name) {
  return Open(name, GENERIC_READ | GENERIC_WRITE);
}

File File::CreateNew(const std::string& name) {
  std::u16string path;
  if (!LibraryPath(name, &path)) return File();
  return File(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
}

void File::Close() {
  if (*this) CloseHandle(handle_);
  handle_ = INVALID_HANDLE_VALUE;
}

uint64_t File::Size() const {
  LARGE_INTEGER size{};
  GetFileSizeEx(handle_, &size);
  return static_cast<uint64_t>(size.QuadPart);
}

bool File::Seek(uint64_t offset) const {
  LARGE_INTEGER distance;
  distance.QuadPart = static_cast<LONGLONG>(offset);
  return SetFilePointerEx(handle_, distance, nullptr, FILE_BEGIN) != 0;
}

bool File::ReadAt(uint64_t offset, void* buffer, uint32_t bytes) const {
  DWORD got = 0;
  return Seek(offset) && ReadFile(handle_, buffer, bytes, &got, nullptr) && got == bytes;
}

bool File::WriteAt(uint64_t offset, const void* buffer, uint32_t bytes) const {
  return Seek(offset) && WriteFile(handle_, buffer, bytes, nullptr, nullptr);
}

const uint8_t* ByteWindow::At(uint64_t offset, uint32_t bytes) {
  if (offset > size_ || bytes > size_ - offset) return nullptr;
  if (offset < start_ || offset + bytes > start_ + filled_) {
    filled_ = 0;
    const auto want = static_cast<uint32_t>(std::min<uint64_t>(block_.size(), size_ - offset));
    if (!file_.ReadAt(offset, block_.data(), want)) return nullptr;
    start_ = offset;
    filled_ = want;
  }
  return block_.data() + (offset - start_);
}

}  // namespace qnwave
