#include "tools/qnwave/conversion.h"

#include <algorithm>
#include <vector>

#include "qn/settings/qnstatus.h"
#include "tools/qnwave/front_filter.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_reader.h"
#include "tools/qnwave/sample_writer.h"

namespace qnwave {
namespace {

// Bytes of the larger side of a block: small enough for the processor's second-level cache, large enough that
// the calls do not count.
constexpr uint32_t kBlockBytes = 512 << 10;

// Room for a block at an address that lies to a cache line as the block's offset in its file does: the system
// copies such blocks to and from its cache a third faster.
class BlockBuffer {
 public:
  explicit BlockBuffer(size_t bytes) : room_(bytes + 2 * kLine) {}

  void* At(uint64_t fileOffset) {
    const auto start = reinterpret_cast<uintptr_t>(room_.data());
    return room_.data() + (kLine - start % kLine) + fileOffset % kLine;
  }

 private:
  static constexpr size_t kLine = 64;
  std::vector<uint8_t> room_;
};

// The frames of the source that a thread takes at once. Pieces of a resampled file begin where the phases of
// the whole stream begin again, and are long enough that their run-ups do not count.
uint64_t BlockFramesOf(const ConversionJob& job) {
  if (job.rate.IsNone()) {
    const uint32_t bytes = std::max(job.source.format.FrameBytes(), job.target.format.FrameBytes());
    return std::max(1u, kBlockBytes / bytes);
  }
  constexpr uint64_t kPieceFrames = 1 << 19;
  return job.rate.WholeTurns(std::max(kPieceFrames, 16 * job.rate.RunUp()));
}

// The frames of the source that go through the resampler at once, in blocks that fit the processor's cache.
// The FIR low-pass takes half its taps, or all, at the cost of one.
uint32_t ReadFrames(const RateChange& rate, uint32_t frameBytes) {
  constexpr uint32_t kCallBytes = 128 << 10, kMostBytes = 8 << 20;  // of four such blocks
  const uint32_t frames = std::max(1u, kCallBytes / frameBytes / rate.Oversampling());
  if (!rate.hasFir) return frames;
  const uint32_t piece = (rate.Taps() + 1) / rate.Oversampling();
  const uint32_t wholes = std::max(1u, frames / piece) * piece;
  return std::clamp(kMostBytes / frameBytes, 1u, wholes);
}

// Floats hold the samples of these exactly.
bool FitsFloat(QNSAMPLETYPE type) {
  return type == QNST_FLOAT32 || (!IsFloat(type) && QnAudio_BitsFromSampleType(type) <= 24);
}

}  // namespace

// Resamples pieces of a file, each as a stream of its own that runs up in front of its piece. So they come
// out as those of one stream, of which two threads make two pieces at once, and a file comes out the same
// with one thread.
class Conversion::PieceResampler {
 public:
  explicit PieceResampler(Conversion* whole)
      : whole_(*whole),
        job_(whole->job_),
        type_(FitsFloat(job_.source.format.type) && FitsFloat(job_.target.format.type) ? QNST_FLOAT32
                                                                                       : QNST_FLOAT64),
        sampleBytes_(static_cast<uint32_t>(QnAudio_BytesFromSampleType(type_))),
        frameBytes_(job_.target.format.channels * sampleBytes_),
        times_(job_.rate.Oversampling()),
        readFrames_(ReadFrames(job_.rate, frameBytes_)),
        callFrames_(readFrames_ * times_),
        reader_(job_.source, type_, job_.map, job_.gain, readFrames_),
        resampler_(job_.rate, type_, job_.target.format.channels, callFrames_),
        writer_(&whole->output_, job_.target.format, type_, callFrames_, job_.dither),
        read_(size_t{readFrames_} * frameBytes_),
        in_(size_t{job_.rate.hasFir ? callFrames_ : 0} * frameBytes_),
        out_(size_t{callFrames_} * frameBytes_) {}

  // False after a failure, which the run knows then.
  bool Open();

  // Writes what comes of a piece of the source; false after a failure, which the run knows then, or when that
  // has ended.
  bool Write(uint64_t first, uint64_t frames);

  // As those of Conversion, so far.
  uint64_t NotNumbers() const { return notNumbers_ + writer_.NotNumbers(); }
  uint64_t Clipped() const { return writer_.Clipped(); }

 private:
  bool Fail(const std::string& file, HRESULT status) {
    whole_.runner_.Fail(file, status);
    return false;
  }
  bool Read(uint64_t at, uint32_t frames);
  bool Resample(uint32_t frames);
  bool Keep(int64_t at, uint32_t frames);

  Conversion& whole_;
  const ConversionJob& job_;
  const QNSAMPLETYPE type_;
  const uint32_t sampleBytes_;
  const uint32_t frameBytes_;
  const uint32_t times_;
  const uint32_t readFrames_;
  const uint32_t callFrames_;
  SampleReader reader_;
  std::unique_ptr<FrontFilter> filter_;
  Resampler resampler_;
  SampleWriter writer_;
  std::vector<uint8_t> read_;
  std::vector<uint8_t> in_;  // behind the filter, if there is one
  std::vector<uint8_t> out_;
  uint64_t first_ = 0;  // of the piece, in frames of the source, and where the next one begins
  uint64_t next_ = 0;
  int64_t begin_ = 0;  // the same in frames of the output
  int64_t end_ = 0;
  int64_t at_ = 0;     // the output frame that the next one of the resampler stands for
  uint32_t late_ = 0;  // the frames of the filter that are still in front of the source's
  uint64_t notNumbers_ = 0;
};

bool Conversion::PieceResampler::Open() {
  if (!reader_.Open()) return Fail(job_.source.name, QN_E_FILE_OPEN);
  if (job_.rate.hasFir) filter_ = FrontFilter::Make(job_.rate, type_, job_.target.format.channels);
  return !job_.rate.hasFir || filter_ || Fail(job_.source.name, E_OUTOFMEMORY);
}

// Reads frames of the source, behind whose end there is silence. What lies outside the piece is read for
// another one too, and counted there.
bool Conversion::PieceResampler::Read(uint64_t at, uint32_t frames) {
  const uint64_t end = std::min(at + frames, job_.source.frames);
  uint8_t* to = read_.data();
  for (uint64_t stop; at < end; at = stop) {
    stop = std::min(end, at < first_ ? first_ : at < next_ ? next_ : end);
    const auto count = static_cast<uint32_t>(stop - at);
    const uint64_t before = reader_.NotNumbers();
    if (!reader_.Read(at, to, count)) return Fail(job_.source.name, SystemStatus(QN_E_FILE_READ));
    if (at >= first_ && at < next_) notNumbers_ += reader_.NotNumbers() - before;
    to += size_t{count} * frameBytes_;
  }
  std::fill(to, read_.data() + size_t{frames} * frameBytes_, uint8_t{0});
  return true;
}

// Writes those of the frames that stand for output frames from `at` on that belong to the piece.
bool Conversion::PieceResampler::Keep(int64_t at, uint32_t frames) {
  const int64_t from = std::max(at, begin_);
  const int64_t to = std::min(at + frames, end_);
  if (from >= to) return true;
  const auto count = static_cast<uint32_t>(to - from);
  const HRESULT status = writer_.Write(static_cast<uint64_t>(from),
                                       out_.data() + static_cast<size_t>(from - at) * frameBytes_, count);
  if (status != S_OK) return Fail(job_.target.name, status);
  whole_.Done(count);
  return true;
}

// Sends the next frames of the source through the filter and the resampler, up to the end of the piece.
bool Conversion::PieceResampler::Resample(uint32_t frames) {
  if (filter_) filter_->Process(read_.data(), frames, in_.data());
  const uint8_t* const in = filter_ ? in_.data() : read_.data();
  const uint32_t count = frames * times_, early = std::min(late_, count);
  late_ -= early;
  uint32_t taken = 0, given = 0;
  for (uint32_t used = early; used < count && at_ < end_; used += taken) {
    if (!whole_.runner_.GoesOn()) return false;
    const HRESULT status = resampler_.Process(in + size_t{used} * frameBytes_, count - used, &taken,
                                              out_.data(), callFrames_, &given);
    if (status != S_OK || taken + given == 0) return Fail(job_.source.name, status != S_OK ? status : E_FAIL);
    if (!Keep(at_, given)) return false;
    at_ += given;
  }
  return true;
}

bool Conversion::PieceResampler::Write(uint64_t first, uint64_t frames) {
  const RateChange& rate = job_.rate;
  const uint64_t start = first - std::min(first, rate.RunUp());
  first_ = first;
  next_ = first + frames;
  begin_ = static_cast<int64_t>(rate.FramesAfter(first_));
  end_ = static_cast<int64_t>(rate.FramesAfter(next_));
  if (filter_) filter_->Start();
  const HRESULT status = resampler_.Start();
  if (status != S_OK) return Fail(job_.source.name, status);
  // What comes first is as late as the low-pass makes it.
  at_ = static_cast<int64_t>(rate.FramesAfter(start)) - rate.Delay();
  late_ = rate.Late();
  // The resampler looks up to half its taps ahead. Mostly nothing behind this is read.
  constexpr uint64_t kAhead = 32;
  const uint64_t last =
      start + rate.FramesBefore(static_cast<uint64_t>(end_ - at_)) + late_ / times_ + kAhead;
  uint64_t read = start;
  while (at_ < end_) {
    const uint64_t needed = read < last ? last - read : kAhead;
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(readFrames_, needed));
    if (!Read(read, count) || !Resample(count)) return false;
    read += count;
  }
  return true;
}

Conversion::Conversion(const ConversionJob& job, AudioOutput* output, Progress* progress)
    : job_(job),
      output_(*output),
      progress_(*progress),
      mainThread_(std::this_thread::get_id()),
      blockFrames_(BlockFramesOf(job)),
      runner_(job.source.frames, blockFrames_) {}

void Conversion::Run() {
  // Few blocks are not worth a thread. Dither goes on from block to block.
  const uint64_t fewFrames = job_.rate.IsNone() ? 4 * blockFrames_ : blockFrames_;
  runner_.Run(job_.source.frames > fewFrames && job_.dither.IsNone(), job_.source.name,
              [this] { job_.rate.IsNone() ? ConvertBlocks() : ResamplePieces(); });
}

void Conversion::Done(uint64_t frames) {
  done_ += frames;
  if (std::this_thread::get_id() == mainThread_) progress_.Show(done_);
}

void Conversion::ConvertBlocks() {
  AudioReader reader;
  if (!reader.Open(job_.source)) return runner_.Fail(job_.source.name, QN_E_FILE_OPEN);
  const auto mostFrames = static_cast<uint32_t>(blockFrames_);
  SampleConverter converter(job_.source.format, job_.target.format.type, job_.map, job_.gain, mostFrames,
                            job_.dither);
  BlockBuffer in(size_t{mostFrames} * job_.source.format.FrameBytes());
  BlockBuffer out(converter.IsCopy() ? 0 : size_t{mostFrames} * job_.target.format.FrameBytes());
  uint64_t first = 0, frames = 0;
  while (runner_.Next(&first, &frames)) {
    const auto count = static_cast<uint32_t>(frames);
    void* block = in.At(job_.source.OffsetOf(first));
    if (!reader.Read(first, block, count))
      return runner_.Fail(job_.source.name, SystemStatus(QN_E_FILE_READ));
    if (!converter.IsCopy()) {
      void* const converted = out.At(output_.OffsetOf(first));
      converter.Convert(converted, block, count);
      block = converted;
    }
    const HRESULT status = output_.Write(first, block, count);
    if (status != S_OK) return runner_.Fail(job_.target.name, status);
    Done(count);
  }
  notNumbers_ += converter.NotNumbers();
}

void Conversion::ResamplePieces() {
  PieceResampler pieces(this);
  if (!pieces.Open()) return;
  uint64_t first = 0, frames = 0;
  while (runner_.Next(&first, &frames)) {
    if (!pieces.Write(first, frames)) return;
  }
  notNumbers_ += pieces.NotNumbers();
  clipped_ += pieces.Clipped();
}

}  // namespace qnwave
