#include "tools/qnwave/spectrogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <numbers>
#include <numeric>
#include <optional>

#include "qn/dsp/qnperf.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

constexpr SpectrumWindow kWindows[] = {{"hann", {0.5, -0.5, 0}},
                                       {"hamming", {0.54, -0.46, 0}},
                                       {"blackman", {0.42, -0.5, 0.08}},
                                       {"rectangular", {1, 0, 0}}};

// Frames that are held beside those of a transform, and the bytes that are read at once.
constexpr uint32_t kBlockFrames = 1 << 15;
constexpr size_t kReadBytes = 8 << 20;

// From here on the transforms of a column are so many that half overlapping says as much.
constexpr double kManyTransforms = 8;

struct FreeTransform {
  void operator()(void* transform) const { QnPerfsFFTFree_R_64f(transform); }
};

class SpectrumReader {
 public:
  SpectrumReader(const AudioSource& source, const SpectrumRequest& request, const FrequencyScale& scale,
                 Spectrogram* spectrogram)
      : source_(source), request_(request), size_(request.transform), spectrogram_(*spectrogram) {
    PlaceRows(scale);
  }

  HRESULT Read(bool quiet);

 private:
  HRESULT Prepare();
  void PlaceRows(const FrequencyScale& scale);
  HRESULT Load(int64_t first);
  HRESULT AddTransform(int64_t first);
  HRESULT ReadColumn(uint32_t column);
  void FillColumn(size_t lane, uint32_t column, double scale);
  double Decibels(double power) const;

  // Bins of a row: the first one and how far behind it the row is, or the last one of several.
  struct Row {
    size_t first;
    size_t last;
    double fraction;
  };

  const AudioSource& source_;
  const SpectrumRequest& request_;
  const uint32_t size_;
  Spectrogram& spectrogram_;
  std::vector<Row> rows_;
  std::vector<double> window_;
  double fullScale_ = 0;  // the power of a sine of full scale
  std::unique_ptr<void, FreeTransform> transform_;
  std::vector<BYTE> work_;
  std::vector<double> data_;
  std::vector<std::vector<double>> powers_;  // of a column, by lane and bin
  std::vector<double> decibels_;
  // Frames from loaded_ on, also those before the file and behind it, which are silent.
  AudioReader audio_;
  std::optional<SampleConverter> converter_;
  uint32_t readFrames_ = 0;
  std::vector<uint8_t> bytes_;
  std::vector<double> unmixed_;  // all channels of what is mixed
  std::vector<double> block_;    // the lanes
  int64_t loaded_ = INT64_MIN;
};

void SpectrumReader::PlaceRows(const FrequencyScale& scale) {
  const double perBin = static_cast<double>(source_.format.rate) / size_;
  const size_t bins = size_ / 2;
  for (uint32_t row = 0; row < request_.rows; ++row) {
    const double rows = request_.rows;
    const double low = scale.At((rows - row - 1) / rows) / perBin;
    const double high = scale.At((rows - row) / rows) / perBin;
    const auto first = static_cast<size_t>(std::ceil(low));
    const auto last = std::min(static_cast<size_t>(high), bins);
    const double middle = (low + high) / 2;
    if (high - low >= 1)
      rows_.push_back({first, last, 0});
    else
      rows_.push_back({std::min(static_cast<size_t>(middle), bins - 1), 0, middle - std::floor(middle)});
  }
}

HRESULT SpectrumReader::Prepare() {
  if (!audio_.Open(source_)) return SystemStatus(QN_E_FILE_OPEN);
  const size_t channels = request_.channels.size();
  const size_t lanes = request_.isMixed ? 1 : channels;
  const size_t frameBytes = std::max<size_t>(source_.format.FrameBytes(), channels * sizeof(double));
  readFrames_ = static_cast<uint32_t>(std::clamp<size_t>(kReadBytes / frameBytes, 1, kBlockFrames));
  converter_.emplace(source_.format, QNST_FLOAT64, request_.channels, 1.0f, readFrames_);
  bytes_.resize(size_t{readFrames_} * source_.format.FrameBytes());
  if (request_.isMixed) unmixed_.resize(readFrames_ * channels);
  block_.resize((size_t{kBlockFrames} + size_) * lanes);
  void* transform = nullptr;
  LONG workSize = 0;
  const HRESULT status = QnPerfsFFTInitAlloc_R_64f(&transform, std::countr_zero(size_),
                                                   QNPERF_FFT_NODIV_BY_ANY, QNPERF_HINT_NONE);
  transform_.reset(transform);
  if (FAILED(status)) return status;
  const HRESULT told = QnPerfsFFTGetBufSize_R_64f(transform, &workSize);
  if (FAILED(told)) return told;
  work_.resize(static_cast<size_t>(workSize));
  data_.resize(size_);
  double sum = 0;
  for (uint32_t i = 0; i < size_; ++i) {
    const double turn = 2 * std::numbers::pi * i / size_;
    const auto& terms = request_.window->terms;
    window_.push_back(terms[0] + terms[1] * std::cos(turn) + terms[2] * std::cos(2 * turn));
    sum += window_.back();
  }
  fullScale_ = sum * sum / 4;
  powers_.assign(lanes, std::vector<double>(size_ / 2 + 1));
  decibels_.resize(size_ / 2 + 1);
  spectrogram_.assign(lanes, std::vector<uint8_t>(size_t{request_.rows} * request_.columns));
  return S_OK;
}

HRESULT SpectrumReader::Load(int64_t first) {
  const size_t lanes = powers_.size();
  const auto end = first + static_cast<int64_t>(block_.size() / lanes);
  const auto total = static_cast<int64_t>(source_.frames);
  std::fill(block_.begin(), block_.end(), 0.0);
  loaded_ = first;
  for (int64_t at = std::max<int64_t>(first, 0); at < std::min(end, total); at += readFrames_) {
    const auto count = static_cast<uint32_t>(std::min<int64_t>(readFrames_, std::min(end, total) - at));
    if (!audio_.Read(static_cast<uint64_t>(at), bytes_.data(), count)) return SystemStatus(QN_E_FILE_READ);
    const AudioFormat& format = source_.format;
    SilenceNotNumbers(bytes_.data(), size_t{count} * format.channels, format.type);
    double* const place = block_.data() + static_cast<size_t>(at - first) * lanes;
    if (!request_.isMixed) {
      converter_->Convert(place, bytes_.data(), count);
      continue;
    }
    converter_->Convert(unmixed_.data(), bytes_.data(), count);
    const size_t channels = request_.channels.size();
    for (size_t i = 0; i < count; ++i) {
      const double* const frame = unmixed_.data() + i * channels;
      place[i] = std::accumulate(frame, frame + channels, 0.0) / static_cast<double>(channels);
    }
  }
  return S_OK;
}

HRESULT SpectrumReader::AddTransform(int64_t first) {
  const size_t lanes = powers_.size();
  if (first < loaded_ || first > loaded_ + int64_t{kBlockFrames}) {
    const HRESULT status = Load(first);
    if (status != S_OK) return status;
  }
  const double* const samples = block_.data() + static_cast<size_t>(first - loaded_) * lanes;
  for (size_t lane = 0; lane < lanes; ++lane) {
    for (size_t i = 0; i < size_; ++i) data_[i] = samples[i * lanes + lane] * window_[i];
    const HRESULT status = QnPerfsFFTFwd_RToPerm_64f_I(data_.data(), transform_.get(), work_.data());
    if (FAILED(status)) return status;
    const auto add = [&, &powers = powers_[lane]](size_t bin, double power) {
      powers[bin] = request_.isOfLoudest ? std::max(powers[bin], power) : powers[bin] + power;
    };
    add(0, data_[0] * data_[0]);
    add(size_ / 2, data_[1] * data_[1]);
    for (size_t bin = 1; bin < size_ / 2; ++bin)
      add(bin, data_[2 * bin] * data_[2 * bin] + data_[2 * bin + 1] * data_[2 * bin + 1]);
  }
  return S_OK;
}

void SpectrumReader::FillColumn(size_t lane, uint32_t column, double scale) {
  constexpr double kSilence = 1e-30;
  std::transform(powers_[lane].begin(), powers_[lane].end(), decibels_.begin(),
                 [&](double power) { return 10 * std::log10(std::max(kSilence, power * scale)); });
  for (uint32_t row = 0; row < request_.rows; ++row) {
    const auto& [first, last, fraction] = rows_[row];
    const double level = last > 0 ? *std::max_element(&decibels_[first], &decibels_[last] + 1)
                                  : decibels_[first] + (decibels_[first + 1] - decibels_[first]) * fraction;
    spectrogram_[lane][size_t{row} * request_.columns + column] =
        static_cast<uint8_t>(std::lround(std::clamp(1 + level / request_.range, 0.0, 1.0) * 255));
  }
}

HRESULT SpectrumReader::ReadColumn(uint32_t column) {
  const double width = static_cast<double>(request_.frames) / request_.columns;
  double hop = size_ * (1 - request_.overlap);
  if (width > hop * kManyTransforms) hop = std::max(hop, size_ / 2.0);
  const double count = std::max(std::ceil(width / hop), 1.0);
  for (auto& powers : powers_) std::fill(powers.begin(), powers.end(), 0.0);
  for (double i = 0; i < count; ++i) {
    if (qntool::InterruptSignal() != 0) return QN_E_CANCELLED;
    const double middle = width * (column + (i + 0.5) / count) - size_ / 2.0;
    const HRESULT status =
        AddTransform(static_cast<int64_t>(request_.start) + static_cast<int64_t>(std::floor(middle)));
    if (status != S_OK) return status;
  }
  const double transforms = request_.isOfLoudest ? 1 : count;
  for (size_t lane = 0; lane < powers_.size(); ++lane)
    FillColumn(lane, column, 1 / (transforms * fullScale_));
  return S_OK;
}

HRESULT SpectrumReader::Read(bool quiet) {
  HRESULT status = Prepare();
  Progress progress(source_.name, request_.columns, quiet);
  for (uint32_t column = 0; column < request_.columns && status == S_OK; ++column) {
    status = ReadColumn(column);
    progress.Show(column + 1);
  }
  return status;
}

}  // namespace

const SpectrumWindow* FindSpectrumWindow(std::string_view name) {
  return qntool::FindByName(kWindows, name);
}

std::string SpectrumWindowNames() {
  return qntool::NamesOf(kWindows);
}

bool ComputeSpectrogram(const AudioSource& source, const SpectrumRequest& request,
                        const FrequencyScale& scale, bool quiet, Spectrogram* spectrogram) {
  const HRESULT status = SpectrumReader(source, request, scale, spectrogram).Read(quiet);
  if (qntool::InterruptSignal() == 0 && status != S_OK) ReportError(source.name, status);
  return status == S_OK;
}

}  // namespace qnwave
