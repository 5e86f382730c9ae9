// qnwave draw: the waveform of a file as a picture.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/options.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/picture.h"
#include "tools/qnwave/picture_file.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/stream_copy.h"
#include "tools/qnwave/target.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    kPictureStartOption,
    kPictureLengthOption,
    {"size", "WxH[@FACTOR]",
     "width and height, and how many pixels stand for one of them: 1200x400@2 is the picture of 1200x400,"
     " text and all, in 2400x800 pixels for a screen of high density (default: 1200 wide, as high as the"
     " channels need)"},
    {"channels", "LIST", "the channels to draw, from 0, such as 1 or 1,0; L and R stand for 0 and 1"},
    {"rms", nullptr,
     "draw the effective level inside the peaks; all samples of the range are read for it, which takes a"
     " while in long files"},
    {"scale", "linear|db", "samples, or decibels down to -60 (default linear)"},
    kThemeOption,
    kRulerFormatOption,
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kOffsetOption,
    kToEndOption,
    kSvgOption,
    kPictureForceOption,
    kQuietOption,
};

struct Job {
  AudioSource source;
  PictureTarget target;
  PictureStyle style;
  WaveformRequest request;
  std::vector<std::string> laneNames;
};

// What does not depend on the file: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  std::string mistake;
  if (!ReadPictureTarget("draw", arguments, &job->target)) return false;
  job->style.theme = job->target.theme;
  const std::string_view scale = arguments.Value("scale").value_or("linear");
  job->style.inDecibels = scale == "db";
  if (scale != "db" && scale != "linear")
    return Mistaken("draw", "the scale is linear or db, not " + Quoted(scale));
  if (const auto channels = arguments.Value("channels")) {
    const auto map = ParseChannelMap(*channels, false, &mistake);
    if (!map) return Mistaken("draw", mistake);
    job->request.channels = *map;
  }
  const auto format = ReadTimeFormat(arguments, arguments.Value("format").value_or("time"), &mistake);
  if (!format) return Mistaken("draw", mistake);
  job->style.format = *format;
  job->request.withRms = arguments.Has("rms");
  return true;
}

// What depends on the file; kExitOk, or the exit code with the reason reported.
int Complete(const Arguments& arguments, Job* job) {
  const AudioSource& source = job->source;
  WaveformRequest& request = job->request;
  // Peaks come for all channels, however few are drawn.
  if (!IsOtherFile(source, job->target.name) ||
      !AreFewEnough(source, source.format.channels, messages::TooManyChannels) ||
      !ChooseLanes(source, &request.channels)) {
    return kExitFailed;
  }
  job->laneNames = LaneNames(source.format, request.channels);
  job->style.format.sampleRate = source.format.rate;
  const int exitCode = ReadRange("draw", arguments, source, &request.start, &request.frames);
  if (exitCode != kExitOk) return exitCode;
  const auto lanes = static_cast<double>(request.channels.size());
  constexpr double kMargins = kMarginTop + kMarginBottom - kLaneGap;
  const double lane = lanes == 1 ? 250 : lanes == 2 ? 160 : std::max(720 / lanes, 52.0);
  if (!FitPicture("draw", &job->target.size, kMargins + lanes * (lane + kLaneGap),
                  kMarginLeft + kMarginRight + kLeastLaneWidth,
                  kMargins + lanes * (kLeastLaneHeight + kLaneGap), request.channels.size())) {
    return kExitUsage;
  }
  request.columns = ColumnsOf(job->target.size, kMarginLeft + kMarginRight);
  return kExitOk;
}

PictureText TextOf(const Job& job) {
  const WaveformRequest& request = job.request;
  PictureText text;
  text.title = TitleOf(job.source);
  text.details = DescribeSamples(job.source.format) +
                 DescribeRange(job.source, job.style.format, request.start, request.frames);
  // The format may be too coarse to tell samples apart.
  if (request.frames < job.source.frames && request.frames <= request.columns)
    text.details +=
        "  \u00B7  sample " + Grouped(request.start) + " to " + Grouped(request.start + request.frames - 1);
  text.laneNames = job.laneNames;
  return text;
}

int Draw(const Job& job, bool overwrite, bool quiet) {
  WatchInterrupts();
  PictureFile picture;
  if (!picture.Create(job.target, overwrite)) return kExitFailed;
  Waveform waveform;
  const bool isRead = ReadWaveform(job.source, job.request, quiet, &waveform);
  if (InterruptSignal() != 0) return ReportInterrupt(job.target.name);
  if (!isRead) return kExitFailed;
  DrawPicture(picture.GetCanvas(), waveform, job.request, job.style, TextOf(job));
  if (!picture.Finish() || !picture.Commit()) return kExitFailed;
  const std::string from = waveform.peakFile.empty() ? "the audio" : Shown(waveform.peakFile);
  TellPicture(job.target, DescribeFrames(job.request.frames) + " from " + from, quiet);
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 2) {
    ReportUsage("draw", "two files are needed: FILE and OUT");
    return kExitUsage;
  }
  if (arguments.Has("lang")) DressNumbers();
  Job job;
  job.target.name = arguments.Operands()[1];
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  int exitCode = OpenSource(arguments, arguments.Operands()[0], &job.source);
  if (exitCode == kExitOk) exitCode = Complete(arguments, &job);
  return exitCode != kExitOk ? exitCode : Draw(job, arguments.Has("force"), arguments.Has("quiet"));
}

}  // namespace

const Command kDrawCommand = {
    "draw",
    "FILE OUT",
    "Draw the waveform of a file as a PNG or SVG picture.",
    "Files of up to 32 channels are drawn. The peaks come from a valid peak file ('qnwave peaks' builds it), "
    "which takes no time however long the"
    " file is, else from the samples of the range; no other file than OUT is written. Columns with clipped"
    " samples are marked: integers that reach full scale, floats above it. A peak file holds no floats above"
    " full scale, so it counts those that reach it, and one of 8 bits those within 0.1 dB of it. 'man qnwave'"
    " names the time formats.",
    kOptions,
    Run,
};

}  // namespace qnwave
