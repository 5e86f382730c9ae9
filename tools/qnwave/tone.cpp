// qnwave tone: test signals.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "qn/dsp/qnsine.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/position.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"
#include "tools/qnwave/sample_writer.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"frequency", "HZ", "a sine of this frequency (default: 1000); given again, a mix of them"},
    {"sweep", "FROM,TO", "a sine that goes from one frequency to another"},
    {"curve", "linear|log", "how the sweep goes: so many Hz, or so many octaves, a second (default: linear)"},
    {"level", "DB",
     "the peak of a sine, 0 being full scale (default: -6); once for all, or once for each --frequency"},
    {"duration", "POS", "length of OUT (default: 1.0, a second)"},
    {"fade", "POS", "length of a fade from silence at the start and of one to silence at the end"},
    kRateOption,
    {"channels", "N", "channels of OUT, which are all the same (default: 1)"},
    {"type", "TYPE", "sample type of OUT (default: s16), as convert has it"},
    kDitherOption,
    kShapeOption,
    kFormatOption,
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kContainerOption,
    kForceOption,
    kQuietOption,
};

struct Sine {
  double frequency = 0;
  double level = 0;
};

struct Job {
  Target target;
  DitherSettings dither;
  std::vector<Sine> sines;
  std::optional<double> sweepTo;  // of the one sine
  bool isLogarithmic = false;
  uint64_t fade = 0;
};

constexpr std::string_view kDefaultFrequency = "1000";

// A frequency that the rate has; false with the mistake reported.
bool ReadFrequency(std::string_view text, uint32_t rate, double* frequency) {
  constexpr double kLeast = 1e-3;
  const auto number = ParseNumber<double>(text, kLeast, rate / 2.0);
  if (!number || *number >= rate / 2.0) {
    return Mistaken("tone", "bad frequency " + Quoted(text) + " (Hz from 0.001 to below half the rate of " +
                                std::to_string(rate) + ")");
  }
  *frequency = *number;
  return true;
}

bool ReadSignal(const Arguments& arguments, uint32_t rate, Job* job) {
  const auto frequencies = arguments.Values("frequency");
  const auto levels = arguments.Values("level");
  job->sines.resize(std::max<size_t>(1, frequencies.size()));
  if (const auto sweep = arguments.Value("sweep")) {
    const auto ends = Split(*sweep, ',');
    if (!frequencies.empty()) return Mistaken("tone", "--sweep and --frequency do not go together");
    if (ends.size() != 2) return Mistaken("tone", Quoted(*sweep) + " is not FROM,TO");
    if (!ReadFrequency(ends[0], rate, &job->sines[0].frequency) ||
        !ReadFrequency(ends[1], rate, &job->sweepTo.emplace()))
      return false;
  } else {
    for (size_t i = 0; i < job->sines.size(); ++i) {
      if (!ReadFrequency(frequencies.empty() ? kDefaultFrequency : frequencies[i], rate,
                         &job->sines[i].frequency))
        return false;
    }
  }
  if (const auto curve = arguments.Value("curve")) {
    if (!job->sweepTo) return Mistaken("tone", "--curve goes with --sweep");
    job->isLogarithmic = *curve == "log";
    if (!job->isLogarithmic && *curve != "linear")
      return Mistaken("tone", "unknown curve " + Quoted(*curve) + " (linear or log)");
  }
  if (levels.size() > 1 && levels.size() != job->sines.size())
    return Mistaken("tone", "--level is given " + std::to_string(levels.size()) + " times for " +
                                std::to_string(job->sines.size()) +
                                (job->sines.size() == 1 ? " sine" : " sines"));
  for (size_t i = 0; i < job->sines.size(); ++i) {
    std::string mistake;
    const auto level = ParseGain(levels.empty() ? "-6" : levels[levels.size() == 1 ? 0 : i], &mistake);
    if (!level) return Mistaken("tone", mistake);
    job->sines[i].level = *level;
  }
  return true;
}

bool ReadOptions(const Arguments& arguments, Job* job) {
  AudioFormat& format = job->target.format;
  format = {QNST_PCM16, 48000, 1, 0};
  if (!HasFormatForItsOptions("tone", arguments) ||
      !ReadNumber<uint32_t>("tone", arguments, "rate", 1, kMostRate, &format.rate) ||
      !ChooseContainer("tone", arguments, &job->target) || !ChooseType("tone", arguments, &job->target) ||
      !ChooseDither("tone", arguments, &job->dither) ||
      !ReadNumber<uint32_t>("tone", arguments, "channels", 1, kMostFrameBytes / format.SampleBytes(),
                            &format.channels) ||
      !ReadSignal(arguments, format.rate, job))
    return false;
  std::optional<uint64_t> duration = format.rate, fade = 0;
  if (!ReadPosition("tone", arguments, "duration", true, format.rate, &duration) ||
      !ReadPosition("tone", arguments, "fade", true, format.rate, &fade))
    return false;
  if (*duration == 0) return Mistaken("tone", "--duration is 0");
  if (*fade > *duration / 2) return Mistaken("tone", "--fade is longer than half the duration");
  job->target.frames = *duration;
  job->fade = *fade;
  return true;
}

// The values of a job's signal, block by block.
class Signal {
 public:
  explicit Signal(const Job& job) : job_(job) {}

  // The frames from `first` on, of one channel.
  void Fill(uint64_t first, double* values, uint32_t frames) const;

 private:
  // Cycles since time 0, of which the whole ones do not count.
  long double SweepCycles(uint64_t frame) const;
  double Fade(uint64_t frame) const;

  const Job& job_;
};

long double Signal::SweepCycles(uint64_t frame) const {
  const long double rate = job_.target.format.rate;
  const long double time = frame / rate, length = job_.target.frames / rate;
  const long double from = job_.sines[0].frequency, to = *job_.sweepTo;
  if (!job_.isLogarithmic || from == to) return time * (from + (to - from) * time / (2 * length));
  const long double growth = std::log(to / from);
  return from * length / growth * std::expm1(growth * time / length);
}

double Signal::Fade(uint64_t frame) const {
  const uint64_t toEdge = std::min(frame, job_.target.frames - 1 - frame);
  return toEdge < job_.fade ? static_cast<double>(toEdge) / static_cast<double>(job_.fade) : 1;
}

void Signal::Fill(uint64_t first, double* values, uint32_t frames) const {
  constexpr double kTurn = 2 * std::numbers::pi;
  std::fill_n(values, frames, 0.0);
  if (job_.sweepTo) {
    for (uint32_t i = 0; i < frames; ++i) {
      const auto cycles = static_cast<double>(std::fmod(SweepCycles(first + i), 1));
      values[i] = job_.sines[0].level * std::sin(kTurn * cycles);
    }
  } else {
    for (const Sine& sine : job_.sines) {
      // Each block starts at the exact phase, so that long files do not lose it.
      const long double rate = job_.target.format.rate;
      const long double cycles = std::fmod(static_cast<long double>(first) * sine.frequency, rate) / rate;
      constexpr LONG kSeedSteps = 1024;  // so that low frequencies stay exact too
      CSineOscillator oscillator(kTurn * sine.frequency / job_.target.format.rate,
                                 kTurn * static_cast<double>(cycles), 0, kSeedSteps);
      for (uint32_t i = 0; i < frames; ++i)
        values[i] += sine.level * oscillator.FindNthSine(static_cast<LONG>(i));
    }
  }
  if (job_.fade == 0) return;
  for (uint32_t i = 0; i < frames; ++i) values[i] *= Fade(first + i);
}

// Writes the signal under a progress bar; an exit code.
int WriteTone(const Job& job, bool overwrite, bool quiet) {
  const auto& [name, container, format, frames] = job.target;
  WatchInterrupts();
  AudioOutput output;
  if (!output.Create(name, container, format, frames, overwrite)) return kExitFailed;
  constexpr uint32_t kBlockBytes = 512 << 10;
  const uint32_t blockFrames = kBlockBytes / static_cast<uint32_t>(sizeof(double)) / format.channels;
  const uint32_t mostFrames = std::max(1u, blockFrames);
  SampleWriter writer(&output, format, QNST_FLOAT64, mostFrames, job.dither);
  const Signal signal(job);
  std::vector<double> values(mostFrames);
  std::vector<double> block(size_t{mostFrames} * format.channels);
  std::optional<Progress> progress;
  progress.emplace(name, std::max<uint64_t>(1, frames), quiet);
  uint32_t count = 0;
  for (uint64_t at = 0; at < frames; at += count) {
    if (InterruptSignal() != 0) {
      progress.reset();
      return ReportInterrupt(name);
    }
    count = static_cast<uint32_t>(std::min<uint64_t>(mostFrames, frames - at));
    signal.Fill(at, values.data(), count);
    for (uint32_t i = 0; i < count; ++i)
      std::fill_n(block.data() + size_t{i} * format.channels, format.channels, values[i]);
    const HRESULT status = writer.Write(at, block.data(), count);
    if (status != S_OK) {
      progress.reset();
      ReportError(name, status);
      return kExitFailed;
    }
    progress->Show(at + count);
  }
  progress.reset();
  if (!output.Commit()) return kExitFailed;
  WarnOfSamples(name, writer.NotNumbers(), writer.Clipped());
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 1) {
    ReportUsage("tone", "one file is needed: OUT");
    return kExitUsage;
  }
  Job job;
  job.target.name = arguments.Operands()[0];
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  int exitCode = CheckDither("tone", arguments, job.dither, job.target);
  if (exitCode != kExitOk) return exitCode;
  if (!CheckSize(job.target)) return kExitFailed;
  const bool quiet = arguments.Has("quiet");
  exitCode = WriteTone(job, arguments.Has("force"), quiet);
  if (exitCode == kExitOk) TellWritten(job.target, quiet);
  return exitCode;
}

}  // namespace

const Command kToneCommand = {
    "tone",
    "OUT",
    "Write a test signal: sines, or a sweep.",
    "A POS is read as cut reads it. OUT is written beside its place under another name and moved there when "
    "it is whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
