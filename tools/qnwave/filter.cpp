// qnwave filter: audio through a filter of the library, and the picture of its response.
#include <cstdio>
#include <vector>

#include "qn/settings/qnstatus.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/effect_command.h"
#include "tools/qnwave/filter_bank.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/response.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"iir", "TYPE", "a recursive filter: lowpass, highpass, bandpass or bandstop"},
    {"fir", "TYPE", "a filter of linear phase, of the same types"},
    {"frequency", "HZ",
     "the corner, or the centre of the band; of a FIR filter the edge, or the lower edge of the band"},
    {"frequency2", "HZ", "the upper edge of the band of a FIR filter"},
    {"design", "NAME",
     "butterworth, chebyshev (ripple of 0.5 dB), bessel or, for bands, resonator (default butterworth)"},
    {"order", "N", "1 to 15, of bessel to 10 (default 4); bands have twice as many poles"},
    {"width", "WIDTH",
     "of the band, in octaves (0.01 to 10), of a resonator its Q (0.1 to 1000) (default 1)"},
    {"gain", "DB",
     "add the band to the signal with this gain in its middle, -100 to 60, in place of the band alone"},
    {"taps", "N", "taps of a FIR filter, an odd number from 127 to 32767 (default 1023)"},
    {"window", "NAME",
     "rectangular, triangular, hamming, hann, blackman or blackman-harris (default blackman)"},
    {"keep-delay", nullptr, "leave the audio as late as a FIR filter makes it, (taps - 1) / 2 frames"},
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

struct Job : EffectJob {
  FilterDesign design;
  std::string title;
  std::vector<double> edges;
};

struct TypeRow {
  const char* name;
  const char* words;
  QNIIR_TYPE iir;
  QNFIR_TYPE fir;
  bool isBand;
};

constexpr TypeRow kTypes[] = {{"lowpass", "Low-pass", QNIIR_LOWPASS, QNFIR_LOWPASS, false},
                              {"highpass", "High-pass", QNIIR_HIGHPASS, QNFIR_HIGHPASS, false},
                              {"bandpass", "Band-pass", QNIIR_BANDPASS, QNFIR_BANDPASS, true},
                              {"bandstop", "Band-stop", QNIIR_BANDSTOP, QNFIR_BANDSTOP, true}};

template <class Value>
struct NameRow {
  const char* name;
  const char* words;
  Value value;
};

constexpr NameRow<QNIIR_DESIGN> kDesigns[] = {{"butterworth", "Butterworth", QNIIR_BUTTERWORTH},
                                              {"chebyshev", "Chebyshev", QNIIR_CHEBYSHEV},
                                              {"bessel", "Bessel", QNIIR_BESSEL},
                                              {"resonator", "resonator", QNIIR_RESONATOR}};

constexpr NameRow<QNFIR_WINDOW> kWindows[] = {
    {"rectangular", "rectangular", QNFIR_RECTANGULAR},
    {"triangular", "triangular", QNFIR_TRIANGULAR},
    {"hamming", "Hamming", QNFIR_HAMMING},
    {"hann", "Hann", QNFIR_HANN},
    {"blackman", "Blackman", QNFIR_BLACKMAN},
    {"blackman-harris", "Blackman-Harris", QNFIR_BLACKMANHARRIS},
};

bool RefuseOthers(const Arguments& arguments, std::initializer_list<const char*> others,
                  const std::string& filter) {
  return RefuseOptions("filter", arguments, others, filter);
}

constexpr double kLeastFrequency = 1e-3;
constexpr double kMostFrequency = kMostRate;

bool ReadIir(const Arguments& arguments, const TypeRow& type, Job* job) {
  FilterDesign& design = job->design;
  const auto* const row =
      FindRow("filter", kDesigns, "design", arguments.Value("design").value_or("butterworth"));
  if (!row || !RefuseOthers(arguments, {"frequency2", "taps", "window", "keep-delay"}, "--iir")) return false;
  design.iirType = type.iir;
  design.design = row->value;
  const bool isResonator = row->value == QNIIR_RESONATOR;
  if (isResonator && !type.isBand) return Mistaken("filter", "a resonator is a bandpass or a bandstop");
  if (isResonator && !RefuseOthers(arguments, {"order"}, "a resonator")) return false;
  if (!type.isBand && !RefuseOthers(arguments, {"width"}, type.name)) return false;
  const DWORD mostOrder = row->value == QNIIR_BESSEL ? 10 : 15;
  if (!ReadNumber<DWORD>("filter", arguments, "order", 1, mostOrder, &design.order) ||
      !ReadNumber("filter", arguments, "width", isResonator ? 0.1 : 0.01, isResonator ? 1000.0 : 10.0,
                  &design.width) ||
      !ReadNumber("filter", arguments, "gain", -100.0, 60.0, &design.gain)) {
    return false;
  }
  char text[128];
  std::snprintf(text, sizeof text, "%s, %s", type.words, row->words);
  job->title = text;
  if (!isResonator) job->title += " of order " + std::to_string(design.order);
  job->title += ", " + Hertz(design.frequency);
  if (type.isBand) {
    std::snprintf(text, sizeof text, isResonator ? ", Q %g" : ", %g oct", design.width);
    job->title += text;
  }
  if (design.gain != 0) {
    std::snprintf(text, sizeof text, ", %+g dB", design.gain);
    job->title += text;
  }
  return true;
}

bool ReadFir(const Arguments& arguments, const TypeRow& type, Job* job) {
  FilterDesign& design = job->design;
  const auto* const row =
      FindRow("filter", kWindows, "window", arguments.Value("window").value_or("blackman"));
  if (!row || !RefuseOthers(arguments, {"design", "order", "width", "gain"}, "--fir")) return false;
  design.isFir = true;
  design.firType = type.fir;
  design.window = row->value;
  design.frequency2 = design.frequency;
  if (!ReadNumber<DWORD>("filter", arguments, "taps", 127, 32767, &design.taps) ||
      !ReadNumber("filter", arguments, "frequency2", kLeastFrequency, kMostFrequency, &design.frequency2)) {
    return false;
  }
  if (design.taps % 2 == 0) return Mistaken("filter", "--taps is an odd number");
  if (!type.isBand && !RefuseOthers(arguments, {"frequency2"}, type.name)) return false;
  if (type.isBand && design.frequency2 <= design.frequency)
    return Mistaken("filter", "a band needs --frequency2, above --frequency");
  job->title = std::string(type.words) + ", " + std::to_string(design.taps) + " taps, " + row->words + ", " +
               Hertz(design.frequency);
  if (type.isBand) job->title += " to " + Hertz(design.frequency2);
  return true;
}

// What does not depend on the file: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  const auto iir = arguments.Value("iir");
  const auto fir = arguments.Value("fir");
  if (iir.has_value() == fir.has_value()) return Mistaken("filter", "one of --iir and --fir is needed");
  const TypeRow* const type = FindRow("filter", kTypes, iir ? "iir" : "fir", iir ? *iir : *fir);
  if (!type) return false;
  if (!arguments.Has("frequency")) return Mistaken("filter", "--frequency is needed");
  if (!ReadNumber("filter", arguments, "frequency", kLeastFrequency, kMostFrequency,
                  &job->design.frequency) ||
      !(iir ? ReadIir(arguments, *type, job) : ReadFir(arguments, *type, job))) {
    return false;
  }
  job->edges.push_back(job->design.frequency);
  if (fir && type->isBand) job->edges.push_back(job->design.frequency2);
  job->keepsDelay = arguments.Has("keep-delay");
  return true;
}

// What depends on the file; false with the reason reported.
bool SuitsSource(const Job& job) {
  for (const double edge : job.edges) {
    if (!IsBelowHalfRate(job.source, edge)) return false;
  }
  if (job.design.isFir && job.source.format.channels > FilterBank::kMostFirChannels) {
    ReportError(job.source.name, QN_E_FILE_UNSUPPORTED,
                {messages::FirChannels, {Message::Number(FilterBank::kMostFirChannels)}});
    return false;
  }
  return true;
}

// Reports a failure.
int Fail(const std::string& file, HRESULT status) {
  if (status == E_INVALIDARG || status == E_FAIL)
    ReportError(file, E_INVALIDARG, messages::NoSuchFilter);
  else
    ReportError(file, status);
  return kExitFailed;
}

int Run(const Arguments& arguments) {
  if (arguments.Has("lang")) DressNumbers();
  Job job;
  if (!ReadEffectOptions("filter", arguments, &job) || !ReadOptions(arguments, &job)) return kExitUsage;
  int exitCode = OpenSource(arguments, arguments.Operands()[0], &job.source);
  if (exitCode == kExitOk && !SuitsSource(job)) exitCode = kExitFailed;
  if (exitCode == kExitOk) exitCode = CompleteEffect("filter", arguments, 0, &job);
  if (exitCode != kExitOk) return exitCode;
  const AudioFormat& format = job.source.format;
  FilterBank bank, measured;
  LevelPlot plot;
  plot.title = job.title;
  HRESULT status = S_OK;
  if (job.HasTarget()) status = bank.Design(job.design, format.rate, format.channels);
  if (status == S_OK && job.HasPicture()) {
    status = measured.Design(job.design, format.rate, 1);
    if (status == S_OK) status = PlotResponse(&measured, format.rate, job.edges, &plot);
  }
  return status == S_OK ? ApplyEffect(arguments, job, &bank, plot) : Fail(job.source.name, status);
}

}  // namespace

const Command kFilterCommand = {
    "filter",
    "FILE [OUT]",
    "Write a file filtered, or draw the response of the filter.",
    "One of --iir and --fir, and --frequency, tell the filter. It computes in double precision, and every"
    " channel is filtered by itself. The audio of a FIR filter is moved back to where it was. With --plot and"
    " without OUT the picture of the response at the rate of FILE is made alone.",
    kOptions,
    Run,
};

}  // namespace qnwave
