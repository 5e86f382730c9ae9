// qnwave spectrum: the spectrogram of a file as a picture.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/colour_map.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/frame.h"
#include "tools/qnwave/picture_file.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/spectrogram.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    kPictureStartOption,
    kPictureLengthOption,
    {"size", "WxH[@FACTOR]",
     "width and height, and how many pixels stand for one of them (default: 1200 wide, as high as the"
     " channels need)"},
    {"channels", "LIST", "the channels to show, from 0, such as 1 or 1,0; L and R stand for 0 and 1"},
    {"mixed", nullptr, "show the mean of the channels, not each by itself"},
    {"scale", "linear|log", "the frequencies, logarithmic from 20 Hz on (default linear)"},
    {"range", "DB", "how far down from full scale the colours go, 10 to 200 (default 100)"},
    {"window", "NAME", "hann, hamming, blackman or rectangular (default hann)"},
    {"fft", "SIZE",
     "frames of a transform, a power of 2 from 64 to 262144 (default 2048, with --scale log 8192): more tell"
     " frequencies better apart, fewer times"},
    {"overlap", "PERCENT",
     "how much two transforms of a column overlap, 0 to 99 (default 75); half of it is enough where a column"
     " has many"},
    {"peak", nullptr, "a column shows the largest level of its transforms, not the mean power"},
    {"colours", "NAME", "heat, sea or grey (default heat)"},
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

// Right of the lanes: the colours and their levels.
constexpr double kLegendGap = 14;
constexpr double kLegendWidth = 12;
constexpr double kMarginRight = 76;
constexpr double kLabelSpacing = 22;
constexpr double kLegendSpacing = 28;

struct Job {
  AudioSource source;
  PictureTarget target;
  SpectrumRequest request;
  ColourMap colours;
  _qnposfmt format = {};
  bool isLogarithmic = false;
  std::vector<std::string> laneNames;
};

// What does not depend on the file: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  SpectrumRequest& request = job->request;
  std::string mistake;
  if (!ReadPictureTarget("spectrum", arguments, &job->target)) return false;
  if (const auto channels = arguments.Value("channels")) {
    const auto map = ParseChannelMap(*channels, false, &mistake);
    if (!map) return Mistaken("spectrum", mistake);
    request.channels = *map;
  }
  const std::string_view scale = arguments.Value("scale").value_or("linear");
  job->isLogarithmic = scale == "log";
  if (scale != "log" && scale != "linear")
    return Mistaken("spectrum", "the scale is linear or log, not " + Quoted(scale));
  const std::string_view window = arguments.Value("window").value_or("hann");
  request.window = FindSpectrumWindow(window);
  if (!request.window)
    return Mistaken("spectrum",
                    "unknown window " + Quoted(window) + " (one of " + SpectrumWindowNames() + ")");
  const std::string_view colours = arguments.Value("colours").value_or("heat");
  const auto map = MakeColourMap(colours);
  if (!map)
    return Mistaken("spectrum", "unknown colours " + Quoted(colours) + " (one of " + ColourMapNames() + ")");
  job->colours = *map;
  request.range = 100;
  double overlap = 75;
  if (!ReadNumber("spectrum", arguments, "range", 10.0, 200.0, &request.range) ||
      !ReadNumber("spectrum", arguments, "overlap", 0.0, 99.0, &overlap)) {
    return false;
  }
  request.overlap = overlap / 100;
  const std::string_view size = arguments.Value("fft").value_or(job->isLogarithmic ? "8192" : "2048");
  const auto transform = ParseNumber<uint32_t>(size, kLeastTransform, kMostTransform);
  if (!transform || !std::has_single_bit(*transform))
    return Mistaken("spectrum", "bad size " + Quoted(size) + " for --fft (a power of 2 from 64 to 262144)");
  request.transform = *transform;
  const auto format = ReadTimeFormat(arguments, arguments.Value("format").value_or("time"), &mistake);
  if (!format) return Mistaken("spectrum", mistake);
  job->format = *format;
  request.isMixed = arguments.Has("mixed");
  request.isOfLoudest = arguments.Has("peak");
  return true;
}

// What depends on the file; kExitOk, or the exit code with the reason reported.
int Complete(const Arguments& arguments, Job* job) {
  SpectrumRequest& request = job->request;
  if (!IsOtherFile(job->source, job->target.name) || !ChooseLanes(job->source, &request.channels) ||
      (!request.isMixed && !AreFewEnough(job->source, request.channels.size(), messages::TooManyLanes))) {
    return kExitFailed;
  }
  const int exitCode = ReadRange("spectrum", arguments, job->source, &request.start, &request.frames);
  if (exitCode != kExitOk) return exitCode;
  job->format.sampleRate = job->source.format.rate;
  job->laneNames =
      request.isMixed ? std::vector<std::string>(1) : LaneNames(job->source.format, request.channels);
  const auto lanes = static_cast<double>(job->laneNames.size());
  constexpr double kMargins = kMarginTop + kMarginBottom - kLaneGap;
  constexpr double kLeastWidth = 120, kLeastHeight = 40;
  const double wanted = lanes == 1 ? 400 : lanes == 2 ? 260 : std::max(960 / lanes, 100.0);
  PictureSize& size = job->target.size;
  if (!FitPicture("spectrum", &size, kMargins + lanes * (wanted + kLaneGap),
                  kMarginLeft + kMarginRight + kLeastWidth, kMargins + lanes * (kLeastHeight + kLaneGap),
                  job->laneNames.size())) {
    return kExitUsage;
  }
  request.columns = ColumnsOf(size, kMarginLeft + kMarginRight);
  // As many whole pixels for each lane.
  request.rows = static_cast<uint32_t>(((size.height - kMargins) / lanes - kLaneGap) * size.factor);
  return kExitOk;
}

class Painter {
 public:
  Painter(Canvas* canvas, const Job& job, const FrequencyScale& scale)
      : canvas_(*canvas), job_(job), theme_(*job.target.theme), scale_(scale), line_(LineWidth(*canvas)) {}

  void Paint(const Spectrogram& spectrogram);

 private:
  void PaintLane(const Box& box, const std::vector<uint8_t>& levels);
  void PaintLegend(const Box& lanes);

  Canvas& canvas_;
  const Job& job_;
  const Theme& theme_;
  const FrequencyScale& scale_;
  const double line_;
};

void Painter::Paint(const Spectrogram& spectrogram) {
  const SpectrumRequest& request = job_.request;
  PaintPaper(&canvas_, theme_);
  const double pixel = 1 / canvas_.Factor();
  const double height = request.rows * pixel;
  Box lanes = {canvas_.Snap(kMarginLeft), canvas_.Snap(kMarginTop), request.columns * pixel, 0};
  for (size_t lane = 0; lane < spectrogram.size(); ++lane) {
    const double y = canvas_.Snap(lanes.y + static_cast<double>(lane) * (height + kLaneGap));
    const Box box = {lanes.x, y, lanes.width, height};
    PaintLane(box, spectrogram[lane]);
    PaintLaneName(&canvas_, theme_, box, job_.laneNames[lane]);
    lanes.height = box.Bottom() - lanes.y;
  }
  canvas_.Text(lanes.x - 7, lanes.y - 11, "Hz", LabelStyle(theme_), Align::kRight);
  PaintLegend(lanes);
  PaintTimeRuler(&canvas_, theme_, lanes, {}, job_.format, static_cast<double>(request.start),
                 static_cast<double>(request.frames));
  const std::string details = DescribeSamples(job_.source.format) +
                              DescribeRange(job_.source, job_.format, request.start, request.frames) +
                              "  \u00B7  " + request.window->name + " " + std::to_string(request.transform) +
                              (request.isMixed && request.channels.size() > 1 ? "  \u00B7  mixed" : "") +
                              (request.isOfLoudest ? "  \u00B7  peak" : "");
  PaintTitle(&canvas_, theme_, lanes, TitleOf(job_.source), details, lanes.Right());
}

void Painter::PaintLane(const Box& box, const std::vector<uint8_t>& levels) {
  std::vector<uint32_t> pixels(levels.size());
  std::transform(levels.begin(), levels.end(), pixels.begin(),
                 [this](uint8_t level) { return job_.colours[level]; });
  canvas_.Image(box.x, box.y, box.width, box.height, pixels, job_.request.columns);
  constexpr double kHalfLabel = 6;
  double last = 1e9;
  for (const FrequencyScale::Mark& mark : scale_.Marks(box.height, kLabelSpacing)) {
    const double y = box.Bottom() - mark.place * box.height;
    const double length = mark.text.empty() ? 2 : 4;
    canvas_.AddRectangle(box.x - 1 - length, std::min(canvas_.Snap(y), box.Bottom() - line_), length, line_);
    // Labels at the lane's edges stay inside, clear of the next lane's.
    const double middle = std::clamp(y, box.y + kHalfLabel, box.Bottom() - kHalfLabel);
    if (mark.text.empty() || last - middle < 2 * kHalfLabel) continue;
    canvas_.Fill(theme_.centre);
    canvas_.Text(box.x - 8, middle, mark.text, LabelStyle(theme_), Align::kRight, kMarginLeft - 10);
    last = middle;
  }
  canvas_.Fill(theme_.centre);
}

void Painter::PaintLegend(const Box& lanes) {
  const double x = canvas_.Snap(lanes.Right() + kLegendGap);
  std::vector<uint32_t> colours(job_.colours.rbegin(), job_.colours.rend());
  canvas_.Image(x, lanes.y, kLegendWidth, lanes.height, colours, 1);
  canvas_.Text(x, lanes.y - 11, "dBFS", LabelStyle(theme_));
  const double range = job_.request.range;
  double step = 200;
  for (const double finer : {100.0, 50.0, 20.0, 10.0, 5.0, 2.0, 1.0}) {
    if (finer / range * lanes.height >= kLegendSpacing) step = finer;
  }
  for (double level = 0; level <= range; level += step) {
    const double y = lanes.y + level / range * lanes.height;
    canvas_.AddRectangle(x + kLegendWidth + 1, std::min(canvas_.Snap(y), lanes.Bottom() - line_), 4, line_);
    canvas_.Fill(theme_.centre);
    char text[16];
    std::snprintf(text, sizeof text, level > 0 ? "\u2212%g" : "%g", level);
    canvas_.Text(x + kLegendWidth + 8, std::clamp(y, lanes.y + 6, lanes.Bottom() - 6), text,
                 LabelStyle(theme_));
  }
}

int Draw(const Job& job, bool overwrite, bool quiet) {
  WatchInterrupts();
  PictureFile picture;
  if (!picture.Create(job.target, overwrite)) return kExitFailed;
  const FrequencyScale scale(job.isLogarithmic, job.source.format.rate);
  Spectrogram spectrogram;
  const bool isComputed = ComputeSpectrogram(job.source, job.request, scale, quiet, &spectrogram);
  if (InterruptSignal() != 0) return ReportInterrupt(job.target.name);
  if (!isComputed) return kExitFailed;
  Painter(picture.GetCanvas(), job, scale).Paint(spectrogram);
  if (!picture.Finish() || !picture.Commit()) return kExitFailed;
  TellPicture(job.target, DescribeFrames(job.request.frames), quiet);
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 2) {
    ReportUsage("spectrum", "two files are needed: FILE and OUT");
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

const Command kSpectrumCommand = {
    "spectrum",
    "FILE OUT",
    "Draw the spectrogram of a file as a PNG or SVG picture.",
    "Up to 32 channels are drawn, each in a lane, or the mean of any number. A sine of full scale has 0 dB. "
    "Each column"
    " of the picture has at least one transform; in long files it shows the mean power of all that fall into"
    " it, and no sample is left out. In SVG the spectrogram is an image in the picture. 'man qnwave' names "
    "the"
    " time formats.",
    kOptions,
    Run,
};

}  // namespace qnwave
