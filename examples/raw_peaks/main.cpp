// A host with media of its own: headerless stereo samples, whose peaks the library builds and keeps through a
// reader that the host supplies. Prints the waveform as text.
//
//   example_raw_peaks FILE RATE
//
// The peak file stands beside FILE with ".qnk" behind its name; a second run finds it valid.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "qn/audio/qnwaveformat.h"
#include "qn/media/peak.h"
#include "qn/platform/file.h"
#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr DWORD kChannels = 2;
constexpr LONG kColumns = 72;

class RawReader final : public CQnAudioPeakStreamReader {
 public:
  RawReader(std::u16string path, DWORD rate) : path_(std::move(path)) {
    QnAudio_InitWfx(&format_, rate, QNST_PCM16, kChannels);
    if (Open() == S_OK) {
      LARGE_INTEGER bytes;
      if (GetFileSizeEx(file_, &bytes)) length_ = bytes.QuadPart / format_.nBlockAlign;
      Close();
    }
  }
  ~RawReader() override { Close(); }
  RawReader(const RawReader&) = delete;
  RawReader& operator=(const RawReader&) = delete;

  HRESULT Open() override {
    Close();
    file_ = CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                        FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    return file_ == INVALID_HANDLE_VALUE ? QN_E_FILE_OPEN : S_OK;
  }

  HRESULT Read(LONGLONG position, LONGLONG, void* buffer, LONG frames, DWORD* got) override {
    *got = 0;
    if (file_ == INVALID_HANDLE_VALUE) return QN_E_FILE_OPEN;
    LARGE_INTEGER offset;
    offset.QuadPart = position * format_.nBlockAlign;
    DWORD bytes = 0;
    if (!SetFilePointerEx(file_, offset, nullptr, FILE_BEGIN) ||
        !ReadFile(file_, buffer, static_cast<DWORD>(frames) * format_.nBlockAlign, &bytes, nullptr)) {
      return QN_E_FILE_READ;
    }
    *got = bytes / format_.nBlockAlign;
    return S_OK;
  }

  HRESULT ReadConverted(LONGLONG, LONGLONG, void*, LONG, DWORD*, const WAVEFORMATEX*) override {
    return E_NOTIMPL;
  }

  HRESULT Close() override {
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
    file_ = INVALID_HANDLE_VALUE;
    return S_OK;
  }

  const WAVEFORMATEX* GetFormat() override { return &format_; }
  LONG GetStreamNumber() override { return -1; }
  LONGLONG GetLength() override { return length_; }

  HRESULT GetName(WCHAR* buffer, LONG size, LONG) override {
    buffer[path_.copy(buffer, static_cast<size_t>(size) - 1)] = 0;
    return S_OK;
  }

  // With this the peak file follows when the host renames its media (QnAudioPeak_HandleMediaRename).
  HRESULT Rename(const WCHAR* name) override {
    path_ = name;
    return S_OK;
  }

 private:
  std::u16string path_;
  WAVEFORMATEX format_;
  LONGLONG length_ = 0;
  HANDLE file_ = INVALID_HANDLE_VALUE;
};

int Fail(const char* what, HRESULT status) {
  std::fprintf(stderr, "%s failed: 0x%08X\n", what, static_cast<unsigned>(status));
  return 1;
}

// The louder of a column's channels, as a bar of up to `rows` signs.
int Height(const int16_t* pairs, int rows) {
  int level = 0;
  for (DWORD i = 0; i < kChannels * 2; ++i) level = std::max(level, std::abs(int{pairs[i]}));
  return level * rows / 32768;
}

}  // namespace

int main(int count, char** words) {
  const auto rate = count == 3 ? static_cast<DWORD>(std::strtoul(words[2], nullptr, 10)) : 0;
  if (rate == 0) {
    std::fprintf(stderr, "usage: %s FILE RATE\n", words[0]);
    return 2;
  }
  const std::u16string path = qn::PathFromNative(words[1]);
  RawReader reader(path, rate);
  IQnAudioPeak* peak = nullptr;
  HRESULT status = QnAudioPeak_CreateInstance(&peak, &reader, path.c_str(), nullptr, 256, 2048, 0);
  if (FAILED(status)) return Fail("creating", status);
  std::printf("%s\n", status == S_OK ? "The peak file was valid." : "The peak file is built.");
  // Also for a valid file, since this makes the table in memory that serves the coarse zooms.
  status = peak->Build(QNAUDIOPEAK_BUILD_16BIT, nullptr);

  std::vector<int16_t> pairs(size_t{kColumns} * kChannels * 2);
  DWORD columns = 0;
  if (SUCCEEDED(status)) {
    status = peak->GetPeaks(0, reader.GetLength(), pairs.data(), kColumns, &columns);
  }
  peak->Release();
  if (FAILED(status)) return Fail("building", status);

  constexpr int kRows = 8;
  for (int row = kRows; row > 0; --row) {
    for (DWORD i = 0; i < columns; ++i) {
      std::putchar(Height(&pairs[i * kChannels * 2], kRows) >= row ? '#' : ' ');
    }
    std::putchar('\n');
  }
  return 0;
}
