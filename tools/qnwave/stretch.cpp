// qnwave stretch: a file faster or slower, at the same pitch.
#include <algorithm>
#include <cmath>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"
#include "tools/qnwave/sample_reader.h"
#include "tools/qnwave/sample_writer.h"
#include "tools/qnwave/stream_copy.h"
#include "tools/qnwave/stretcher.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"ratio", "R", "how many times as fast, 0.1 to 10: 2 makes OUT half as long, 0.5 twice as long"},
    {"type", "TYPE", "sample type of OUT (default: that of FILE), as for convert"},
    kDitherOption,
    kShapeOption,
    kContainerOption,
    kToEndOption,
    kForceOption,
    kQuietOption,
};

struct Job {
  AudioSource source;
  Target target;
  DitherSettings dither;
  double ratio = 0;
};

// The format and the length of OUT; false with the reason reported.
bool Complete(Job* job) {
  const AudioSource& source = job->source;
  if (source.format.channels > Stretcher::kMostChannels) {
    ReportError(source.name, QN_E_FILE_UNSUPPORTED,
                {messages::StretchChannels, {Message::Number(Stretcher::kMostChannels)}});
    return false;
  }
  if (!IsOtherFile(source, job->target.name)) return false;
  Target& target = job->target;
  const QNSAMPLETYPE asked = target.format.type;
  target.format = KeptFormat(source.format);
  if (asked != QNST_NONE) target.format.type = asked;
  target.frames =
      static_cast<uint64_t>(std::llround(std::min(static_cast<double>(source.frames) / job->ratio, 0x1p62)));
  return CheckSize(target);
}

// Carries a job out under a progress bar; an exit code.
int WriteStretched(const Job& job, bool overwrite, bool quiet) {
  const auto& [name, container, format, frames] = job.target;
  const AudioSource& source = job.source;
  WatchInterrupts();
  Stretcher stretcher(job.ratio, format.rate, format.channels);
  // Blocks of one length, so that none is too short for a splice.
  const uint64_t blocks = std::max<uint64_t>(1, source.frames / stretcher.BlockFrames());
  const auto edge = [blocks](uint64_t total, uint64_t block) {
    const long double share = static_cast<long double>(block) / blocks;
    return block == blocks ? total : static_cast<uint64_t>(total * share);
  };
  const auto mostIn = static_cast<uint32_t>(source.frames / blocks + 2);
  const auto mostOut = static_cast<uint32_t>(frames / blocks + 2);
  SampleReader reader(source, QNST_FLOAT64, {}, 1.0f, mostIn);
  AudioOutput output;
  if (!reader.Open() || !output.Create(name, container, format, frames, overwrite)) return kExitFailed;
  SampleWriter writer(&output, format, QNST_FLOAT64, mostOut, job.dither);
  std::vector<double> in(size_t{mostIn} * format.channels);
  std::vector<double> out(size_t{mostOut} * format.channels);
  std::optional<Progress> progress;
  progress.emplace(name, blocks, quiet);
  const auto fail = [&progress](const std::string& file, HRESULT status) {
    progress.reset();
    ReportError(file, status);
    return kExitFailed;
  };
  HRESULT status = stretcher.Open(mostIn, mostOut);
  if (status != S_OK) return fail(source.name, status);
  for (uint64_t block = 0; block < blocks && frames > 0; ++block) {
    if (InterruptSignal() != 0) {
      progress.reset();
      return ReportInterrupt(name);
    }
    const uint64_t from = edge(source.frames, block), to = edge(frames, block);
    const auto inFrames = static_cast<uint32_t>(edge(source.frames, block + 1) - from);
    const auto outFrames = static_cast<uint32_t>(edge(frames, block + 1) - to);
    if (!reader.Read(from, in.data(), inFrames)) return fail(source.name, SystemStatus(QN_E_FILE_READ));
    status = stretcher.Process(in.data(), inFrames, block + 1 == blocks, out.data(), outFrames);
    if (status != S_OK) return fail(source.name, status);
    status = writer.Write(to, out.data(), outFrames);
    if (status != S_OK) return fail(name, status);
    progress->Show(block + 1);
  }
  progress.reset();
  if (!output.Commit()) return kExitFailed;
  WarnOfSamples(name, reader.NotNumbers() + writer.NotNumbers(), writer.Clipped());
  return kExitOk;
}

int Run(const Arguments& arguments) {
  const auto& operands = arguments.Operands();
  if (operands.size() != 2 || !arguments.Has("ratio")) {
    ReportUsage("stretch", "FILE, OUT and --ratio are needed");
    return kExitUsage;
  }
  Job job;
  job.target.name = operands[1];
  if (!ReadNumber("stretch", arguments, "ratio", Stretcher::kLeastRatio, Stretcher::kMostRatio, &job.ratio) ||
      !ChooseContainer("stretch", arguments, &job.target) || !ChooseType("stretch", arguments, &job.target) ||
      !ChooseDither("stretch", arguments, &job.dither))
    return kExitUsage;
  int exitCode = OpenSource(arguments, operands[0], &job.source);
  if (exitCode != kExitOk) return exitCode;
  if (!Complete(&job)) return kExitFailed;
  exitCode = CheckDither("stretch", arguments, job.dither, job.target);
  if (exitCode != kExitOk) return exitCode;
  const bool quiet = arguments.Has("quiet");
  exitCode = WriteStretched(job, arguments.Has("force"), quiet);
  if (exitCode == kExitOk) TellWritten(job.target, quiet);
  return exitCode;
}

}  // namespace

const Command kStretchCommand = {
    "stretch",
    "FILE OUT",
    "Make a file faster or slower at the same pitch.",
    "OUT has the frames of FILE divided by --ratio. The audio is cut into blocks, each of which is spliced "
    "where it fits best. OUT is written beside its place under another name and moved there when it is "
    "whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
