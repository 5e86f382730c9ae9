// qnwave levels: how loud files are.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/json.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/level_meter.h"
#include "tools/qnwave/position.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"json", nullptr, "print an array with one JSON object for each file"},
    {"clip-run", "N", "count clipped samples as a run from N in a row on (default: 1)"},
    {"format", "FORMAT", "show positions in one of the time formats that the manual lists"},
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kToEndOption,
    {"quiet", nullptr, "no progress bar"},
};

constexpr uint32_t kBlockBytes = 512 << 10;

struct Wish {
  uint32_t clipRun = 1;
  std::optional<_qnposfmt> format;
  bool asJson = false;
};

double Decibels(double level) {
  return 20 * std::log10(level);
}

// In the two digits that people read, without a minus in front of 0.
double ShownDecibels(double level) {
  return std::round(Decibels(level) * 100) / 100 + 0.0;
}

// Nothing is a level without decibels: silence, and a sum beyond all numbers.
void WriteLevel(JsonWriter* json, const std::string& key, double level) {
  std::isfinite(level) ? json->Real(key, level) : json->Null(key);
  const double decibels = Decibels(level);
  std::isfinite(decibels) ? json->Real(key + "Db", decibels) : json->Null(key + "Db");
}

void WriteLevels(JsonWriter* json, const AudioSource& source, const LevelMeter& meter, const Wish& wish) {
  json->BeginObject();
  json->String("file", source.name);
  json->String("type", FindSampleType(source.format.type)->name);
  json->Number("rate", source.format.rate);
  json->Number("frames", source.frames);
  json->Number("clipRun", wish.clipRun);
  json->BeginArray("channels");
  for (const ChannelLevel& level : meter.Levels()) {
    json->BeginObject();
    WriteLevel(json, "peak", level.peak);
    if (level.peak > 0) {
      json->Number("position", level.position);
      if (wish.format) {
        const std::string text = DescribeDuration(level.position, source.format.rate, &*wish.format);
        json->String("positionText", text);
      }
    } else {
      json->Null("position");
    }
    WriteLevel(json, "rms", meter.Rms(level));
    json->Number("clippedSamples", level.clippedSamples);
    json->Number("clippedRuns", level.clippedRuns);
    json->Number("notNumbers", level.notNumbers);
    json->EndObject();
  }
  json->EndArray();
  json->EndObject();
}

void PrintLevels(const AudioSource& source, const LevelMeter& meter, const Wish& wish) {
  std::printf("%s\n  %7s %9s %11s %9s %11s %11s  %s\n", Shown(source.name).c_str(), "Channel", "Peak dB",
              "Peak", "RMS dB", "Clipped", "Runs", "Position of the peak");
  for (size_t i = 0; i < meter.Levels().size(); ++i) {
    const ChannelLevel& level = meter.Levels()[i];
    const std::string position = level.peak > 0 ? DescribeDuration(level.position, source.format.rate,
                                                                   wish.format ? &*wish.format : nullptr)
                                                : "-";
    // What floats can reach would tear the columns apart.
    char peak[32];
    std::snprintf(peak, sizeof peak, level.peak < 10'000 ? "%.6f" : "%.4e", level.peak);
    std::printf("  %7zu %9.2f %11s %9.2f %11s %11s  %s\n", i, ShownDecibels(level.peak), peak,
                ShownDecibels(meter.Rms(level)), Grouped(level.clippedSamples).c_str(),
                Grouped(level.clippedRuns).c_str(), position.c_str());
    if (level.notNumbers != 0)
      std::printf("  %7s samples that are no numbers: %s\n", "", Grouped(level.notNumbers).c_str());
  }
}

// Reads a file to its end; an exit code, and what failed is reported.
int Measure(const AudioSource& source, uint32_t blockFrames, bool quiet, LevelMeter* meter) {
  AudioReader reader;
  if (!reader.Open(source)) return kExitFailed;
  std::vector<uint8_t> block(size_t{blockFrames} * source.format.FrameBytes());
  std::optional<Progress> progress;
  progress.emplace(source.name, std::max<uint64_t>(1, source.frames), quiet);
  uint32_t count = 0;
  for (uint64_t at = 0; at < source.frames; at += count) {
    const bool isInterrupted = InterruptSignal() != 0;
    count = static_cast<uint32_t>(std::min<uint64_t>(blockFrames, source.frames - at));
    if (isInterrupted || !reader.Read(at, block.data(), count)) {
      const HRESULT status = isInterrupted ? QN_E_CANCELLED : SystemStatus(QN_E_FILE_READ);
      progress.reset();
      ReportError(source.name, status);
      return kExitFailed;
    }
    meter->Take(block.data(), count);
    progress->Show(at + count);
  }
  return kExitOk;
}

// False with the mistake reported.
bool ReadOptions(const Arguments& arguments, Wish* wish) {
  wish->asJson = arguments.Has("json");
  std::string mistake;
  if (const auto run = arguments.Value("clip-run")) {
    const auto number = ParseNumber<uint32_t>(*run, 1, 0x7FFFFFFF);
    if (!number) mistake = "bad value " + Quoted(*run) + " for --clip-run";
    wish->clipRun = number.value_or(1);
  }
  if (const auto format = arguments.Value("format"); format && mistake.empty())
    wish->format = ReadTimeFormat(arguments, *format, &mistake);
  if (!mistake.empty()) ReportUsage("levels", mistake);
  return mistake.empty() && HasFormatForItsOptions("levels", arguments);
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    ReportUsage("levels", "no file is given");
    return kExitUsage;
  }
  Wish wish;
  if (!ReadOptions(arguments, &wish)) return kExitUsage;
  WatchInterrupts();
  JsonWriter json;
  json.BeginArray();
  int worst = kExitOk;
  for (const std::string& name : arguments.Operands()) {
    if (std::ferror(stdout)) break;  // nobody reads on
    AudioSource source;
    int result = OpenSource(arguments, name, &source);
    if (result == kExitOk) {
      const uint32_t frameBytes = std::max<uint32_t>(source.format.FrameBytes(), source.format.channels * 8);
      const uint32_t blockFrames = std::max(1u, kBlockBytes / frameBytes);
      LevelMeter meter(source.format, wish.clipRun, blockFrames);
      result = Measure(source, blockFrames, arguments.Has("quiet"), &meter);
      if (InterruptSignal() != 0) return kExitInterruptedBase + InterruptSignal();
      if (result == kExitOk && wish.asJson) WriteLevels(&json, source, meter, wish);
      if (result == kExitOk && !wish.asJson) PrintLevels(source, meter, wish);
    }
    // A failure outweighs damage.
    if (worst != kExitFailed && result != kExitOk) worst = result;
  }
  json.EndArray();
  if (wish.asJson) std::fputs(json.Text().c_str(), stdout);
  return worst;
}

}  // namespace

const Command kLevelsCommand = {
    "levels",
    "FILE...",
    "Show the peak, its position, the clipping and the RMS level of each channel.",
    "Decibels count from full scale; silence has -inf. Integers are clipped at full scale, floats above it.",
    kOptions,
    Run,
};

}  // namespace qnwave
