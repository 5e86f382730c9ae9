// The peak file: its name, its header, and whether it still fits the media.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <new>
#include <string_view>
#include <vector>

#include "qn/kernel/qnpath.h"
#include "qn/media/peak_object_internal.h"
#include "qn/platform/directory.h"
#include "qn/platform/open_file_internal.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr DWORD kTempNames = 10000;
constexpr LONG kNameRoom = 256;       // of the media's name, as far as a peak file is named after it
constexpr LONG kLongNameRoom = 4096;  // of the media's name as its file is looked for
constexpr uint64_t kLengthTolerance = 1000;

bool IsFile(const std::u16string& name) {
  const DWORD attributes = GetFileAttributesW(name.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         !(attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE));
}

std::u16string Decimal(DWORD number) {
  char digits[16];
  char* const end = std::to_chars(digits, std::end(digits), number).ptr;
  return std::u16string(digits, end);
}

// A name in `folder` that no file has, or an empty one. All objects of the process count on together.
std::u16string MakeTempName(const std::u16string& folder) {
  static std::atomic<DWORD> counter;
  std::u16string name;
  DWORD number = 0;
  do {
    number = counter++;
    const std::u16string digits = Decimal(number);
    name = folder + W("QNK") + std::u16string(4 - std::min<size_t>(digits.size(), 4), W('0')) + digits +
           W(".TMP");
    if (!IsFile(name)) return name;
  } while (number + 1 < kTempNames);
  return {};
}

// The media's path; empty when it has none. A failing reader tells in `*status`.
std::u16string MediaName(CQnAudioPeakStreamReader& reader, LONG room, HRESULT* status = nullptr) {
  std::vector<WCHAR> name(static_cast<size_t>(room));
  const HRESULT asked = reader.GetName(name.data(), room, 1);
  if (status) *status = asked;
  if (FAILED(asked)) return {};
  name.back() = 0;
  return name.data();
}

bool EqualsNoCase(std::u16string_view text, std::u16string_view lower) {
  return std::ranges::equal(text, lower, [](char16_t a, char16_t b) {
    return (a >= W('A') && a <= W('Z') ? a + (W('a') - W('A')) : a) == b;
  });
}

// The name beside the media.
std::u16string NameBeside(std::u16string name, LONG stream) {
  constexpr std::u16string_view kWave = W(".wav");
  const size_t separator = name.find_last_of(W("/:\\"));
  const size_t file = separator == name.npos ? 0 : separator + 1;
  if (name.size() - file >= kWave.size() &&
      EqualsNoCase(std::u16string_view(name).substr(name.size() - kWave.size()), kWave)) {
    name.resize(name.size() - kWave.size());
  }
  std::u16string suffix = W(".qnk");
  if (stream >= 0) suffix += Decimal(static_cast<DWORD>(stream));
  name.resize(std::min<size_t>(name.size(), MAX_PATH - 1 - suffix.size()));
  return name + suffix;
}

bool IsPeakHeader(const PeakFileHeader& header) {
  return header.magic == kPeakMagic && header.version <= kPeakVersion &&
         header.headerSize >= sizeof(PeakFileHeader);
}

bool SeekTo(HANDLE file, int64_t offset) {
  LARGE_INTEGER to;
  to.QuadPart = offset;
  return SetFilePointerEx(file, to, nullptr, FILE_BEGIN);
}

}  // namespace

HRESULT CQnAudioPeak::MakePeakFileName() try {
  if (memoryOnly_ || !reader_) return E_FAIL;
  if (!peakFileName_.empty()) return S_OK;

  std::u16string temporary;
  if (alwaysTemp_ || tempFallback_) temporary = MakeTempName(tempFolder_);
  if (!alwaysTemp_) {
    HRESULT status = S_OK;
    std::u16string media = MediaName(*reader_, kNameRoom, &status);
    if (FAILED(status)) return status;
    peakFileName_ = NameBeside(std::move(media), reader_->GetStreamNumber());
    if (!tempFallback_ || IsFile(peakFileName_)) return S_OK;
  }
  peakFileName_ = std::move(temporary);
  return peakFileName_.empty() ? E_FAIL : S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT CQnAudioPeak::GetPeakFileName(WCHAR* name, LONG size) {
  if (const HRESULT status = MakePeakFileName(); FAILED(status)) return status;
  if (name && size > 0) name[peakFileName_.copy(name, static_cast<size_t>(size) - 1)] = 0;
  return S_OK;
}

HRESULT CQnAudioPeak::Open() {
  if (memoryOnly_) return memoryValid_ ? S_OK : S_FALSE;
  if (file_ != INVALID_HANDLE_VALUE) return S_OK;
  if (FAILED(MakePeakFileName())) return S_FALSE;
  file_ = CreateFileW(peakFileName_.c_str(), readOnly_ ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE,
                      shareWrite_ ? FILE_SHARE_READ | FILE_SHARE_WRITE : FILE_SHARE_READ, nullptr,
                      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN | FILE_ATTRIBUTE_NORMAL, nullptr);
  PeakFileHeader header;
  if (ReadAt(0, &header, sizeof header) == sizeof header) {
    header_ = header;
    return S_OK;
  }
  Close();
  return S_FALSE;
}

void CQnAudioPeak::Close() {
  UnmapView();
  if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
  file_ = INVALID_HANDLE_VALUE;
}

void CQnAudioPeak::CloseUnlessKept() {
  if (!keepOpen_ && !isScanning_) Close();
}

bool CQnAudioPeak::WriteAt(int64_t offset, const void* bytes, DWORD count) {
  DWORD put = 0;
  return SeekTo(file_, offset) && WriteFile(file_, bytes, count, &put, nullptr) && put == count;
}

DWORD CQnAudioPeak::ReadAt(int64_t offset, void* bytes, DWORD count) {
  DWORD got = 0;
  return SeekTo(file_, offset) && ReadFile(file_, bytes, count, &got, nullptr) ? got : 0;
}

bool CQnAudioPeak::GetSourceTimes(DWORD* local, DWORD* utc) const try {
  const std::u16string media = MediaName(*reader_, kLongNameRoom);
  *local = QnDosGetDateTime(media.c_str());
  *utc = QnDosGetDateTimeUTC(media.c_str());
  return header_.sourceTimeUtc ? header_.sourceTimeUtc == *utc : header_.sourceTime == *local;
} catch (const std::bad_alloc&) {
  *local = *utc = 0;
  return false;
}

BOOL CQnAudioPeak::IsValid(DWORD) {
  if (!reader_ || !IsPeakHeader(header_)) return FALSE;
  DWORD local = 0, utc = 0;
  if (!memoryOnly_ && !GetSourceTimes(&local, &utc)) return FALSE;
  if (header_.bits != 8 && header_.bits != 16) return FALSE;
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (!format || format->nChannels != header_.channels) return FALSE;
  const int64_t length = reader_->GetLength(), covered = header_.sourceLength;
  const auto [less, more] = std::minmax(length, covered);
  if (static_cast<uint64_t>(more) - static_cast<uint64_t>(less) >= kLengthTolerance) return FALSE;
  if (memoryOnly_) return memoryValid_;

  // Anybody can write a header. Without channels there is nothing to divide the values by, and the blocks
  // that it speaks of must be there: a copy that broke off has a good header too.
  if (header_.channels == 0 || header_.framesPerPeak < kLeastFramesPerPeak ||
      header_.framesPerPeak > kMostFramesPerPeak) {
    return FALSE;
  }
  LONGLONG size = 0;
  if (FAILED(QnGetFileSizeByName(peakFileName_.c_str(), &size))) return FALSE;
  const auto held = static_cast<uint64_t>(size);
  return held >= header_.headerSize &&
         (held - header_.headerSize) / BlockBytes() >= CountPeakBlocks(less, header_.framesPerPeak);
}

HRESULT CQnAudioPeak::Create(DWORD peakType) try {
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (!format) return QN_E_FILE_OPEN;
  dirty_ = true;
  partial_ = {};
  // From here on the file goes with the object, even one that was found beside the media: hosts rely on it.
  alwaysTemp_ |= tempFallback_;
  header_ = {};
  header_.magic = kPeakMagic;
  header_.version = kPeakVersion;
  header_.headerSize = sizeof header_;
  header_.bits = peakType == QNST_PCM16 ? 16 : 8;
  header_.channels = format->nChannels;
  const bool isPossible =
      requestedFramesPerPeak_ >= kLeastFramesPerPeak && requestedFramesPerPeak_ <= kMostFramesPerPeak;
  header_.framesPerPeak = isPossible ? requestedFramesPerPeak_ : 256;
  header_.sourceLength = reader_->GetLength();
  if (memoryOnly_) {
    alwaysTemp_ = true;
    return S_OK;
  }

  // A name that was cut can come out as that of the media, which is not to be overwritten.
  const std::u16string media = MediaName(*reader_, kLongNameRoom);
  const auto open = [&] {
    if (FAILED(MakePeakFileName()) || peakFileName_ == media) return false;
    const DWORD attributes = hidden_ ? FILE_ATTRIBUTE_HIDDEN : FILE_ATTRIBUTE_NORMAL;
    file_ = CreateFileW(peakFileName_.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                        OPEN_ALWAYS, FILE_FLAG_SEQUENTIAL_SCAN | attributes, nullptr);
    return file_ != INVALID_HANDLE_VALUE;
  };
  if (!open()) {
    if (alwaysTemp_ && !tempFallback_) return QN_E_FILE_CREATE;
    peakFileName_.clear();
    alwaysTemp_ = true;
    if (!open()) return QN_E_FILE_CREATE;
  }
  return WriteEmptyFile() ? S_OK : QN_E_FILE_WRITE;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

bool CQnAudioPeak::WriteEmptyFile() {
  // No media has this time. It keeps what a killed build leaves behind from passing for valid where a time of
  // 0 would not: with a media that is no file and so has none.
  PeakFileHeader unfinished = header_;
  DWORD local = 0, utc = 0;
  if (GetSourceTimes(&local, &utc)) unfinished.sourceTimeUtc = 0xFFFFFFFF;
  if (!WriteAt(0, &unfinished, sizeof unfinished)) return false;
  if (!SetEndOfFile(file_)) return false;  // the blocks of an older file go

  // The whole file at once, so that a full disk shows before the work.
  const uint64_t blocks = CountPeakBlocks(header_.sourceLength, header_.framesPerPeak);
  if (BlockBytes() && blocks > (INT64_MAX - header_.headerSize) / BlockBytes()) return false;
  const int64_t end = BlockOffset(blocks);
  if (!ReserveFile(file_, end)) return false;
  const std::vector<uint8_t> zeros(BlockBytes());
  const int64_t last = end - static_cast<int64_t>(zeros.size());
  // Without blocks this is within the header, which is written again at the end of a build.
  return last < 0 || WriteAt(last, zeros.data(), static_cast<DWORD>(zeros.size()));
}

HRESULT CQnAudioPeak::WriteHeader() {
  if (memoryOnly_) return S_FALSE;
  DWORD local = 0, utc = 0;
  if (GetSourceTimes(&local, &utc) && !dirty_) return S_OK;
  // What is no peak file is not made one by a stamp.
  if (file_ == INVALID_HANDLE_VALUE || !IsPeakHeader(header_)) return E_UNEXPECTED;
  header_.sourceTime = local;
  header_.sourceTimeUtc = utc;
  return WriteAt(0, &header_, sizeof header_) ? S_OK : QN_E_FILE_WRITE;
}

HRESULT CQnAudioPeak::UpdateHeader() {
  const bool wasReadOnly = readOnly_;
  if (readOnly_) Close();
  readOnly_ = false;
  Open();  // WriteHeader tells whether there is a file
  const HRESULT status = WriteHeader();
  CloseUnlessKept();
  readOnly_ = wasReadOnly;
  return status;
}

HRESULT CQnAudioPeak::HandleMediaRename(const WCHAR* newName) {
  Close();
  if (const HRESULT status = reader_->Rename(newName); FAILED(status)) return status;
  std::u16string oldName;
  oldName.swap(peakFileName_);
  if (const HRESULT status = MakePeakFileName(); FAILED(status)) {
    peakFileName_.swap(oldName);
    return status;
  }
  if (oldName == peakFileName_ || !IsFile(oldName)) return Open();
  if (MoveFileW(oldName.c_str(), peakFileName_.c_str())) return Open();
  peakFileName_.swap(oldName);
  return QN_E_FILE_WRITE;
}

}  // namespace qn

HRESULT QnAudioPeak_HandleMediaRename(IQnAudioPeak* peak, const WCHAR* newName) {
  if (!peak || !newName) return E_INVALIDARG;
  return static_cast<qn::CQnAudioPeak*>(peak)->HandleMediaRename(newName);
}
