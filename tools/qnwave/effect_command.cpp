#include "tools/qnwave/effect_command.h"

#include <cmath>
#include <cstdio>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"

namespace qnwave {

bool RefuseOptions(const char* command, const Arguments& arguments,
                   std::initializer_list<const char*> options, const std::string& what) {
  for (const char* const option : options) {
    if (!arguments.Has(option)) continue;
    ReportUsage(command, "--" + std::string(option) + " is not for " + what);
    return false;
  }
  return true;
}

bool ReadEffectOptions(const char* command, const Arguments& arguments, EffectJob* job) {
  const auto& operands = arguments.Operands();
  const auto plot = arguments.Value("plot");
  if (operands.empty() || operands.size() > 2 || (operands.size() == 1 && !plot)) {
    ReportUsage(command, "FILE and OUT are needed, or FILE and --plot");
    return false;
  }
  if (operands.size() == 2) {
    job->target.name = operands[1];
    if (!ChooseContainer(command, arguments, &job->target) || !ChooseType(command, arguments, &job->target) ||
        !ChooseDither(command, arguments, &job->dither))
      return false;
  } else if (!RefuseOptions(command, arguments,
                            {"container", "type", "dither", "shape", "keep-delay", "tail"},
                            "a picture alone")) {
    return false;
  }
  if (!plot)
    return RefuseOptions(command, arguments, {"size", "theme"}, std::string(command) + " without --plot");
  job->picture.name = *plot;
  job->picture.size = {900, 420, 1};
  return ReadPictureTarget(command, arguments, &job->picture) &&
         FitPicture(command, &job->picture.size, 420, kLeastPlotWidth, kLeastPlotHeight, 0);
}

bool ReadUnits(const char* command, const Arguments& arguments, const char* option, double lowest,
               double highest, double units, std::optional<LONG> none, LONG* value) {
  const auto text = arguments.Value(option);
  if (!text) return true;
  if (none && *text == "none") {
    *value = *none;
    return true;
  }
  const auto number = ParseNumber<double>(*text, lowest, highest);
  constexpr double kRounding = 1e-6;  // of decimal fractions
  if (number && std::fabs(*number * units - std::round(*number * units)) < kRounding) {
    *value = static_cast<LONG>(std::lround(*number * units));
    return true;
  }
  char step[48];
  std::snprintf(step, sizeof step, " in steps of %g%s", 1 / units, none ? ", or none" : "");
  return ReportBadValue(command, option, *text, LimitsText(lowest, highest) + step);
}

Message HertzMessage(double frequency) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%.10g", frequency);
  return Message(std::string(digits));
}

bool IsBelowHalfRate(const AudioSource& source, double hertz) {
  const double half = source.format.rate / 2.0;
  if (hertz < half) return true;
  ReportError(source.name, E_INVALIDARG,
              {messages::FrequencyTooHigh, {HertzMessage(hertz), HertzMessage(half)}});
  return false;
}

bool IsMonoOrStereo(const AudioSource& source, const char* what) {
  if (source.format.channels <= 2) return true;
  ReportError(source.name, QN_E_FILE_UNSUPPORTED, {messages::MonoOrStereo, {Message(std::string(what))}});
  return false;
}

int CompleteEffect(const char* command, const Arguments& arguments, uint64_t tail, EffectJob* job) {
  const AudioSource& source = job->source;
  Target& target = job->target;
  for (const std::string& name : {target.name, job->picture.name}) {
    if (!name.empty() && !IsOtherFile(source, name)) return kExitFailed;
  }
  if (!job->HasTarget()) return kExitOk;
  const QNSAMPLETYPE asked = target.format.type;
  target.format = KeptFormat(source.format);
  if (asked != QNST_NONE) target.format.type = asked;
  target.frames = source.frames + tail;
  const int exitCode = CheckDither(command, arguments, job->dither, target);
  return exitCode == kExitOk && !CheckSize(target) ? kExitFailed : exitCode;
}

int ApplyEffect(const Arguments& arguments, const EffectJob& job, Effect* effect, const LevelPlot& plot) {
  const bool overwrite = arguments.Has("force");
  const bool quiet = arguments.Has("quiet");
  WatchInterrupts();
  PictureFile picture;
  std::optional<EffectRun> run;
  if (job.HasPicture() && !picture.Create(job.picture, overwrite)) return kExitFailed;
  if (job.HasTarget()) {
    run.emplace(job.source, job.target, job.dither, job.keepsDelay, effect);
    if (!run->Prepare(overwrite)) return kExitFailed;
  }
  // Links may lead both names to one file, where the second would take the place of the first.
  if (run && job.HasPicture() && run->Resolved() == picture.Resolved()) {
    ReportError(job.picture.name, QN_E_FILE_EXISTS,
                {messages::SameTarget, {Message(Quoted(job.target.name))}}, qntool::kSavingFiles);
    return kExitFailed;
  }
  // The picture is whole before the long work, and both have their names only when both are whole.
  bool isWritten = true;
  if (job.HasPicture()) {
    DrawLevelPlot(picture.GetCanvas(), *job.picture.theme, plot);
    isWritten = picture.Finish();
  }
  if (isWritten && run) isWritten = run->Write(quiet);
  if (InterruptSignal() != 0) return ReportInterrupt(job.HasTarget() ? job.target.name : job.picture.name);
  if (!isWritten || (run && !run->Commit())) return kExitFailed;
  if (run) {
    run->Warn();
    TellWritten(job.target, quiet);
  }
  if (!job.HasPicture()) return kExitOk;
  if (!picture.Commit()) {
    if (run)
      ReportWarning(job.picture.name, {messages::TargetsStand, {Message::Number(1), Message::Number(2)}});
    return kExitFailed;
  }
  TellPicture(job.picture, plot.title, quiet);
  return kExitOk;
}

std::string Hertz(double frequency) {
  char text[32];
  const bool isLarge = frequency >= 1000;
  std::snprintf(text, sizeof text, "%.6g %s", isLarge ? frequency / 1000 : frequency, isLarge ? "kHz" : "Hz");
  return text;
}

}  // namespace qnwave
