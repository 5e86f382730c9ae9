// The peak object's life, and what it tells of itself.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "qn/media/peak_object_internal.h"
#include "qn/media/peak_reader_internal.h"
#include "qn/platform/directory.h"
#include "qn/settings/qnstatus.h"

namespace qn {

CQnAudioPeak::CQnAudioPeak(LONG flags, DWORD framesPerPeak, LONG memFramesPerPeak)
    : memoryOnly_(flags & QNAUDIOPEAK_MEMORYONLY),
      readOnly_(flags & QNAUDIOPEAK_READONLY),
      shareWrite_(readOnly_ && flags & QNAUDIOPEAK_SHAREWRITE),
      alwaysTemp_(flags & QNAUDIOPEAK_ALWAYSTEMP),
      tempFallback_(!alwaysTemp_ && flags & QNAUDIOPEAK_TEMPFALLBACK),
      hidden_(flags & QNAUDIOPEAK_HIDDEN),
      singleThread_(!(flags & QNAUDIOPEAK_THREADSAFE)),
      requestedFramesPerPeak_(framesPerPeak),
      memFramesPerPeak_(memFramesPerPeak) {
  if (!singleThread_) InitializeCriticalSection(&lock_);
}

CQnAudioPeak::~CQnAudioPeak() {
  Close();
  if (alwaysTemp_ && !memoryOnly_ && !peakFileName_.empty()) DeleteFileW(peakFileName_.c_str());
  if (ownsReader_) delete reader_;
  if (!singleThread_) DeleteCriticalSection(&lock_);
}

HRESULT CQnAudioPeak::Start(CQnAudioPeakStreamReader* reader, bool ownsReader, const WCHAR* tempFolder) try {
  reader_ = reader;
  ownsReader_ = ownsReader;
  WCHAR systemFolder[MAX_PATH];
  if (tempFolder && *tempFolder) {
    tempFolder_ = tempFolder;
  } else {
    const DWORD length = GetTempPathW(MAX_PATH, systemFolder);
    tempFolder_ = length && length < MAX_PATH ? systemFolder : W("C:\\");
  }
  if (!tempFolder_.ends_with(W('\\'))) tempFolder_ += W('\\');

  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (!format || !format->wFormatTag) return QN_E_FILE_OPEN;
  if (const HRESULT opened = Open(); opened != S_OK) return opened;
  if (IsValid(0)) return S_OK;
  Close();
  return S_FALSE;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT CQnAudioPeak::QueryInterface(const GUID& id, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (std::memcmp(&id, &IID_IUnknown, sizeof id) != 0) return E_NOINTERFACE;
  *object = static_cast<IUnknown*>(this);
  AddRef();
  return S_OK;
}

ULONG CQnAudioPeak::AddRef() {
  return static_cast<ULONG>(++references_);
}

ULONG CQnAudioPeak::Release() {
  const LONG left = --references_;
  if (left == 0) delete this;
  return static_cast<ULONG>(left);
}

HRESULT CQnAudioPeak::Sync(DWORD) {
  return S_OK;
}

HRESULT CQnAudioPeak::GetReader(CQnAudioPeakStreamReader** out) {
  if (!out) return E_POINTER;
  *out = reader_;
  return S_OK;
}

HRESULT CQnAudioPeak::GetHeader(void* out, DWORD size) {
  if (!out) return E_POINTER;
  std::memset(out, 0, size);
  std::memcpy(out, &header_, std::min<size_t>(size, sizeof header_));
  return S_OK;
}

HRESULT CQnAudioPeak::SetKeepOpen(DWORD keepOpen, LONG openNow) {
  keepOpen_ = keepOpen != 0;
  if (openNow) return Open() == S_OK ? S_OK : QN_E_FILE_OPEN;
  CloseUnlessKept();
  return S_OK;
}

HRESULT CQnAudioPeak::GetInfo(DWORD* sourceType, DWORD* framesPerPeak, DWORD* peakType,
                              DWORD* memFramesPerPeak, DWORD* memPeakType) {
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (sourceType) *sourceType = format ? static_cast<DWORD>(QnAudio_GetSampleType(format)) : 0;
  if (framesPerPeak) *framesPerPeak = header_.framesPerPeak;
  if (peakType) *peakType = header_.bits ? PeakType() : 0;
  const bool hasTable = !memTable_.empty();
  if (memFramesPerPeak) *memFramesPerPeak = hasTable ? memBuiltFramesPerPeak_ : 0;
  if (memPeakType) *memPeakType = hasTable ? DWORD{QNST_PCM16} : 0;
  return S_OK;
}

HRESULT CQnAudioPeak::NotImplemented() {
  return E_NOTIMPL;
}

namespace {

// `owned`, if any, is the reader and becomes the object's.
HRESULT MakePeak(IQnAudioPeak** out, CQnAudioPeakStreamReader* reader,
                 std::unique_ptr<CQnAudioPeakStreamReader> owned, const WCHAR* tempFolder,
                 DWORD framesPerPeak, LONG memFramesPerPeak, LONG flags) {
  auto* const peak = new (std::nothrow) CQnAudioPeak(flags, framesPerPeak, memFramesPerPeak);
  if (!peak) return E_OUTOFMEMORY;
  const bool ownsReader = owned != nullptr;
  const HRESULT status = peak->Start(ownsReader ? owned.release() : reader, ownsReader, tempFolder);
  if (FAILED(status)) {
    peak->Release();
  } else {
    *out = peak;
  }
  return status;
}

}  // namespace
}  // namespace qn

HRESULT QnAudioPeak_CreateInstance(IQnAudioPeak** out, CQnAudioPeakStreamReader* reader,
                                   const WCHAR* mediaName, const WCHAR* tempFolder, DWORD framesPerPeak,
                                   DWORD memFramesPerPeak, LONG flags) {
  if (!out) return E_POINTER;
  *out = nullptr;
  std::unique_ptr<CQnAudioPeakStreamReader> owned;
  if (!reader) {
    CQnAudioPeakStreamReader* made = nullptr;
    if (const HRESULT status = QnAudio_CreateWaveFileStreamReader(&made, mediaName); FAILED(status)) {
      return status;
    }
    owned.reset(made);
  }
  return qn::MakePeak(out, reader, std::move(owned), tempFolder, framesPerPeak,
                      static_cast<LONG>(memFramesPerPeak), flags);
}

HRESULT QnAudioPeak_CreateMemoryInstance(IQnAudioPeak** out, CQnAudioPeakStreamReader* reader,
                                         const WAVEFORMATEX* format, const void* data, LONGLONG frames,
                                         DWORD framesPerPeak, LONG flags) {
  if (!out) return E_POINTER;
  *out = nullptr;
  std::unique_ptr<CQnAudioPeakStreamReader> owned;
  if (!reader) {
    owned.reset(new (std::nothrow) qn::CQnAudioPeakWaveMemReader(format, data, frames));
    if (!owned) return E_OUTOFMEMORY;
  }
  // All that such an object has is its table, so there is no number that means none.
  const auto tableFrames = static_cast<LONG>(framesPerPeak <= qn::kMostFramesPerPeak ? framesPerPeak : 0);
  return qn::MakePeak(out, reader, std::move(owned), nullptr, framesPerPeak, tableFrames,
                      flags | QNAUDIOPEAK_MEMORYONLY);
}
