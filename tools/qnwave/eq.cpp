// qnwave eq: audio through an equaliser of the library, and the picture of its response.
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "qn/dsp/qneq.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/effect_command.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/response.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"peak", "HZ,DB[,OCTAVES]",
     "a bell around a frequency, -100 to 25 dB, 0.1 to 5 octaves wide (default 1)"},
    {"low-shelf", "HZ,DB", "a gain for what lies below a frequency"},
    {"high-shelf", "HZ,DB", "a gain for what lies above a frequency"},
    {"preset", "NAME",
     "bands that go together: voice, presence, warm, loudness, bass-boost, bass-cut, treble-boost,"
     " treble-cut, telephone, hum-50 or hum-60"},
    {"gain", "DB", "of the whole, -100 to 60 (default 0)"},
    {"plot", "PICTURE", "draw the response as a PNG or SVG picture, by its extension; without OUT alone"},
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

// Of a gain of -100 dB nothing is left at all, also of its band.
constexpr double kLeastGain = -100;
constexpr double kMostGain = 25;

struct Band {
  QNEQ_TYPE type;
  double frequency;
  double gain;
  double octaves = 1;
};

struct Preset {
  const char* name;
  Band bands[5];  // those of frequency 0 are none
};

constexpr double kNotch = 0.1;  // octaves

constexpr Preset kPresets[] = {
    {"voice",
     {{QNEQ_LOWSHELF, 100, -12},
      {QNEQ_PEAK, 300, -3},
      {QNEQ_PEAK, 3500, 4, 1.5},
      {QNEQ_HIGHSHELF, 9000, -2}}},
    {"presence", {{QNEQ_PEAK, 4000, 5, 1.5}}},
    {"warm", {{QNEQ_LOWSHELF, 250, 4}, {QNEQ_HIGHSHELF, 5000, -4}}},
    {"loudness", {{QNEQ_LOWSHELF, 100, 9}, {QNEQ_PEAK, 1500, -2, 3}, {QNEQ_HIGHSHELF, 9000, 6}}},
    {"bass-boost", {{QNEQ_LOWSHELF, 150, 8}}},
    {"bass-cut", {{QNEQ_LOWSHELF, 150, -8}}},
    {"treble-boost", {{QNEQ_HIGHSHELF, 5000, 8}}},
    {"treble-cut", {{QNEQ_HIGHSHELF, 5000, -8}}},
    {"telephone",
     {{QNEQ_LOWSHELF, 300, kLeastGain},
      {QNEQ_LOWSHELF, 300, kLeastGain},
      {QNEQ_PEAK, 1500, 6, 2},
      {QNEQ_HIGHSHELF, 3400, kLeastGain},
      {QNEQ_HIGHSHELF, 3400, kLeastGain}}},
    {"hum-50",
     {{QNEQ_PEAK, 50, kLeastGain, kNotch},
      {QNEQ_PEAK, 100, kLeastGain, kNotch},
      {QNEQ_PEAK, 150, kLeastGain, kNotch},
      {QNEQ_PEAK, 200, kLeastGain, kNotch},
      {QNEQ_PEAK, 250, kLeastGain, kNotch}}},
    {"hum-60",
     {{QNEQ_PEAK, 60, kLeastGain, kNotch},
      {QNEQ_PEAK, 120, kLeastGain, kNotch},
      {QNEQ_PEAK, 180, kLeastGain, kNotch},
      {QNEQ_PEAK, 240, kLeastGain, kNotch},
      {QNEQ_PEAK, 300, kLeastGain, kNotch}}},
};

struct Job : EffectJob {
  std::vector<Band> bands;  // in the order in which the options are listed
  std::vector<Band> presetBands;
  std::string title;
  double gain = 0;
};

class Equaliser final : public Effect {
 public:
  HRESULT Make(const std::vector<Band>& bands, double gain, uint32_t rate, uint32_t channels) {
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    format.nChannels = static_cast<WORD>(channels);
    format.nSamplesPerSec = rate;
    format.wBitsPerSample = 64;
    std::vector<tQNEQ_BAND> settings;
    for (const Band& band : bands)
      settings.push_back({band.gain, band.octaves, band.frequency, band.type, 1});
    HQNEQ made = nullptr;
    const HRESULT status = QnEq_Init(&made, &format, settings.data(), static_cast<DWORD>(settings.size()), 0);
    handle_.reset(made);
    channels_ = channels;
    factor_ = std::pow(10, gain / 20);
    return status;
  }

  void Process(double* samples, uint32_t frames) override {
    QnEq_ProcessDouble(handle_.get(), samples, samples, frames);
    if (factor_ == 1) return;
    for (size_t i = 0; i < size_t{frames} * channels_; ++i) samples[i] *= factor_;
  }

 private:
  struct Close {
    void operator()(HQNEQ handle) const { QnEq_Close(handle); }
  };
  std::unique_ptr<tQNEQ, Close> handle_;
  size_t channels_ = 0;
  double factor_ = 1;
};

// "HZ,DB" and of a peak ",OCTAVES"; false with the mistake reported.
bool ReadBand(const char* option, QNEQ_TYPE type, std::string_view text, Job* job) {
  const auto values = Split(text, ',');
  const size_t mostValues = type == QNEQ_PEAK ? 3 : 2;
  const auto frequency = ParseNumber<double>(values[0], 1, kMostRate);
  const auto gain = ParseNumber<double>(values.size() > 1 ? values[1] : "", kLeastGain, kMostGain);
  const auto octaves = ParseNumber<double>(values.size() > 2 ? values[2] : "1", 0.1, 5);
  if (values.size() > mostValues || !frequency || !gain || !octaves) {
    return Mistaken("eq", "bad band " + Quoted(text) + " for --" + option +
                              " (HZ from 1, DB from -100 to 25" +
                              (type == QNEQ_PEAK ? ", OCTAVES from 0.1 to 5)" : ")"));
  }
  job->bands.push_back({type, *frequency, *gain, *octaves});
  return true;
}

// " -6 dB"
std::string GainText(double gain) {
  char text[32];
  std::snprintf(text, sizeof text, " %+g dB", gain);
  return text;
}

// "peak 50 Hz -6 dB"
std::string Describe(const Band& band) {
  constexpr const char* kTypes[] = {"low shelf", "peak", "high shelf"};
  return kTypes[band.type] + (" " + Hertz(band.frequency)) + GainText(band.gain);
}

bool ReadBands(const Arguments& arguments, Job* job) {
  struct Row {
    const char* option;
    QNEQ_TYPE type;
  };
  for (const auto& [option, type] :
       {Row{"low-shelf", QNEQ_LOWSHELF}, Row{"peak", QNEQ_PEAK}, Row{"high-shelf", QNEQ_HIGHSHELF}}) {
    for (const std::string_view text : arguments.Values(option)) {
      if (!ReadBand(option, type, text, job)) return false;
    }
  }
  for (const std::string_view name : arguments.Values("preset")) {
    const Preset* const preset = FindRow("eq", kPresets, "preset", name);
    if (!preset) return false;
    for (const Band& band : preset->bands) {
      if (band.frequency > 0) job->presetBands.push_back(band);
    }
    job->title += (job->title.empty() ? "Equaliser: " : ", ") + std::string(preset->name);
  }
  if (job->bands.empty() && job->presetBands.empty()) return Mistaken("eq", "a band or a --preset is needed");
  for (const Band& band : job->bands)
    job->title += (job->title.empty() ? "Equaliser: " : ", ") + Describe(band);
  if (!ReadNumber("eq", arguments, "gain", -100.0, 60.0, &job->gain)) return false;
  if (job->gain != 0) job->title += ", gain" + GainText(job->gain);
  return true;
}

// Adds those bands of presets that the rate reaches; false, and that is reported, when there is none.
bool AddPresets(Job* job) {
  const double half = job->source.format.rate / 2.0;
  const size_t before = job->bands.size();
  for (const Band& band : job->presetBands) {
    if (band.frequency < half) job->bands.push_back(band);
  }
  const size_t leftOut = job->presetBands.size() - (job->bands.size() - before);
  if (leftOut == 0) return true;
  if (leftOut < job->presetBands.size()) {
    ReportWarning(job->source.name, {messages::PresetBandsLeftOut, {Message::Number(leftOut)}});
    return true;
  }
  ReportError(job->source.name, E_INVALIDARG, {messages::NoPresetBand, {HertzMessage(half)}});
  return false;
}

int Run(const Arguments& arguments) {
  if (arguments.Has("lang")) DressNumbers();
  Job job;
  if (!ReadEffectOptions("eq", arguments, &job) || !ReadBands(arguments, &job)) return kExitUsage;
  int exitCode = OpenSource(arguments, arguments.Operands()[0], &job.source);
  if (exitCode != kExitOk) return exitCode;
  const AudioFormat& format = job.source.format;
  std::vector<double> edges;
  for (const Band& band : job.bands) {
    if (!IsBelowHalfRate(job.source, band.frequency)) return kExitFailed;
  }
  if (!AddPresets(&job)) return kExitFailed;
  for (const Band& band : job.bands) edges.push_back(band.frequency);
  exitCode = CompleteEffect("eq", arguments, 0, &job);
  if (exitCode != kExitOk) return exitCode;
  Equaliser equaliser, measured;
  LevelPlot plot;
  plot.title = job.title;
  HRESULT status = equaliser.Make(job.bands, job.gain, format.rate, format.channels);
  if (status == S_OK && job.HasPicture()) {
    status = measured.Make(job.bands, job.gain, format.rate, 1);
    if (status == S_OK) status = PlotResponse(&measured, format.rate, edges, &plot);
  }
  if (status == S_OK) return ApplyEffect(arguments, job, &equaliser, plot);
  ReportError(job.source.name, status);
  return kExitFailed;
}

}  // namespace

const Command kEqCommand = {
    "eq",
    "FILE [OUT]",
    "Write a file equalised, or draw the response of the equaliser.",
    "Shelves, peaks and presets work one after the other, in double precision; at least one is needed, and"
    " each can be given several times. Of a --preset the bands at or above half the sample rate are left out."
    " With --plot and without OUT the picture of the response at the rate of FILE is made alone.",
    kOptions,
    Run,
};

}  // namespace qnwave
