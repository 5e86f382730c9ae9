// qnwave filter: audio through a filter of the library, and the picture of its response.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "qn/settings/qnstatus.h"
#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/filter_bank.h"
#include "tools/qnwave/interrupt.h"
#include "tools/qnwave/option_values.h"
#include "tools/qnwave/picture_file.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/response_picture.h"
#include "tools/qnwave/sample_check.h"
#include "tools/qnwave/stream_copy.h"
#include "tools/qnwave/target.h"

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
    {"size", "WxH[@FACTOR]", "width and height of PICTURE and pixels for one of them (default 900x420)"},
    kThemeOption,
    kContainerOption,
    {"type", "TYPE", "sample type of OUT (default: that of FILE), as for convert"},
    kToEndOption,
    {"force", nullptr, "overwrite OUT and PICTURE, unless they are FILE itself"},
    kQuietOption,
};

struct Job {
  AudioSource source;
  Target target;  // without a name there is none
  PictureTarget picture;
  FilterDesign design;
  bool keepsDelay = false;
  std::string title;
  std::vector<double> edges;
};

bool Mistaken(const std::string& mistake) {
  ReportUsage("filter", mistake);
  return false;
}

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

// The row of an option's value; null with the mistake reported.
template <class Row, size_t count>
const Row* FindRow(const Row (&rows)[count], const char* option, std::string_view name) {
  const Row* const row = FindByName(rows, name);
  if (!row) Mistaken("bad value " + Quoted(name) + " for --" + option + " (one of " + NamesOf(rows) + ")");
  return row;
}

// False, and that is reported, when an option is given that the filter does not look at.
bool RefuseOthers(const Arguments& arguments, std::initializer_list<const char*> others,
                  const std::string& filter) {
  for (const char* const option : others) {
    if (arguments.Has(option)) return Mistaken("--" + std::string(option) + " is not for " + filter);
  }
  return true;
}

// "1.5 kHz"
std::string Hertz(double frequency) {
  char text[32];
  const bool isLarge = frequency >= 1000;
  std::snprintf(text, sizeof text, "%.6g %s", isLarge ? frequency / 1000 : frequency, isLarge ? "kHz" : "Hz");
  return text;
}

constexpr double kLeastFrequency = 1e-3;
constexpr double kMostFrequency = kMostRate;

bool ReadIir(const Arguments& arguments, const TypeRow& type, Job* job) {
  FilterDesign& design = job->design;
  const auto* const row = FindRow(kDesigns, "design", arguments.Value("design").value_or("butterworth"));
  if (!row || !RefuseOthers(arguments, {"frequency2", "taps", "window", "keep-delay"}, "--iir")) return false;
  design.iirType = type.iir;
  design.design = row->value;
  const bool isResonator = row->value == QNIIR_RESONATOR;
  if (isResonator && !type.isBand) return Mistaken("a resonator is a bandpass or a bandstop");
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
  const auto* const row = FindRow(kWindows, "window", arguments.Value("window").value_or("blackman"));
  if (!row || !RefuseOthers(arguments, {"design", "order", "width", "gain"}, "--fir")) return false;
  design.isFir = true;
  design.firType = type.fir;
  design.window = row->value;
  design.frequency2 = design.frequency;
  if (!ReadNumber<DWORD>("filter", arguments, "taps", 127, 32767, &design.taps) ||
      !ReadNumber("filter", arguments, "frequency2", kLeastFrequency, kMostFrequency, &design.frequency2)) {
    return false;
  }
  if (design.taps % 2 == 0) return Mistaken("--taps is an odd number");
  if (!type.isBand && !RefuseOthers(arguments, {"frequency2"}, type.name)) return false;
  if (type.isBand && design.frequency2 <= design.frequency)
    return Mistaken("a band needs --frequency2, above --frequency");
  job->title = std::string(type.words) + ", " + std::to_string(design.taps) + " taps, " + row->words + ", " +
               Hertz(design.frequency);
  if (type.isBand) job->title += " to " + Hertz(design.frequency2);
  return true;
}

// What does not depend on the file: false with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  const auto iir = arguments.Value("iir");
  const auto fir = arguments.Value("fir");
  if (iir.has_value() == fir.has_value()) return Mistaken("one of --iir and --fir is needed");
  const TypeRow* const type = FindRow(kTypes, iir ? "iir" : "fir", iir ? *iir : *fir);
  if (!type) return false;
  if (!arguments.Has("frequency")) return Mistaken("--frequency is needed");
  if (!ReadNumber("filter", arguments, "frequency", kLeastFrequency, kMostFrequency,
                  &job->design.frequency) ||
      !(iir ? ReadIir(arguments, *type, job) : ReadFir(arguments, *type, job))) {
    return false;
  }
  job->edges.push_back(job->design.frequency);
  if (fir && type->isBand) job->edges.push_back(job->design.frequency2);
  job->keepsDelay = arguments.Has("keep-delay");
  const bool hasTarget = !job->target.name.empty();
  if (hasTarget && (!ChooseContainer("filter", arguments, &job->target) ||
                    !ChooseType("filter", arguments, &job->target))) {
    return false;
  }
  if (!hasTarget && !RefuseOthers(arguments, {"container", "type", "keep-delay"}, "a picture alone"))
    return false;
  const auto plot = arguments.Value("plot");
  if (!plot) return RefuseOthers(arguments, {"size", "theme"}, "a filter without --plot");
  job->picture.name = *plot;
  job->picture.size = {900, 420, 1};
  PictureSize& size = job->picture.size;
  return ReadPictureTarget("filter", arguments, &job->picture) &&
         FitPicture("filter", &size, 420, kLeastResponseWidth, kLeastResponseHeight, 0);
}

// What depends on the file; false with the reason reported.
bool Complete(Job* job) {
  const AudioSource& source = job->source;
  for (const double edge : job->edges) {
    if (edge < source.format.rate / 2.0) continue;
    const auto text = [](double hertz) {
      char digits[32];
      std::snprintf(digits, sizeof digits, "%.10g", hertz);
      return Message(std::string(digits));
    };
    ReportError(source.name, E_INVALIDARG,
                {messages::FrequencyTooHigh, {text(edge), text(source.format.rate / 2.0)}});
    return false;
  }
  if (job->design.isFir && source.format.channels > FilterBank::kMostFirChannels) {
    ReportError(source.name, QN_E_FILE_UNSUPPORTED,
                {messages::FirChannels, {Message::Number(FilterBank::kMostFirChannels)}});
    return false;
  }
  const auto resolved = [](const std::string& name) {
    std::error_code ignored;
    return std::filesystem::weakly_canonical(std::filesystem::absolute(name, ignored), ignored);
  };
  for (const std::string& name : {job->target.name, job->picture.name}) {
    if (!name.empty() && !IsOtherFile(source, name)) return false;
  }
  if (!job->target.name.empty() && !job->picture.name.empty() &&
      resolved(job->target.name) == resolved(job->picture.name)) {
    ReportError(job->picture.name, QN_E_FILE_EXISTS,
                {messages::SameTarget, {Message(Quoted(job->target.name))}}, qntool::kSavingFiles);
    return false;
  }
  Target& target = job->target;
  const QNSAMPLETYPE asked = target.format.type;
  target.format = KeptFormat(source.format);
  if (asked != QNST_NONE) target.format.type = asked;
  target.frames = source.frames;
  return target.name.empty() || CheckSize(target);
}

// Reports a failure. Always false.
bool Fail(const std::string& file, HRESULT status) {
  if (status == E_INVALIDARG || status == E_FAIL)
    ReportError(file, status, messages::NoSuchFilter);
  else
    ReportError(file, status);
  return false;
}

// Filters all frames into a new file.
class Run {
 public:
  Run(const Job& job, bool quiet) : job_(job), quiet_(quiet) {}

  // Both report their failures.
  bool Prepare(bool overwrite);
  bool Write();

  bool Commit() { return output_.Commit(); }
  // What there was to warn of.
  void Warn() const {
    WarnOfSamples(job_.target.name, notNumbers_ + (toTarget_ ? toTarget_->NotNumbers() : 0), clipped_);
  }

 private:
  HRESULT WriteBlock(uint64_t first, const double* samples, uint32_t frames);
  // As long as the pieces of the longest filter, in which it is fastest, but not of any number of channels.
  static constexpr uint32_t kMostBlockFrames = 1 << 15;
  static constexpr uint32_t kMostBlockBytes = 8 << 20;

  const Job& job_;
  const bool quiet_;
  FilterBank bank_;
  AudioReader reader_;
  AudioOutput output_;
  uint32_t blockFrames_ = 0;
  std::optional<SampleConverter> toTarget_;
  std::vector<uint8_t> out_;
  uint64_t notNumbers_ = 0;
  uint64_t clipped_ = 0;
};

bool Run::Prepare(bool overwrite) {
  const AudioFormat& format = job_.source.format;
  const auto& [name, container, target, frames] = job_.target;
  const HRESULT status = bank_.Design(job_.design, format.rate, format.channels);
  if (status != S_OK) return Fail(job_.source.name, status);
  if (!reader_.Open(job_.source)) return Fail(job_.source.name, SystemStatus(QN_E_FILE_OPEN));
  if (!output_.Create(name, container, target, frames, overwrite)) return false;
  constexpr uint32_t kSampleBytes = sizeof(double);
  blockFrames_ = std::clamp(kMostBlockBytes / (kSampleBytes * format.channels), 1u, kMostBlockFrames);
  AudioFormat between = format;
  between.type = QNST_FLOAT64;
  toTarget_.emplace(between, target.type, ChannelMap(), 1.0f, blockFrames_);
  out_.resize(size_t{blockFrames_} * target.FrameBytes());
  return true;
}

HRESULT Run::WriteBlock(uint64_t first, const double* samples, uint32_t frames) {
  const AudioFormat& format = job_.target.format;
  clipped_ += CountClipped(samples, size_t{frames} * format.channels, format.type);
  toTarget_->Convert(out_.data(), samples, frames);
  return output_.Write(first, toTarget_->IsCopy() ? static_cast<const void*>(samples) : out_.data(), frames);
}

bool Run::Write() {
  const AudioSource& source = job_.source;
  const uint64_t late = job_.keepsDelay ? 0 : bank_.Delay();
  const uint64_t total = source.frames == 0 ? 0 : source.frames + late;
  SampleConverter toDouble(source.format, QNST_FLOAT64, {}, 1.0f, blockFrames_);
  const uint32_t channels = source.format.channels;
  std::vector<uint8_t> bytes(size_t{blockFrames_} * source.format.FrameBytes());
  std::vector<double> block(size_t{blockFrames_} * channels);
  Progress progress(job_.target.name, std::max<uint64_t>(total, 1), quiet_);
  for (uint64_t at = 0; at < total; at += blockFrames_) {
    if (InterruptSignal() != 0) return false;
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(blockFrames_, total - at));
    const auto held =
        static_cast<uint32_t>(at < source.frames ? std::min<uint64_t>(count, source.frames - at) : 0);
    if (held > 0 && !reader_.Read(at, bytes.data(), held))
      return Fail(source.name, SystemStatus(QN_E_FILE_READ));
    notNumbers_ += SilenceNotNumbers(bytes.data(), size_t{held} * channels, source.format.type);
    toDouble.Convert(block.data(), bytes.data(), held);
    // Silence behind the file brings out what the filter still holds.
    std::fill(block.begin() + static_cast<ptrdiff_t>(size_t{held} * channels), block.end(), 0.0);
    bank_.Process(block.data(), count);
    const auto early = static_cast<uint32_t>(at < late ? std::min<uint64_t>(count, late - at) : 0);
    if (early < count) {
      const HRESULT status =
          WriteBlock(at + early - late, block.data() + size_t{early} * channels, count - early);
      if (status != S_OK) return Fail(job_.target.name, status);
    }
    progress.Show(at + count);
  }
  return true;
}

int Filter(const Job& job, bool overwrite, bool quiet) {
  WatchInterrupts();
  PictureFile picture;
  const bool hasPicture = !job.picture.name.empty();
  const bool hasTarget = !job.target.name.empty();
  if (hasPicture) {
    std::vector<double> gains;
    const HRESULT status = MeasureResponse(job.design, job.source.format.rate, &gains);
    if (status != S_OK) {
      Fail(job.source.name, status);
      return kExitFailed;
    }
    if (!picture.Create(job.picture, overwrite)) return kExitFailed;
    const std::string details = "gain at a sample rate of " + Grouped(job.source.format.rate) + " Hz";
    DrawResponse(picture.GetCanvas(), *job.picture.theme, gains, job.source.format.rate, job.edges,
                 {job.title, details});
  }
  Run run(job, quiet);
  if (hasTarget) {
    const bool isWritten = run.Prepare(overwrite) && run.Write();
    if (InterruptSignal() != 0) return ReportInterrupt(job.target.name);
    if (!isWritten || !run.Commit()) return kExitFailed;
  }
  if (hasPicture && !picture.Commit()) return kExitFailed;
  run.Warn();
  if (hasTarget) TellWritten(job.target, quiet);
  if (hasPicture) TellPicture(job.picture, job.title, quiet);
  return kExitOk;
}

int RunFilter(const Arguments& arguments) {
  const auto& operands = arguments.Operands();
  if (operands.empty() || operands.size() > 2 || (operands.size() == 1 && !arguments.Has("plot"))) {
    Mistaken("FILE and OUT are needed, or FILE and --plot");
    return kExitUsage;
  }
  if (arguments.Has("lang")) DressNumbers();
  Job job;
  if (operands.size() == 2) job.target.name = operands[1];
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  const int exitCode = OpenSource(arguments, operands[0], &job.source);
  if (exitCode != kExitOk) return exitCode;
  return Complete(&job) ? Filter(job, arguments.Has("force"), arguments.Has("quiet")) : kExitFailed;
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
    RunFilter,
};

}  // namespace qnwave
