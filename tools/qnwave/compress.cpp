// qnwave compress: audio through the compressor of the library, and the picture of its levels.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "qn/dsp/qncomp.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/effect_command.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"threshold", "DB", "the level above which it works, -80 to 0 (default -20)"},
    {"ratio", "R",
     "from the threshold to full scale, the output rises by this part of what the input rises, 1 to 1000"
     " (default 4)"},
    {"output-gain", "DB",
     "a gain behind it, -60 to 60, beside the make-up gain of 0.7 of the threshold (default: takes that back,"
     " so that nothing clips)"},
    {"remove-dc", nullptr, "take a constant offset out first, of mono and stereo files"},
    {"plot", "PICTURE",
     "draw the levels of steady sounds at output and input as a PNG or SVG picture, by its extension; without"
     " OUT alone"},
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

constexpr double kMakeUp = 0.7;  // of the threshold, which the library makes up for

struct Settings {
  double threshold = -20;
  double ratio = 4;
  double outputGain = 0;
  bool removesDc = false;
};

class Compressor final : public Effect {
 public:
  HRESULT Make(const Settings& settings, uint32_t rate, uint32_t channels) {
    HQNCOMPDC* made = nullptr;
    const HRESULT status = QnCompDCInit(&made, 1, settings.threshold, settings.ratio, settings.outputGain,
                                        static_cast<LONG>(rate), settings.removesDc);
    handle_.reset(made);
    channels_ = channels;
    return status;
  }

  void Process(double* samples, uint32_t frames) override {
    QnCompDC(handle_.get(), samples, samples, frames, channels_);
  }

 private:
  struct Close {
    void operator()(HQNCOMPDC* handle) const { QnCompDCClose(handle); }
  };
  std::unique_ptr<HQNCOMPDC, Close> handle_;
  uint32_t channels_ = 0;
};

// The level that comes out of each steady level that goes in. The remover of offsets has no part in that, and
// a constant, which it would take for one, is the steadiest sound.
HRESULT PlotLevels(Settings settings, LevelPlot* plot) {
  constexpr uint32_t kRate = 48000;
  constexpr uint32_t kSettled = kRate / 4;  // many times the release time
  const double from = std::min(-60.0, settings.threshold - 20);
  Compressor compressor;
  settings.removesDc = false;
  const HRESULT status = compressor.Make(settings, kRate, 1);
  if (status != S_OK) return status;
  constexpr int kLevels = 201;
  std::vector<double> block(kSettled);
  for (int i = 0; i < kLevels; ++i) {
    std::fill(block.begin(), block.end(), std::pow(10, from * (1 - i / (kLevels - 1.0)) / 20));
    compressor.Process(block.data(), kSettled);
    plot->decibels.push_back(PlotLevel(block.back()));
  }
  SetLinearAxis(plot, from, 0, "dB");
  plot->edges = {1 - settings.threshold / from};
  plot->details = "level at the output over the level of a steady sound at the input";
  return S_OK;
}

int Run(const Arguments& arguments) {
  if (arguments.Has("lang")) DressNumbers();
  EffectJob job;
  Settings settings;
  settings.removesDc = arguments.Has("remove-dc");
  if (!ReadEffectOptions("compress", arguments, &job) ||
      !ReadNumber("compress", arguments, "threshold", -80.0, 0.0, &settings.threshold) ||
      !ReadNumber("compress", arguments, "ratio", 1.0, 1000.0, &settings.ratio))
    return kExitUsage;
  settings.outputGain = kMakeUp * settings.threshold;
  if (!ReadNumber("compress", arguments, "output-gain", -60.0, 60.0, &settings.outputGain)) return kExitUsage;
  int exitCode = OpenSource(arguments, arguments.Operands()[0], &job.source);
  if (exitCode != kExitOk) return exitCode;
  if (settings.removesDc && !IsMonoOrStereo(job.source, "--remove-dc")) return kExitFailed;
  exitCode = CompleteEffect("compress", arguments, 0, &job);
  if (exitCode != kExitOk) return exitCode;
  Compressor compressor;
  LevelPlot plot;
  char title[128];
  std::snprintf(title, sizeof title, "Compressor, threshold %g dB, ratio %g, %+g dB", settings.threshold,
                settings.ratio, settings.outputGain);
  plot.title = title;
  HRESULT status = compressor.Make(settings, job.source.format.rate, job.source.format.channels);
  if (status == S_OK && job.HasPicture()) status = PlotLevels(settings, &plot);
  if (status == S_OK) return ApplyEffect(arguments, job, &compressor, plot);
  ReportError(job.source.name, status);
  return kExitFailed;
}

}  // namespace

const Command kCompressCommand = {
    "compress",
    "FILE [OUT]",
    "Write a file with its loud passages softer, or draw the levels.",
    "All channels have the same gain, so that the places of sounds stay. It falls in 2 ms and rises again in"
    " 30 ms. With --plot and without OUT the picture is made alone.",
    kOptions,
    Run,
};

}  // namespace qnwave
