#include "tools/qnwave/waveform.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/qnwave/peak_reader.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

// Frames that are read between two looks at the progress: a second's work is many times that.
constexpr uint64_t kGroupFrames = 1 << 20;

// The most frames that one value of a request from the audio covers; the library's limit is twice that.
constexpr uint64_t kMostFramesPerValue = 1 << 16;

class WaveformReader {
 public:
  WaveformReader(const AudioSource& source, const WaveformRequest& request, Waveform* waveform)
      : source_(source), request_(request), waveform_(*waveform) {}

  HRESULT Read(bool quiet);

 private:
  bool OpenPeaks();
  void SetClipping(DWORD peakBits);
  HRESULT ReadPairs(uint64_t start, uint64_t frames, uint64_t values);
  HRESULT ReadFrames();
  HRESULT ReadColumns(uint32_t first, uint32_t count);
  bool ReadRms(uint32_t first, uint32_t count);
  void JoinColumns();

  // The first frame of a column.
  uint64_t ColumnStart(uint64_t column) const {
    const uint64_t columns = request_.columns;
    return request_.start + request_.frames / columns * column + request_.frames % columns * column / columns;
  }

  const AudioSource& source_;
  const WaveformRequest& request_;
  Waveform& waveform_;
  PeakReader reader_;
  Peaks peaks_;
  std::vector<Pair> pairs_;  // of all channels of the source
  AudioReader audio_;
  std::optional<SampleConverter> toFloat_;
};

// What is at hand and fine enough: a valid peak file, which may be written to meanwhile, or the audio.
bool WaveformReader::OpenPeaks() {
  constexpr LONG kLookOnly = QNAUDIOPEAK_READONLY | QNAUDIOPEAK_SHAREWRITE;
  DWORD framesPerPeak = 0;
  DWORD type = 0;
  if (CreatePeaks(&reader_, 0, kLookOnly, &peaks_) == S_OK &&
      peaks_->GetInfo(nullptr, &framesPerPeak, &type, nullptr, nullptr) == S_OK &&
      request_.frames / request_.columns >= framesPerPeak) {
    waveform_.peakFile = PeakFileName(peaks_.get());
    SetClipping(static_cast<DWORD>(QnAudio_BitsFromSampleType(static_cast<QNSAMPLETYPE>(type))));
    return true;
  }
  SetClipping(0);
  return SUCCEEDED(CreatePeaks(&reader_, 0, QNAUDIOPEAK_MEMORYONLY, &peaks_));
}

void WaveformReader::SetClipping(DWORD peakBits) {
  if (IsFloat(source_.format.type) && peakBits == 0) {
    waveform_.clipLow = std::nextafter(-1.0f, -2.0f);
    waveform_.clipHigh = std::nextafter(1.0f, 2.0f);
    return;
  }
  // The bits of a float count for integers of as many.
  DWORD bits = std::min<DWORD>(static_cast<DWORD>(QnAudio_BitsFromSampleType(source_.format.type)), 24);
  if (peakBits != 0) bits = std::min(bits, peakBits);
  waveform_.clipHigh = 1 - std::ldexp(1.0f, 1 - static_cast<int>(bits));
}

// Values of a range for all channels, in pairs_.
HRESULT WaveformReader::ReadPairs(uint64_t start, uint64_t frames, uint64_t values) {
  pairs_.resize(values * source_.format.channels);
  DWORD got = 0;
  const HRESULT status = peaks_->GetPeaksEx(static_cast<LONGLONG>(start), static_cast<LONGLONG>(frames),
                                            QNST_FLOAT32, pairs_.data(), static_cast<LONG>(values), &got);
  if (FAILED(reader_.Failure())) return reader_.Failure();
  if (FAILED(status)) return status;
  if (got == 0) return QN_E_FILE_READ;
  std::fill(pairs_.begin() + static_cast<ptrdiff_t>(size_t{got} * source_.format.channels), pairs_.end(),
            Pair{1, -1});
  return S_OK;
}

HRESULT WaveformReader::ReadFrames() {
  const uint64_t first = request_.start - (request_.start > 0 ? 1 : 0);
  const uint64_t end = std::min(request_.start + request_.frames + 1, source_.frames);
  const HRESULT status = ReadPairs(first, end - first, end - first);
  if (status != S_OK) return status;
  waveform_.isOfFrames = true;
  waveform_.firstFrame = first;
  for (size_t lane = 0; lane < waveform_.lanes.size(); ++lane) {
    for (size_t i = static_cast<size_t>(request_.channels[lane]); i < pairs_.size();
         i += source_.format.channels) {
      waveform_.lanes[lane].pairs.push_back(pairs_[i]);
    }
  }
  return S_OK;
}

// Columns wider than one value may be are merged from several.
HRESULT WaveformReader::ReadColumns(uint32_t first, uint32_t count) {
  const uint64_t start = ColumnStart(first);
  const uint64_t frames = ColumnStart(first + count) - start;
  const uint64_t parts = waveform_.peakFile.empty() ? frames / count / kMostFramesPerValue + 1 : 1;
  const HRESULT status = ReadPairs(start, frames, count * parts);
  if (status != S_OK) return status;
  for (size_t lane = 0; lane < waveform_.lanes.size(); ++lane) {
    const Pair* next = pairs_.data() + request_.channels[lane];
    for (uint32_t column = first; column < first + count; ++column) {
      Pair merged = {FLT_MAX, -FLT_MAX};
      for (uint64_t part = 0; part < parts; ++part, next += source_.format.channels) {
        if (next->IsEmpty()) continue;
        merged = {std::min(merged.low, next->low), std::max(merged.high, next->high)};
      }
      waveform_.lanes[lane].pairs[column] = merged;
    }
  }
  return S_OK;
}

bool WaveformReader::ReadRms(uint32_t first, uint32_t count) {
  constexpr uint32_t kBlockFrames = 4096;
  const size_t channels = waveform_.lanes.size();
  if (!toFloat_) toFloat_.emplace(source_.format, QNST_FLOAT32, request_.channels, 1.0f, kBlockFrames);
  std::vector<uint8_t> bytes(size_t{kBlockFrames} * source_.format.FrameBytes());
  std::vector<float> block(kBlockFrames * channels);
  std::vector<double> sums(channels);
  for (uint32_t column = first; column < first + count; ++column) {
    std::fill(sums.begin(), sums.end(), 0);
    const uint64_t start = ColumnStart(column);
    const uint64_t end = std::max(ColumnStart(column + 1), start + 1);
    for (uint64_t at = start; at < end; at += kBlockFrames) {
      const auto frames = static_cast<uint32_t>(std::min<uint64_t>(kBlockFrames, end - at));
      if (!audio_.Read(at, bytes.data(), frames)) return false;
      toFloat_->Convert(block.data(), bytes.data(), frames);
      for (size_t i = 0; i < frames * channels; ++i) {
        const double sample = block[i];
        if (std::isfinite(sample)) sums[i % channels] += sample * sample;
      }
    }
    for (size_t lane = 0; lane < channels; ++lane) {
      waveform_.lanes[lane].rms[column] =
          static_cast<float>(std::sqrt(sums[lane] / static_cast<double>(end - start)));
    }
  }
  return true;
}

// Columns from separate requests do not overlap as those of one do: each reaches to the one before it.
void WaveformReader::JoinColumns() {
  for (Lane& lane : waveform_.lanes) {
    Pair before = {FLT_MAX, -FLT_MAX};
    for (Pair& pair : lane.pairs) {
      const Pair own = pair;
      if (!own.IsEmpty() && !before.IsEmpty())
        pair = {std::min(own.low, before.high), std::max(own.high, before.low)};
      before = own;
    }
  }
}

HRESULT WaveformReader::Read(bool quiet) {
  if (!reader_.Start(source_) || !OpenPeaks()) return E_FAIL;
  waveform_.lanes.resize(request_.channels.size());
  if (request_.frames <= request_.columns) return ReadFrames();
  for (Lane& lane : waveform_.lanes) {
    lane.pairs.resize(request_.columns);
    if (request_.withRms) lane.rms.resize(request_.columns);
  }
  if (request_.withRms && !audio_.Open(source_)) return QN_E_FILE_OPEN;
  const bool fromFile = !waveform_.peakFile.empty();
  HRESULT status = fromFile ? ReadColumns(0, request_.columns) : S_OK;
  const uint64_t perColumn = std::max<uint64_t>(request_.frames / request_.columns, 1);
  const auto group = static_cast<uint32_t>(std::max<uint64_t>(kGroupFrames / perColumn, 1));
  Progress progress(source_.name, request_.columns, quiet || (fromFile && !request_.withRms));
  for (uint32_t first = 0; first < request_.columns && status == S_OK; first += group) {
    if (qntool::InterruptSignal() != 0) return QN_E_CANCELLED;
    const uint32_t count = std::min(group, request_.columns - first);
    if (!fromFile) status = ReadColumns(first, count);
    if (status == S_OK && request_.withRms && !ReadRms(first, count)) status = SystemStatus(QN_E_FILE_READ);
    progress.Show(first + count);
  }
  JoinColumns();
  return status;
}

}  // namespace

bool ReadWaveform(const AudioSource& source, const WaveformRequest& request, bool quiet, Waveform* waveform) {
  WaveformReader reader(source, request, waveform);
  const HRESULT status = reader.Read(quiet);
  if (qntool::InterruptSignal() == 0 && status != S_OK) ReportError(source.name, status);
  return qntool::InterruptSignal() == 0 && status == S_OK;
}

}  // namespace qnwave
