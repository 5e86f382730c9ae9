// qnwave reverb: audio in a room of the library's, and the picture of the room's decay.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <vector>

#include "qn/dsp/qnreverb.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/effect_command.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"room", "NAME|N",
     "medium-room (the default), chamber, large-hall, small-room, theatre, concert-hall, echo-hall,"
     " large-room, auditorium, booth, corridor, bathroom, stage, church, arena, cathedral, stairwell, closet"
     " or club, or their number from 0"},
    {"early", "NAME|N",
     "the first echoes: near, small (the default), close, medium, large, far, small-right, small-left,"
     " medium-right or medium-left, or their number from 0, or none"},
    {"decay", "SECONDS",
     "in which the reverberation falls by 60 dB, 0.1 to 100 in steps of 0.1 (default 1.2)"},
    {"pre-delay", "MS", "how much later it begins, 0 to 1000 (default 10)"},
    {"dry", "DB", "gain of the sound itself, -100 to 20 (default -3), or none"},
    {"wet", "DB", "of the reverberation (default -22), or none"},
    {"early-level", "DB", "of the first echoes, -79 to 20 (default -15)"},
    {"low-cut", "HZ", "no reverberation of what lies below (default 120), or none for all of it"},
    {"high-cut", "HZ", "above, it is softer and decays faster (default 8000), or none"},
    {"tail", "SECONDS",
     "how much longer than FILE OUT is, 0 to 3600 (default: the pre-delay and the decay), or none"},
    {"plot", "PICTURE",
     "draw the decay of a click as a PNG or SVG picture, by its extension; without OUT alone"},
    kPlotSizeOption,
    kThemeOption,
    kContainerOption,
    kEffectTypeOption,
    kDitherOption,
    kShapeOption,
    kToEndOption,
    kEffectForceOption,
    kQuietOption,
};

struct NameRow {
  const char* name;
};

// By the lengths of their combs, and by how close these lie. The row of an echo-hall has one of 3.9 s.
constexpr NameRow kRooms[] = {{"medium-room"},  {"chamber"},   {"large-hall"}, {"small-room"}, {"theatre"},
                              {"concert-hall"}, {"echo-hall"}, {"large-room"}, {"auditorium"}, {"booth"},
                              {"corridor"},     {"bathroom"},  {"stage"},      {"church"},     {"arena"},
                              {"cathedral"},    {"stairwell"}, {"closet"},     {"club"}};

// By how late they come, and from where.
constexpr NameRow kEarly[] = {{"near"}, {"small"},       {"close"},      {"medium"},       {"large"},
                              {"far"},  {"small-right"}, {"small-left"}, {"medium-right"}, {"medium-left"}};

constexpr LONG kNoLevel = -8000;
constexpr LONG kNoEarlyLevel = -800;
constexpr LONG kNoTail = 0;

struct Job : EffectJob {
  _reverb_props props = {-30, -220, -150, 0, 1, 12, 10, 1, 120, 1, 8000};
  LONG tail = -1;  // milliseconds; below 0 those of the room

  double Seconds() const { return props.preDelay / 1000.0 + props.decay / 10.0; }
};

class Reverb final : public Effect {
 public:
  HRESULT Make(_reverb_props props, uint32_t rate, uint32_t channels) {
    HQNREVERB* made = nullptr;
    const HRESULT status = QnReverbInit(&made, 1, &props, static_cast<LONG>(rate), channels, 0);
    handle_.reset(made);
    return status;
  }

  void Process(double* samples, uint32_t frames) override {
    QnReverbProcess(handle_.get(), samples, samples, frames);
  }

 private:
  struct Close {
    void operator()(HQNREVERB* handle) const { QnReverbClose(handle); }
  };
  std::unique_ptr<HQNREVERB, Close> handle_;
};

// A row by its name or number; false with the mistake reported. `others` are good values besides.
template <size_t count>
bool ReadRow(const Arguments& arguments, const char* option, const NameRow (&rows)[count],
             const std::string& others, LONG* row) {
  const auto text = arguments.Value(option);
  if (!text) return true;
  if (const auto number = ParseNumber<LONG>(*text, 0, count - 1)) {
    *row = *number;
    return true;
  }
  const NameRow* const named =
      FindRow("reverb", rows, option, *text, LimitsText(0, count - 1) + ", " + others + "or ");
  if (named) *row = static_cast<LONG>(named - rows);
  return named;
}

bool ReadOptions(const Arguments& arguments, Job* job) {
  _reverb_props& props = job->props;
  constexpr double kTenths = 10;
  const auto read = [&](const char* option, double lowest, double highest, double units,
                        std::optional<LONG> none, LONG* value) {
    return ReadUnits("reverb", arguments, option, lowest, highest, units, none, value);
  };
  if (!ReadRow(arguments, "room", kRooms, "", &props.room) ||
      !read("decay", 0.1, 100, kTenths, {}, &props.decay) ||
      !read("pre-delay", 0, 1000, 1, {}, &props.preDelay) ||
      !read("dry", -100, 20, kTenths, kNoLevel, &props.dryGain) ||
      !read("wet", -100, 20, kTenths, kNoLevel, &props.reverbGain) ||
      !read("early-level", -79, 20, kTenths, {}, &props.earlyGain) ||
      !read("low-cut", 1, kMostRate, 1, 0, &props.lowCutHz) ||
      !read("high-cut", 1, kMostRate, 1, 0, &props.highCutHz) ||
      !read("tail", 0, 3600, 1000, kNoTail, &job->tail))
    return false;
  props.lowCutOn = props.lowCutHz != 0;
  props.highCutOn = props.highCutHz != 0;
  if (arguments.Value("early") != "none") return ReadRow(arguments, "early", kEarly, "none, ", &props.early);
  props.earlyGain = kNoEarlyLevel;
  return RefuseOptions("reverb", arguments, {"early-level"}, "--early none");
}

// Frequencies that were asked for; false, and that is reported, for those that the file has not.
bool HasFrequencies(const Arguments& arguments, const Job& job) {
  return (!arguments.Has("low-cut") || IsBelowHalfRate(job.source, job.props.lowCutHz)) &&
         (!arguments.Has("high-cut") || IsBelowHalfRate(job.source, job.props.highCutHz));
}

// The energy of a click that is still to come, over the time since it, which falls as steadily as the room
// decays, though single echoes are apart.
HRESULT PlotDecay(const Job& job, LevelPlot* plot) {
  // Delays are times: more rate shows no more of them.
  const uint32_t rate = std::min(job.source.format.rate, 192000u);
  const uint32_t channels = job.source.format.channels;
  constexpr double kStep = 0.002, kShown = 1.1, kMeasured = 2;
  const uint32_t frames = std::max(1u, static_cast<uint32_t>(rate * kStep));
  const double steps = job.Seconds() * rate / frames;
  const size_t shown = std::max<size_t>(2, static_cast<size_t>(std::ceil(steps * kShown)) + 1);
  Reverb reverb;
  const HRESULT status = reverb.Make(job.props, rate, channels);
  if (status != S_OK) return status;
  std::vector<double> energies(std::max(shown, static_cast<size_t>(steps * kMeasured)));
  std::vector<double> block(size_t{frames} * channels);
  for (size_t i = 0; i < energies.size(); ++i) {
    std::fill(block.begin(), block.end(), 0.0);
    if (i == 0) std::fill_n(block.begin(), channels, 1.0);
    reverb.Process(block.data(), frames);
    for (const double sample : block) energies[i] += sample * sample / channels;
  }
  std::partial_sum(energies.rbegin(), energies.rend(), energies.rbegin());
  for (size_t i = 0; i < shown; ++i) plot->decibels.push_back(PlotLevel(std::sqrt(energies[i])));
  SetLinearAxis(plot, 0, static_cast<double>(shown - 1) * frames / rate, "s");
  plot->details = "level of all that is still to come of a click at full scale";
  return S_OK;
}

int Run(const Arguments& arguments) {
  if (arguments.Has("lang")) DressNumbers();
  Job job;
  if (!ReadEffectOptions("reverb", arguments, &job) || !ReadOptions(arguments, &job)) return kExitUsage;
  int exitCode = OpenSource(arguments, arguments.Operands()[0], &job.source);
  if (exitCode != kExitOk) return exitCode;
  if (!IsMonoOrStereo(job.source, "reverb") || !HasFrequencies(arguments, job)) return kExitFailed;
  const AudioFormat& format = job.source.format;
  // Of nothing there is no echo.
  const double ownTail = job.source.frames == 0 ? 0 : job.Seconds();
  const double tail = job.tail < 0 ? ownTail : job.tail / 1000.0;
  exitCode =
      CompleteEffect("reverb", arguments, static_cast<uint64_t>(std::llround(tail * format.rate)), &job);
  if (exitCode != kExitOk) return exitCode;
  Reverb reverb;
  LevelPlot plot;
  char title[128];
  std::snprintf(title, sizeof title, "Reverberation, %s, decay %g s", kRooms[job.props.room].name,
                job.props.decay / 10.0);
  plot.title = title;
  HRESULT status = reverb.Make(job.props, format.rate, format.channels);
  if (status == S_OK && job.HasPicture()) status = PlotDecay(job, &plot);
  if (status == S_OK) return ApplyEffect(arguments, job, &reverb, plot);
  ReportError(job.source.name, status);
  return kExitFailed;
}

}  // namespace

const Command kReverbCommand = {
    "reverb",
    "FILE [OUT]",
    "Write a mono or stereo file in a room, or draw how the room decays.",
    "The defaults are those of a room of medium size behind the sound. A stereo file is heard in the same"
    " room on both sides. Gains are in steps of 0.1 dB, frequencies and --pre-delay are whole numbers. With "
    "--plot and without OUT the picture is made alone.",
    kOptions,
    Run,
};

}  // namespace qnwave
