#include "tools/qnwave/front_filter.h"

#include <algorithm>

namespace qnwave {
namespace {

struct Unprepare {
  void operator()(tQNFFT* fft) const { QnSig_UnprepareFFT(fft); }
};
using Fft = std::unique_ptr<tQNFFT, Unprepare>;

// The product of blocks' spectra and that of the taps, added up. Frames with silent ones between them have
// the spectrum of the frames alone, twice over; so only that is computed. This, and floats where they will
// do, takes a third of the time of CQnFIR, which designs the taps.
template <class T>
class BlockFilter final : public FrontFilter {
 public:
  explicit BlockFilter(const RateChange& change, uint32_t channels)
      : times_(change.Oversampling()), channels_(channels) {}

  bool Design(const RateChange& change) {
    CQnFIR taps;
    const double corner = change.Corner() / (static_cast<double>(change.from) * times_);
    if (taps.Design(QNFIR_LOWPASS, QNFIR_BLACKMANHARRIS, change.Taps(), corner, corner, 1, 0) != S_OK)
      return false;
    factors_.assign(taps.spectrum, taps.spectrum + taps.fftSize);
    before_.resize(factors_.size() / times_);
    after_.resize(factors_.size());
    pieceFrames_ = static_cast<uint32_t>((factors_.size() - taps.taps + 1) / times_);
    overlaps_.assign(channels_, std::vector<double>(taps.taps - 1));
    forward_.reset(QnSig_PrepareFFT(0, static_cast<DWORD>(before_.size()), nullptr, true));
    inverse_.reset(QnSig_PrepareFFT(0, static_cast<DWORD>(after_.size()), nullptr, true));
    return forward_ && inverse_;
  }

  void Start() override {
    for (std::vector<double>& overlap : overlaps_) std::fill(overlap.begin(), overlap.end(), 0.0);
  }

  void Process(const void* in, uint32_t frames, void* out) override {
    for (uint32_t done = 0, piece; done < frames; done += piece) {
      piece = std::min(frames - done, pieceFrames_);
      for (uint32_t c = 0; c < channels_; ++c)
        ProcessPiece(static_cast<const T*>(in) + size_t{done} * channels_ + c, piece,
                     static_cast<T*>(out) + size_t{done} * times_ * channels_ + c, &overlaps_[c]);
    }
  }

 private:
  // Of one channel.
  void ProcessPiece(const T* in, uint32_t frames, T* out, std::vector<double>* overlap) {
    const size_t channels = channels_;
    for (size_t i = 0; i < frames; ++i) before_[i] = in[i * channels];
    std::fill(before_.begin() + frames, before_.end(), 0.0);
    QnSig_FFT(forward_.get(), before_.data(), static_cast<DWORD>(before_.size()), 1);
    Multiply();
    QnSig_InverseFFT(inverse_.get(), after_.data(), static_cast<DWORD>(after_.size()), 1);
    const size_t left = overlap->size(), count = size_t{frames} * times_;
    for (size_t i = 0; i < left; ++i) after_[i] += (*overlap)[i];
    std::copy_n(after_.data() + count, left, overlap->data());
    for (size_t i = 0; i < count; ++i) out[i * channels] = static_cast<T>(after_[i]);
  }

  void Multiply() {
    const size_t values = before_.size();
    const double* const x = before_.data();
    double* const y = after_.data();
    std::copy_n(x, values, y);
    if (times_ == 2) {
      y[1] = x[0];
      y[values] = x[1];
      y[values + 1] = 0;
      for (size_t i = 2; i < values; i += 2) {
        y[2 * values - i] = x[i];
        y[2 * values - i + 1] = -x[i + 1];
      }
    }
    fnConvolution(nullptr, y, static_cast<DWORD>(after_.size()), factors_.data());
  }

  const uint32_t times_;
  const uint32_t channels_;
  uint32_t pieceFrames_ = 0;
  std::vector<double> factors_, before_, after_;
  std::vector<std::vector<double>> overlaps_;
  Fft forward_, inverse_;
};

template <class T>
std::unique_ptr<FrontFilter> MakeOf(const RateChange& change, uint32_t channels) {
  auto filter = std::make_unique<BlockFilter<T>>(change, channels);
  if (!filter->Design(change)) return nullptr;
  return filter;
}

}  // namespace

std::unique_ptr<FrontFilter> FrontFilter::Make(const RateChange& change, QNSAMPLETYPE type,
                                               uint32_t channels) {
  return type == QNST_FLOAT32 ? MakeOf<float>(change, channels) : MakeOf<double>(change, channels);
}

}  // namespace qnwave
