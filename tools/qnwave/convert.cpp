// qnwave convert: samples from any readable file to a new WAV, Wave64 or headerless file.
#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

#include "qn/settings/qnstatus.h"
#include "tools/common/options.h"
#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/interrupt.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"
#include "tools/qnwave/target.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    kContainerOption,
    {"type", "TYPE",
     "sample type of OUT (default: that of IN): u8, s16, s24, s32, f32, f64, or s8, s24in32,"
     " s16be, s24be, s32be, which few other programs read from a wave file"},
    {"gain", "DB", "multiply by a gain in dB; integer samples clip"},
    kDitherOption,
    kShapeOption,
    {"channels", "LIST",
     "the channels of IN, from 0, that make up OUT: 1,0 swaps a stereo file, 0,0 doubles the"
     " first; L and R stand for 0 and 1, - for silence"},
    {"raw-in", "TYPE,RATE,CHANNELS[,OFFSET]",
     "IN has no header: samples of this format from a byte offset on"},
    {"raw-out", nullptr, "write samples alone, without a header"},
    {"to-end", nullptr, "take all bytes from the first sample to the end of IN, whatever its header states"},
    kForceOption,
    kQuietOption,
};

struct Job {
  AudioSource source;
  Target target;
  ChannelMap map;
  float gain = 1.0f;
  DitherSettings dither;
};

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

// Converts block by block. Two threads do so side by side, each with its own reader and the blocks as they
// come: while the system copies the one's block the other one's is converted.
class BlockRunner {
 public:
  BlockRunner(const Job& job, AudioOutput* output)
      : job_(job),
        output_(*output),
        blockFrames_(std::max(
            1u, kBlockBytes / std::max(job.source.format.FrameBytes(), job.target.format.FrameBytes()))) {}

  // Returns when all is written, or after a failure or an interrupt.
  void Run(Progress* progress);

  // The first failure and the file that it is about.
  HRESULT Status() const { return failure_; }
  const std::string& FailedFile() const { return failedFile_; }

  uint64_t NotNumbers() const { return notNumbers_; }

 private:
  void Work(Progress* progress);
  void WorkBlocks(Progress* progress);
  void Fail(const std::string& file, HRESULT status);

  const Job& job_;
  AudioOutput& output_;
  const uint32_t blockFrames_;
  std::atomic<uint64_t> next_{0};
  std::atomic<uint64_t> done_{0};
  std::atomic<uint64_t> notNumbers_{0};
  std::atomic<HRESULT> failure_{S_OK};
  std::string failedFile_;
};

void BlockRunner::Run(Progress* progress) {
  std::thread helper;
  const bool isLong = job_.source.frames > 4 * uint64_t{blockFrames_};
  // Dither goes on from block to block.
  if (isLong && job_.dither.IsNone() && std::thread::hardware_concurrency() > 1) {
    try {
      helper = std::thread([this] { Work(nullptr); });
    } catch (const std::system_error&) {
      // One thread does the work too.
    }
  }
  Work(progress);
  if (helper.joinable()) helper.join();
}

void BlockRunner::Work(Progress* progress) try { WorkBlocks(progress); } catch (const std::bad_alloc&) {
  Fail(job_.source.name, E_OUTOFMEMORY);
}

void BlockRunner::Fail(const std::string& file, HRESULT status) {
  HRESULT none = S_OK;
  if (failure_.compare_exchange_strong(none, status)) failedFile_ = file;
}

void BlockRunner::WorkBlocks(Progress* progress) {
  AudioReader reader;
  if (!reader.Open(job_.source)) return Fail(job_.source.name, QN_E_FILE_OPEN);
  SampleConverter converter(job_.source.format, job_.target.format.type, job_.map, job_.gain, blockFrames_,
                            job_.dither);
  BlockBuffer in(size_t{blockFrames_} * job_.source.format.FrameBytes());
  BlockBuffer out(converter.IsCopy() ? 0 : size_t{blockFrames_} * job_.target.format.FrameBytes());
  const uint64_t total = job_.source.frames;
  while (failure_ == S_OK && InterruptSignal() == 0) {
    const uint64_t first = next_.fetch_add(blockFrames_);
    if (first >= total) break;
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(blockFrames_, total - first));
    void* block = in.At(job_.source.OffsetOf(first));
    if (!reader.Read(first, block, count)) return Fail(job_.source.name, SystemStatus(QN_E_FILE_READ));
    if (!converter.IsCopy()) {
      void* const converted = out.At(output_.OffsetOf(first));
      converter.Convert(converted, block, count);
      block = converted;
    }
    const HRESULT status = output_.Write(first, block, count);
    if (status != S_OK) return Fail(job_.target.name, status);
    done_ += count;
    if (progress) progress->Show(done_);
  }
  notNumbers_ += converter.NotNumbers();
}

// What does not depend on the input: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  const auto mistaken = [](const std::string& mistake) {
    ReportUsage("convert", mistake);
    return false;
  };
  std::string mistake;
  if (!ChooseContainer("convert", arguments, &job->target) ||
      !ChooseType("convert", arguments, &job->target) || !ChooseDither("convert", arguments, &job->dither))
    return false;
  if (const auto gain = arguments.Value("gain")) {
    const auto factor = ParseGain(*gain, &mistake);
    if (!factor) return mistaken(mistake);
    job->gain = static_cast<float>(*factor);
  }
  if (const auto channels = arguments.Value("channels")) {
    const auto map = ParseChannelMap(*channels, true, &mistake);
    if (!map) return mistaken(mistake);
    job->map = *map;
  }
  return true;
}

OpenResult OpenSource(const Arguments& arguments, const std::string& name, AudioSource* source,
                      int* exitCode) {
  const auto raw = arguments.Value("raw-in");
  if (!raw) return OpenAudio(name, arguments.Has("to-end"), source);
  std::string mistake;
  uint64_t offset = 0;
  const auto format = ParseAudioFormat(*raw, &offset, &mistake);
  if (format) return OpenRawAudio(name, *format, offset, source);
  ReportUsage("convert", mistake);
  *exitCode = kExitUsage;
  return OpenResult::kFailed;
}

// The output's format and length from the input's; false with the reason reported.
bool CompleteFormat(Job* job) {
  const AudioFormat& in = job->source.format;
  AudioFormat& out = job->target.format;
  const bool headerless = job->target.container == Container::kUnknown;
  if (out.type == QNST_NONE) out.type = headerless ? in.type : FindSampleType(in.type)->common;
  out.rate = in.rate;
  out.mask = job->map.empty() ? in.mask : 0;
  out.channels = job->map.empty() ? in.channels : static_cast<uint32_t>(job->map.size());
  if (!HasChannels(job->source, job->map)) return false;
  if (out.FrameBytes() > kMostFrameBytes) {
    ReportError(job->source.name, QN_E_MEDIA_TYPE,
                {messages::FrameTooLarge, {Message::Bytes(kMostFrameBytes)}});
    return false;
  }
  job->target.frames = job->source.frames;
  return CheckSize(job->target);
}

// Carries a job out under a progress bar; returns an exit code.
int Convert(const Job& job, bool overwrite, bool quiet) {
  const auto& [name, container, format, frames] = job.target;
  WatchInterrupts();
  AudioOutput output;
  if (!output.Create(name, container, format, frames, overwrite)) return kExitFailed;
  BlockRunner runner(job, &output);
  if (frames != 0) {
    Progress progress(name, frames, quiet);
    runner.Run(&progress);
  }
  if (InterruptSignal() != 0) return ReportInterrupt(job.target.name);
  if (runner.Status() != S_OK) {
    ReportError(runner.FailedFile(), runner.Status());
    return kExitFailed;
  }
  if (!output.Commit()) return kExitFailed;
  WarnOfSamples(name, runner.NotNumbers());
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 2) {
    ReportUsage("convert", "two files are needed: IN and OUT");
    return kExitUsage;
  }
  const bool quiet = arguments.Has("quiet");
  Job job;
  job.target.name = arguments.Operands()[1];
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  int exitCode = kExitFailed;
  const OpenResult opened = OpenSource(arguments, arguments.Operands()[0], &job.source, &exitCode);
  if (opened != OpenResult::kOk) return opened == OpenResult::kDamaged ? kExitDamaged : exitCode;
  if (!CompleteFormat(&job)) return kExitFailed;
  exitCode = CheckDither("convert", arguments, job.dither, job.target);
  if (exitCode != kExitOk) return exitCode;
  exitCode = Convert(job, arguments.Has("force"), quiet);
  if (exitCode == kExitOk) TellWritten(job.target, quiet);
  return exitCode;
}

}  // namespace

const Command kConvertCommand = {
    "convert",
    "IN OUT",
    "Write samples to a new WAV, Wave64 or headerless file.",
    "IN is a WAV, Wave64 or AIFF file of linear samples, or headerless. OUT is written beside its place under"
    " another name and moved there when it is whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
