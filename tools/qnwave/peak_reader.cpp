#include "tools/qnwave/peak_reader.h"

#include <algorithm>

#include "qn/platform/directory.h"
#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

// A record of the sample type's own tag: what an extensible one says beside it is no matter of peaks.
WAVEFORMATEX RecordOf(const AudioFormat& format) {
  WAVEFORMATEX record = {};
  record.wFormatTag = static_cast<WORD>(QnAudio_FormatTagFromSampleType(format.type));
  record.nChannels = static_cast<WORD>(format.channels);
  record.nSamplesPerSec = format.rate;
  record.nAvgBytesPerSec = format.rate * format.FrameBytes();
  record.nBlockAlign = static_cast<WORD>(format.FrameBytes());
  record.wBitsPerSample = static_cast<WORD>(QnAudio_BitsFromSampleType(format.type));
  return record;
}

}  // namespace

bool PeakReader::Start(const AudioSource& source) {
  source_ = source;
  format_ = RecordOf(source.format);
  return LibraryPath(source.name, &path_) && reader_.Open(source);
}

HRESULT PeakReader::Read(LONGLONG position, LONGLONG, void* buffer, LONG frames, DWORD* got) {
  *got = 0;
  if (position < 0) return QN_E_FILE_READ;
  if (qntool::InterruptSignal() != 0) return failure_ = QN_E_CANCELLED;
  constexpr LONGLONG kMostBytes = 1 << 30;
  const LONGLONG count =
      std::min({LONGLONG{frames}, GetLength() - position, kMostBytes / format_.nBlockAlign});
  if (count <= 0) return S_OK;
  if (!reader_.Read(static_cast<uint64_t>(position), buffer, static_cast<uint32_t>(count)))
    return failure_ = SystemStatus(QN_E_FILE_READ);
  *got = static_cast<DWORD>(count);
  return S_OK;
}

HRESULT PeakReader::GetName(WCHAR* buffer, LONG size, LONG full) {
  const size_t start = full ? 0 : path_.rfind(u'\\') + 1;
  if (size < 1) return E_INVALIDARG;
  buffer[path_.copy(buffer, static_cast<size_t>(size - 1), start)] = 0;
  return S_OK;
}

HRESULT CreatePeaks(PeakReader* reader, DWORD framesPerPeak, LONG flags, Peaks* peaks) {
  constexpr auto kNoTable = static_cast<DWORD>(-1);
  // A peak object cuts a longer name off, and its peak file would be another's.
  if (reader->Path().size() + sizeof(".qnk") > MAX_PATH && !(flags & QNAUDIOPEAK_MEMORYONLY))
    return QN_E_FILE_NAME;
  IQnAudioPeak* made = nullptr;
  const HRESULT result = QnAudioPeak_CreateInstance(&made, reader, reader->Path().c_str(), nullptr,
                                                    framesPerPeak, kNoTable, flags);
  peaks->reset(made);
  return result;
}

std::string PeakFileName(IQnAudioPeak* peaks) {
  WCHAR name[MAX_PATH] = {};
  if (peaks->GetPeakFileName(name, MAX_PATH) != S_OK) return std::string();
  return qn::PathToNative(name);
}

}  // namespace qnwave
