// qnwave draw: the waveform of a file as a picture.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numeric>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/options.h"
#include "tools/common/output_file.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/interrupt.h"
#include "tools/qnwave/picture.h"
#include "tools/qnwave/position.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/target.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"start", "POS", "where the picture begins (default: the start): a frame, or a time such as 1:30.5"},
    {"length", "POS", "how much it shows (default: up to the end); it ends where the file does"},
    {"size", "WxH[@FACTOR]",
     "width and height, and how many pixels stand for one of them: 1200x400@2 is the picture of 1200x400,"
     " text and all, in 2400x800 pixels for a screen of high density (default: 1200 wide, as high as the"
     " channels need)"},
    {"channels", "LIST", "the channels to draw, from 0, such as 1 or 1,0; L and R stand for 0 and 1"},
    {"rms", nullptr,
     "draw the effective level inside the peaks; all samples of the range are read for it, which takes a"
     " while in long files"},
    {"scale", "linear|db", "samples, or decibels down to -60 (default linear)"},
    {"theme", "NAME", "light, dark or contrast (default light)"},
    {"format", "FORMAT",
     "the time format of the ruler, by name or number (default time); POS is read in it too"},
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kOffsetOption,
    {"to-end", nullptr,
     "take all bytes from the first sample to the end of FILE, whatever its header states"},
    {"svg", nullptr,
     "make an SVG picture whatever the name of OUT (default: by its extension, .png or .svg)"},
    {"force", nullptr, "overwrite OUT, unless it is FILE itself; until the end it stays as it was"},
    kQuietOption,
};

struct Size {
  double width = 1200;
  double height = 0;  // 0: as the channels need
  double factor = 1;
};

struct Job {
  AudioSource source;
  std::string target;
  PictureKind kind = PictureKind::kPng;
  Size size;
  PictureStyle style;
  WaveformRequest request;
  std::vector<std::string> laneNames;
};

bool Mistaken(const std::string& mistake) {
  ReportUsage("draw", mistake);
  return false;
}

bool ReadSize(std::string_view text, Size* size) {
  const size_t at = text.find('@');
  const auto sides = Split(text.substr(0, at), 'x');
  constexpr double kMost = 1e6;
  const auto width = ParseNumber<double>(sides[0], 1, kMost);
  const auto height = ParseNumber<double>(sides.size() == 2 ? sides[1] : "", 1, kMost);
  const auto factor =
      at == std::string_view::npos ? std::optional(1.0) : ParseNumber<double>(text.substr(at + 1), 0.5, 16);
  if (!width || !height || !factor)
    return Mistaken("bad size " + Quoted(text) + " (such as 1200x400, or 1200x400@2)");
  *size = {std::round(*width), std::round(*height), *factor};
  if (std::max(size->width, size->height) * size->factor > kMostPixels)
    return Mistaken("a picture has up to " + std::to_string(kMostPixels) + " pixels a side");
  return true;
}

bool EndsIn(const std::string& name, std::string_view extension) {
  if (name.size() < extension.size()) return false;
  return std::equal(extension.begin(), extension.end(), name.end() - static_cast<ptrdiff_t>(extension.size()),
                    [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

// What does not depend on the file: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  std::string mistake;
  job->kind = arguments.Has("svg") || EndsIn(job->target, ".svg") ? PictureKind::kSvg : PictureKind::kPng;
  if (job->kind == PictureKind::kPng && !EndsIn(job->target, ".png"))
    return Mistaken("the name " + Quoted(job->target) +
                    " tells no picture: end it in .png or .svg, or give --svg");
  if (const auto text = arguments.Value("size")) {
    if (!ReadSize(*text, &job->size)) return false;
  }
  const std::string_view theme = arguments.Value("theme").value_or("light");
  job->style.theme = FindTheme(theme);
  if (!job->style.theme) return Mistaken("unknown theme " + Quoted(theme) + " (one of " + ThemeNames() + ")");
  const std::string_view scale = arguments.Value("scale").value_or("linear");
  job->style.inDecibels = scale == "db";
  if (scale != "db" && scale != "linear") return Mistaken("the scale is linear or db, not " + Quoted(scale));
  if (const auto channels = arguments.Value("channels")) {
    const auto map = ParseChannelMap(*channels, false, &mistake);
    if (!map) return Mistaken(mistake);
    job->request.channels = *map;
  }
  const auto format = ReadTimeFormat(arguments, arguments.Value("format").value_or("time"), &mistake);
  if (!format) return Mistaken(mistake);
  job->style.format = *format;
  job->request.withRms = arguments.Has("rms");
  return true;
}

// Those that the file names, or L and R, or the numbers of --channels.
std::vector<std::string> LaneNames(const AudioFormat& format, const ChannelMap& channels) {
  const std::string speakers = DescribeSpeakers(format.mask);
  const auto names = Split(speakers, ' ');
  std::vector<std::string> lanes;
  for (const int channel : channels) {
    const auto index = static_cast<size_t>(channel);
    lanes.push_back(format.channels == 1                                  ? std::string()
                    : format.mask != 0 && names.size() == format.channels ? std::string(names[index])
                    : format.channels == 2                                ? (index == 0 ? "L" : "R")
                                                                          : std::to_string(channel));
  }
  return lanes;
}

// What depends on the file; kExitOk, or the exit code with the reason reported.
int Complete(const Arguments& arguments, Job* job) {
  const AudioSource& source = job->source;
  WaveformRequest& request = job->request;
  // A recording cannot be made again, so --force does not count for it, whatever links lead there.
  std::error_code notThere;
  if (std::filesystem::equivalent(source.name, job->target, notThere)) {
    ReportError(job->target, QN_E_FILE_CREATE, messages::TargetIsSource, qntool::kSavingFiles);
    return kExitFailed;
  }
  if (source.format.channels > kMostPictureChannels) {
    ReportError(source.name, QN_E_FILE_UNSUPPORTED,
                {messages::TooManyChannels, {Message(std::to_string(kMostPictureChannels))}});
    return kExitFailed;
  }
  if (request.channels.empty()) {
    request.channels.resize(source.format.channels);
    std::iota(request.channels.begin(), request.channels.end(), 0);
  }
  for (const int channel : request.channels) {
    if (channel < static_cast<int>(source.format.channels)) continue;
    ReportError(
        source.name, E_INVALIDARG,
        {messages::NoChannel, {Message(std::to_string(channel)), ChannelsMessage(source.format.channels)}});
    return kExitFailed;
  }
  job->laneNames = LaneNames(source.format, request.channels);
  job->style.format.sampleRate = source.format.rate;
  std::optional<uint64_t> start, length;
  if (!ReadPosition("draw", arguments, "start", false, source.format.rate, &start) ||
      !ReadPosition("draw", arguments, "length", true, source.format.rate, &length)) {
    return kExitUsage;
  }
  request.start = start.value_or(0);
  request.frames = length.value_or(source.frames);
  if (request.start >= source.frames || request.frames == 0) {
    ReportError(source.name, {messages::RangeEmpty, {Message::Number(source.frames)}});
    return kExitFailed;
  }
  request.frames = std::min(request.frames, source.frames - request.start);

  const auto lanes = static_cast<double>(request.channels.size());
  constexpr double kMargins = kMarginTop + kMarginBottom - kLaneGap;
  if (job->size.height == 0) {
    const double lane = lanes == 1 ? 250 : lanes == 2 ? 160 : std::max(720 / lanes, 52.0);
    job->size.height = std::round(kMargins + lanes * (lane + kLaneGap));
  }
  const double columns = std::floor((job->size.width - kMarginLeft - kMarginRight) * job->size.factor);
  if (job->size.width < kMarginLeft + kMarginRight + kLeastLaneWidth ||
      job->size.height < kMargins + lanes * (kLeastLaneHeight + kLaneGap)) {
    char least[96];
    std::snprintf(least, sizeof least, "the picture is too small: %zu lanes need %.0fx%.0f",
                  request.channels.size(), kMarginLeft + kMarginRight + kLeastLaneWidth,
                  kMargins + lanes * (kLeastLaneHeight + kLaneGap));
    Mistaken(least);
    return kExitUsage;
  }
  request.columns = static_cast<uint32_t>(columns);
  return kExitOk;
}

// "00:00:01.000 to 00:00:02.000 of 00:10:00.000", or the length where all is shown.
std::string DescribeRange(const Job& job) {
  const auto text = [&](uint64_t frames, bool isLength) {
    _qnposfmt format = job.style.format;
    if (isLength) format.offset = 0;
    return DescribeDuration(frames, job.source.format.rate, &format);
  };
  const std::string all = text(job.source.frames, true);
  const WaveformRequest& request = job.request;
  if (request.frames == job.source.frames) return all;
  std::string range =
      text(request.start, false) + " to " + text(request.start + request.frames, false) + " of " + all;
  // The format may be too coarse to tell samples apart.
  if (request.frames <= request.columns)
    range +=
        "  \u00B7  sample " + Grouped(request.start) + " to " + Grouped(request.start + request.frames - 1);
  return range;
}

PictureText TextOf(const Job& job) {
  const AudioFormat& format = job.source.format;
  const size_t slash = job.source.name.rfind('/');
  PictureText text;
  text.title = Shown(job.source.name.substr(slash == std::string::npos ? 0 : slash + 1));
  text.details = std::string(FindSampleType(format.type)->words) + "  \u00B7  " + Grouped(format.rate) +
                 " Hz  \u00B7  " + DescribeChannels(format.channels) + "  \u00B7  " + DescribeRange(job);
  text.laneNames = job.laneNames;
  return text;
}

class FileWriter final : public PictureWriter {
 public:
  explicit FileWriter(int descriptor) : descriptor_(descriptor) {}

  HRESULT Write(const uint8_t* bytes, size_t count) override {
    while (count > 0) {
      const ssize_t written = write(descriptor_, bytes, count);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return qntool::StatusFromErrno(QN_E_FILE_WRITE);
      bytes += written;
      count -= static_cast<size_t>(written);
    }
    return S_OK;
  }

 private:
  const int descriptor_;
};

int Draw(const Job& job, bool overwrite, bool quiet) {
  WatchInterrupts();
  OutputFile output;
  if (!output.Create(job.target, overwrite)) return kExitFailed;
  FileWriter writer(output.Descriptor());
  const std::unique_ptr<Canvas> canvas =
      MakeCanvas(job.kind, job.size.width, job.size.height, job.size.factor, &writer);
  if (!canvas) return kExitFailed;
  // The room for the picture is asked for before the work.
  if (canvas->Status() != S_OK) {
    output.Fail(canvas->Status());
    return kExitFailed;
  }
  Waveform waveform;
  const bool isRead = ReadWaveform(job.source, job.request, quiet, &waveform);
  if (InterruptSignal() != 0) {
    ReportError(job.target, QN_E_CANCELLED, messages::NothingWritten);
    return kExitInterruptedBase + InterruptSignal();
  }
  if (!isRead) return kExitFailed;
  DrawPicture(canvas.get(), waveform, job.request, job.style, TextOf(job));
  const HRESULT status = canvas->Finish();
  if (status != S_OK) {
    output.Fail(status);
    return kExitFailed;
  }
  if (!output.Commit()) return kExitFailed;
  if (!quiet) {
    const std::string from = waveform.peakFile.empty() ? "the audio" : Shown(waveform.peakFile);
    std::printf("%s: %.0fx%.0f pixels, %s %s from %s\n", Shown(job.target).c_str(),
                job.size.width * job.size.factor, job.size.height * job.size.factor,
                Grouped(job.request.frames).c_str(), job.request.frames == 1 ? "frame" : "frames",
                from.c_str());
  }
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 2) {
    ReportUsage("draw", "two files are needed: FILE and OUT");
    return kExitUsage;
  }
  if (arguments.Has("lang")) DressNumbers();
  Job job;
  job.target = arguments.Operands()[1];
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  const OpenResult opened = OpenAudio(arguments.Operands()[0], arguments.Has("to-end"), &job.source);
  if (opened != OpenResult::kOk) return opened == OpenResult::kDamaged ? kExitDamaged : kExitFailed;
  const int result = Complete(arguments, &job);
  return result != kExitOk ? result : Draw(job, arguments.Has("force"), arguments.Has("quiet"));
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
