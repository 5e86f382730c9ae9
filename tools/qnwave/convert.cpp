// qnwave convert: samples from any readable file to a new WAV, Wave64 or headerless file.
#include <algorithm>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/common/options.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/conversion.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    kContainerOption,
    {"type", "TYPE",
     "sample type of OUT (default: that of IN): u8, s16, s24, s32, f32, f64, or s8, s24in32,"
     " s16be, s24be, s32be, which few other programs read from a wave file"},
    {"gain", "DB", "multiply by a gain in dB; integer samples clip"},
    {"rate", "HZ", "sample rate of OUT (default: that of IN); the duration stays, and time 0 too"},
    kQualityOption,
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

// What does not depend on the input: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, ConversionJob* job) {
  const auto mistaken = [](const std::string& mistake) {
    ReportUsage("convert", mistake);
    return false;
  };
  std::string mistake;
  if (!ChooseContainer("convert", arguments, &job->target) ||
      !ChooseType("convert", arguments, &job->target) || !ChooseDither("convert", arguments, &job->dither))
    return false;
  if (arguments.Has("rate")) {
    if (!ReadNumber<uint32_t>("convert", arguments, "rate", 1, kMostRate, &job->rate.to) ||
        !ChooseQuality("convert", arguments, &job->rate))
      return false;
  } else if (arguments.Has("quality")) {
    return mistaken("--quality goes with --rate");
  }
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
bool CompleteFormat(bool hasRate, ConversionJob* job) {
  const AudioFormat& in = job->source.format;
  AudioFormat& out = job->target.format;
  const bool headerless = job->target.container == Container::kUnknown;
  if (out.type == QNST_NONE) out.type = headerless ? in.type : FindSampleType(in.type)->common;
  job->rate.from = in.rate;
  if (!hasRate) job->rate.to = in.rate;
  out.rate = job->rate.to;
  out.mask = job->map.empty() ? in.mask : 0;
  out.channels = job->map.empty() ? in.channels : static_cast<uint32_t>(job->map.size());
  if (!HasChannels(job->source, job->map)) return false;
  if (out.FrameBytes() > kMostFrameBytes) {
    ReportError(job->source.name, QN_E_MEDIA_TYPE,
                {messages::FrameTooLarge, {Message::Bytes(kMostFrameBytes)}});
    return false;
  }
  if (!job->rate.IsNone() && out.channels > RateChange::kMostChannels) {
    ReportError(job->source.name, QN_E_MEDIA_TYPE,
                {messages::RateChannels, {Message::Number(RateChange::kMostChannels)}});
    return false;
  }
  if (!job->rate.IsPossible()) {
    ReportError(
        job->source.name, QN_E_MEDIA_TYPE,
        {messages::RatesTooFarApart,
         {Message::Number(in.rate), Message::Number(out.rate), Message::Number(RateChange::kMostTimes)}});
    return false;
  }
  job->target.frames = job->rate.FramesAfter(job->source.frames);
  return CheckSize(job->target);
}

// Carries a job out under a progress bar; returns an exit code.
int Convert(const ConversionJob& job, bool overwrite, bool quiet) {
  const auto& [name, container, format, frames] = job.target;
  WatchInterrupts();
  AudioOutput output;
  if (!output.Create(name, container, format, frames, overwrite)) return kExitFailed;
  std::optional<Progress> progress;
  progress.emplace(name, std::max<uint64_t>(1, frames), quiet);
  Conversion conversion(job, &output, &*progress);
  conversion.Run();
  progress.reset();
  if (InterruptSignal() != 0) return ReportInterrupt(job.target.name);
  if (conversion.Status() != S_OK) {
    ReportError(conversion.FailedFile(), conversion.Status());
    return kExitFailed;
  }
  if (!output.Commit()) return kExitFailed;
  WarnOfSamples(name, conversion.NotNumbers(), conversion.Clipped());
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 2) {
    ReportUsage("convert", "two files are needed: IN and OUT");
    return kExitUsage;
  }
  const bool quiet = arguments.Has("quiet");
  ConversionJob job;
  job.target.name = arguments.Operands()[1];
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  int exitCode = kExitFailed;
  const OpenResult opened = OpenSource(arguments, arguments.Operands()[0], &job.source, &exitCode);
  if (opened != OpenResult::kOk) return opened == OpenResult::kDamaged ? kExitDamaged : exitCode;
  if (!CompleteFormat(arguments.Has("rate"), &job)) return kExitFailed;
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
