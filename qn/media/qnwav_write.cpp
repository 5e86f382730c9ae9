// New headers: for a new file, and over the start of an existing one. Setting the format of a file.
#include <cstdlib>

#include "qn/audio/qnwaveformat.h"
#include "qn/media/aiff_internal.h"
#include "qn/media/qnwav.h"
#include "qn/media/qnwav_internal.h"
#include "qn/platform/file.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

// A record of tag 1 whose numbers do not agree, or that has no whole bytes: 20 bits are for reading only.
bool IsInconsistentPcm(const WAVEFORMATEX& format) {
  return format.wFormatTag == WAVE_FORMAT_PCM &&
         (format.wBitsPerSample == 20 ||
          format.nBlockAlign != format.nChannels * (format.wBitsPerSample / 8u));
}

// The headers written here hold the 18 bytes of the plain record and nothing behind them.
HRESULT CheckFormat(const WAVEFORMATEX* format) {
  return format && format->cbSize == 0 && !IsInconsistentPcm(*format) ? S_OK : QN_E_MEDIA_TYPE;
}

HRESULT WriteZeroBlocks(HANDLE file, uint64_t bytes) {
  static constexpr uint8_t kZeros[1024] = {};
  while (bytes > 0) {
    const DWORD count = static_cast<DWORD>(bytes < sizeof(kZeros) ? bytes : sizeof(kZeros));
    if (!WriteExactly(file, kZeros, count)) return QN_E_FILE_WRITE;
    bytes -= count;
  }
  return S_OK;
}

// The header of a WAV file from offset 0 to the first sample at `dataOffset`.
struct WavHeader : WavContainer {
  static HRESULT Write(HANDLE file, const WAVEFORMATEX& format, uint32_t riffSize, uint32_t dataOffset,
                       uint32_t dataBytes) {
    HRESULT status = riff_WriteChunkHeader(file, RIFF_ID_RIFF, riffSize);
    if (status == S_OK && !WriteField(file, kForm)) status = QN_E_FILE_WRITE;
    if (status == S_OK) status = riff_WriteChunk(file, kFormat, &format, sizeof(format), nullptr);
    if (status == S_OK && dataOffset > kPlainHeader) {
      status = riff_WriteChunkHeader(file, kJunk, dataOffset - kHeaderWithJunk);
      if (status == S_OK) status = WriteZeroBlocks(file, dataOffset - kHeaderWithJunk);
    }
    return status == S_OK ? riff_WriteChunkHeader(file, kData, dataBytes) : status;
  }

  // The RIFF sizes of a new file and of one that holds `dataBytes`.
  static uint32_t NewFileSize(uint32_t headerSize) { return headerSize - kChunkHeaderBytes; }
  static uint32_t FilledSize(uint32_t dataOffset, uint32_t dataBytes) {
    const uint64_t size = uint64_t{dataOffset} - kChunkHeaderBytes + dataBytes;
    return size < UINT32_MAX ? static_cast<uint32_t>(size) : UINT32_MAX;
  }
};

struct Wave64Header : Wave64Container {
  // `riffSize` is the value that is stored.
  static HRESULT Write(HANDLE file, const WAVEFORMATEX& format, int64_t riffSize, int64_t dataOffset,
                       int64_t dataBytes) {
    // Of the file header only the last write counts; a disk that takes no more fails the later ones too.
    HRESULT status = riff64_WriteFileID(file, &kForm, static_cast<uint64_t>(riffSize) - kChunkHeaderBytes);
    if (status == S_OK) status = riff64_WriteChunk(file, &kFormat, &format, sizeof(format), nullptr);
    if (status == S_OK && dataOffset > kPlainHeader) {
      const uint64_t junk = static_cast<uint64_t>(dataOffset) - kHeaderWithJunk;
      status = riff64_WriteChunkHeader(file, &RIFF64_GUID_JUNK, junk);
      if (status == S_OK) status = WriteZeroBlocks(file, junk);
    }
    if (status != S_OK) return status;
    return riff64_WriteChunkHeader(file, &kData, static_cast<uint64_t>(dataBytes));
  }

  // A new file states 24 bytes more than it has with a reserve, and 18 without one: readers of files that
  // were never closed rely on both.
  static int64_t NewFileSize(int64_t headerSize) {
    return headerSize == kPlainHeader ? 130 : headerSize + kChunkHeaderBytes;
  }
  static int64_t FilledSize(int64_t dataOffset, int64_t dataBytes) {
    return static_cast<int64_t>(static_cast<uint64_t>(dataOffset) + static_cast<uint64_t>(dataBytes));
  }
};

// Creates a file with a header of `headerSize` bytes. The file is there, and empty, before a header size
// below `leastSize` is refused.
template <class Header>
HRESULT Create(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition,
               typename Header::Offset headerSize, typename Header::Offset leastSize) {
  const HRESULT status = CheckFormat(format);
  if (status != S_OK) return status;
  if (disposition == OPEN_EXISTING) disposition = TRUNCATE_EXISTING;
  if (disposition == OPEN_ALWAYS) disposition = CREATE_ALWAYS;
  const File file(name, GENERIC_READ | GENERIC_WRITE, disposition);
  if (!file) return QN_E_FILE_OPEN;
  if (headerSize < leastSize) return E_INVALIDARG;
  return Header::Write(file.Get(), *format, Header::NewFileSize(headerSize), headerSize, 0);
}

// Rounds up to the container's alignment. What does not fit comes out too small for a header.
template <class Header>
typename Header::Offset RoundUp(typename Header::Offset size) {
  constexpr uint64_t kMask = Header::kAlignment - 1;
  return static_cast<typename Header::Offset>((static_cast<uint64_t>(size) + kMask) & ~kMask);
}

template <class Header>
HRESULT Insert(HANDLE file, const WAVEFORMATEX* format, typename Header::Offset dataBytes,
               typename Header::Offset dataOffset) {
  const KeepPosition keep(file);
  const int64_t fileSize = FileLength(file);
  Seek(file, 0);
  const HRESULT status = CheckFormat(format);
  if (status != S_OK) return status;
  const bool noRoomForJunk = dataOffset > Header::kPlainHeader && dataOffset < Header::kHeaderWithJunk;
  if (dataOffset % Header::kAlignment != 0 || dataOffset < Header::kPlainHeader ||
      fileSize < Header::kPlainHeader || noRoomForJunk) {
    return QN_E_CHUNK_SIZE;
  }
  return Header::Write(file, *format, Header::FilledSize(dataOffset, dataBytes), dataOffset, dataBytes);
}

}  // namespace
}  // namespace qn

HRESULT QnInitializeWav(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition) {
  using Header = qn::WavHeader;
  return qn::Create<Header>(name, format, disposition, Header::kPlainHeader, Header::kPlainHeader);
}

HRESULT QnInitializeWav64(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition) {
  using Header = qn::Wave64Header;
  return qn::Create<Header>(name, format, disposition, Header::kPlainHeader, Header::kPlainHeader);
}

HRESULT QnInitializeWavWithJunk(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition,
                                uint32_t headerSize) {
  using Header = qn::WavHeader;
  return qn::Create<Header>(name, format, disposition, qn::RoundUp<Header>(headerSize),
                            Header::kHeaderWithJunk);
}

HRESULT QnInitializeWav64WithJunk(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition,
                                  int64_t headerSize) {
  using Header = qn::Wave64Header;
  return qn::Create<Header>(name, format, disposition, qn::RoundUp<Header>(headerSize),
                            Header::kHeaderWithJunk);
}

HRESULT QnInsertWavHeader(HANDLE file, const WAVEFORMATEX* format, uint32_t dataBytes, uint32_t dataOffset) {
  return qn::Insert<qn::WavHeader>(file, format, dataBytes, dataOffset);
}

HRESULT QnInsertW64Header(HANDLE file, const WAVEFORMATEX* format, int64_t dataBytes, int64_t dataOffset) {
  return qn::Insert<qn::Wave64Header>(file, format, dataBytes, dataOffset);
}

HRESULT QnSetFileWfx(const WCHAR* name, const WAVEFORMATEX* format) {
  if (!format || qn::IsInconsistentPcm(*format)) return QN_E_MEDIA_TYPE;
  const qn::File file(name, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
  if (!file) return QN_E_FILE_OPEN;

  uint32_t frames;
  uint32_t dataStart;
  WAVEFORMATEX* found = qn::ReadWavFormat(file.Get(), &frames, &dataStart);
  if (!found) return qn::WriteAiffFormat(file.Get(), *format);
  std::free(found);
  // At the file's start, over the RIFF header: hosts rely on it and write their own header afterwards.
  return riff_WriteChunk(file.Get(), RIFF_ID_FMT, format, sizeof(*format), nullptr);
}
