// The forms that take the library's own format record. They go through a record of 40 bytes: one that
// comes out extensible has a cbSize, which those that write a header refuse.
#include "qn/media/qnwav.h"

namespace {

class PublishedFormat {
 public:
  explicit PublishedFormat(const _qnwaveformat* format) : given_(format != nullptr) {
    if (given_) QnAudio_GeneralCopyWfx(&record_.Format, sizeof(record_), *format, QNWFCD_AUTO);
  }
  const WAVEFORMATEX* Get() const { return given_ ? &record_.Format : nullptr; }

 private:
  bool given_;
  WAVEFORMATEXTENSIBLE record_{};
};

}  // namespace

HRESULT QnSetFileWfx(const WCHAR* name, const _qnwaveformat* format) {
  return QnSetFileWfx(name, PublishedFormat(format).Get());
}

HRESULT QnInitializeWav(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition) {
  return QnInitializeWav(name, PublishedFormat(format).Get(), disposition);
}

HRESULT QnInitializeWav64(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition) {
  return QnInitializeWav64(name, PublishedFormat(format).Get(), disposition);
}

HRESULT QnInitializeWavWithJunk(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition,
                                uint32_t headerSize) {
  return QnInitializeWavWithJunk(name, PublishedFormat(format).Get(), disposition, headerSize);
}

HRESULT QnInitializeWav64WithJunk(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition,
                                  int64_t headerSize) {
  return QnInitializeWav64WithJunk(name, PublishedFormat(format).Get(), disposition, headerSize);
}

HRESULT QnInsertWavHeader(HANDLE file, const _qnwaveformat* format, uint32_t dataBytes, uint32_t dataOffset) {
  return QnInsertWavHeader(file, PublishedFormat(format).Get(), dataBytes, dataOffset);
}

HRESULT QnInsertW64Header(HANDLE file, const _qnwaveformat* format, int64_t dataBytes, int64_t dataOffset) {
  return QnInsertW64Header(file, PublishedFormat(format).Get(), dataBytes, dataOffset);
}

HRESULT QnFixTrashedWav(HANDLE file, const _qnwaveformat* format, uint32_t headerLimit) {
  return QnFixTrashedWav(file, PublishedFormat(format).Get(), headerLimit);
}

HRESULT QnFixTrashedW64(HANDLE file, const _qnwaveformat* format, int64_t headerLimit) {
  return QnFixTrashedW64(file, PublishedFormat(format).Get(), headerLimit);
}
