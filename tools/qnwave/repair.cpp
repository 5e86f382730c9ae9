// qnwave repair: a damaged header is put right, a healthy file stays as it is.
#include <cstdio>
#include <string>
#include <vector>

#include "qn/audio/qnwaveformat.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/options.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/header_repair.h"
#include "tools/qnwave/layout.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"dry-run", nullptr, "say what is wrong and what would be done, change nothing"},
    {"no-backup", nullptr, "keep no copy of the header in FILE.header.bak"},
    {"format", "TYPE,RATE,CHANNELS",
     "the format for what the header does not tell any more (default:"
     " s16,44100,2)"},
    {"type", "TYPE", "its sample type alone: u8, s16, s24, s32, f32 or f64"},
    {"rate", "HZ", "its rate alone"},
    {"channels", "COUNT", "its channels alone"},
    {"limit", "BYTES",
     "the largest offset at which the samples may start (default: a data chunk is searched for"
     " in the first 1,048,576 bytes)"},
    {"container", "wav|w64",
     "what a file is whose start is lost (default: what is left of it and its name tell)"},
};

// False with the mistake reported.
bool ReadOptions(const Arguments& arguments, RepairOptions* options, Container* container) {
  const auto mistaken = [](const std::string& mistake) {
    ReportUsage("repair", mistake);
    return false;
  };
  AudioFormat& defaults = options->defaults;
  defaults = {QNST_PCM16, 44100, 2, 0};
  std::string mistake;
  if (const auto text = arguments.Value("format")) {
    const auto format = ParseAudioFormat(*text, nullptr, &mistake);
    if (!format) return mistaken(mistake);
    defaults = *format;
  }
  if (const auto text = arguments.Value("type")) {
    const SampleTypeRow* const row = FindSampleType(*text);
    if (!row) return mistaken("unknown sample type " + Quoted(*text));
    defaults.type = row->type;
  }
  if (FindSampleType(defaults.type)->common != defaults.type) {
    return mistaken("the type for a repair is u8, s16, s24, s32, f32 or f64");
  }
  if (const auto text = arguments.Value("rate")) {
    const auto rate = ParseNumber<uint32_t>(*text, 1, kMostRate);
    if (!rate) return mistaken("bad rate " + Quoted(*text));
    defaults.rate = *rate;
  }
  if (const auto text = arguments.Value("channels")) {
    const auto channels = ParseNumber<uint32_t>(*text, 1, kMostFrameBytes / defaults.SampleBytes());
    if (!channels) return mistaken("bad channel count " + Quoted(*text));
    defaults.channels = *channels;
  }
  if (const auto text = arguments.Value("limit")) {
    options->limit = ParseNumber<uint64_t>(*text, 0, UINT32_MAX);
    if (!options->limit) return mistaken("bad limit " + Quoted(*text));
  }
  if (const auto text = arguments.Value("container")) {
    *container = *text == "wav" ? Container::kWav : *text == "w64" ? Container::kWave64 : Container::kUnknown;
    if (*container == Container::kUnknown) return mistaken("unknown container " + Quoted(*text));
  }
  return true;
}

// A copy of the header under a name of its own; an older copy is never overwritten. The result is the name,
// empty after a failure, which is reported.
std::string WriteBackup(const std::string& name, const std::vector<uint8_t>& header) {
  constexpr int kTries = 100;
  for (int i = 0; i < kTries; ++i) {
    const std::string backup = name + ".header.bak" + (i == 0 ? "" : "." + std::to_string(i));
    const File file = File::CreateNew(backup);
    if (!file && GetLastError() == ERROR_FILE_EXISTS) continue;
    // It has to be on the disk before the header is touched.
    if (file && file.WriteAt(0, header.data(), static_cast<uint32_t>(header.size())) &&
        FlushFileBuffers(file.Get())) {
      return backup;
    }
    ReportError(backup, SystemStatus(QN_E_FILE_WRITE), {}, qntool::kWritingFile);
    return std::string();
  }
  ReportError(name, QN_E_FILE_EXISTS, messages::TooManyBackups);
  return std::string();
}

int RepairFile(const std::string& name, const Layout& layout, const RepairPlan& plan,
               const RepairOptions& options, bool keepBackup) {
  const File file = File::ForChange(name);
  if (!file) return kExitFailed;
  std::vector<uint8_t> header(plan.start);
  if (!file.ReadAt(0, header.data(), static_cast<uint32_t>(header.size()))) {
    ReportError(name, SystemStatus(QN_E_FILE_READ));
    return kExitFailed;
  }
  std::string backup;
  if (keepBackup && (backup = WriteBackup(name, header)).empty()) return kExitFailed;

  // From here to the end the header is not whole: no signal ends the process in between.
  WatchInterrupts();
  const HRESULT status = CarryOut(file, layout, plan, options);
  const Layout after = ReadLayout(file, name, layout.container);
  if (status != S_OK || after.IsDamaged() || after.dataStart != plan.start) {
    const bool restored = file.WriteAt(0, header.data(), static_cast<uint32_t>(header.size()));
    ReportError(name, status != S_OK ? status : QN_E_FILE_FORMAT,
                restored ? messages::HeaderKept : messages::HeaderLost);
    return kExitFailed;
  }
  const WAVEFORMATEX& format = after.record.Format;
  const std::string shown = Shown(name);
  std::printf("%s: repaired: %s.\n", shown.c_str(), plan.done.c_str());
  std::printf("%s: %s, %s, %u Hz: ", shown.c_str(), DescribeFormat(after.record).c_str(),
              DescribeChannels(format.nChannels).c_str(), format.nSamplesPerSec);
  // The bytes of a compressed format make no frames.
  if (QnAudio_IsCompressed(&format) || format.nBlockAlign == 0) {
    std::printf("%s of data.", Bytes(after.dataBytes).c_str());
  } else {
    const uint64_t frames = after.dataBytes / format.nBlockAlign;
    std::printf("%s %s, %s.", Grouped(frames).c_str(), frames == 1 ? "frame" : "frames",
                DescribeDuration(frames, format.nSamplesPerSec).c_str());
  }
  std::printf(" No sample has moved.\n");
  if (!backup.empty()) std::printf("%s: the old header is in %s\n", shown.c_str(), Shown(backup).c_str());
  return kExitOk;
}

int Repair(const std::string& name, const RepairOptions& options, Container container,
           const Arguments& arguments) {
  Layout layout;
  std::optional<RepairPlan> plan;
  Message obstacle;
  {
    const File file = File::ForReading(name);
    if (!file) return kExitFailed;
    layout = ReadLayout(file, name, container);
    if (layout.container == Container::kUnknown || layout.container == Container::kOther) {
      ReportError(name, QN_E_FILE_FORMAT,
                  layout.container == Container::kOther ? messages::NoWaveFile : messages::ContainerNotTold);
      return kExitFailed;
    }
    if (!layout.IsRepairable()) {
      ReportError(name, QN_E_FILE_UNSUPPORTED,
                  {messages::NotRepaired, {Message(ContainerName(layout.container))}});
      return kExitFailed;
    }
    if (layout.IsDamaged()) plan = PlanRepair(file, layout, options, &obstacle);
  }
  const std::string shown = Shown(name);
  if (!layout.IsDamaged()) {
    std::printf("%s: healthy; nothing to do.\n", shown.c_str());
    return kExitOk;
  }
  for (const Problem& problem : layout.problems)
    std::printf("%s: %s\n", shown.c_str(), problem.text.Shown().c_str());
  if (!plan) {
    ReportError(name, QN_E_FILE_FORMAT, obstacle);
    return kExitFailed;
  }
  if (arguments.Has("dry-run")) {
    std::printf("%s: would be repaired: %s.\n", shown.c_str(), plan->done.c_str());
    return kExitDamaged;
  }
  return RepairFile(name, layout, *plan, options, !arguments.Has("no-backup"));
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    ReportUsage("repair", "no file is given");
    return kExitUsage;
  }
  RepairOptions options;
  Container container = Container::kUnknown;
  if (!ReadOptions(arguments, &options, &container)) return kExitUsage;
  int worst = kExitOk;
  for (const std::string& name : arguments.Operands()) {
    const int result = Repair(name, options, container, arguments);
    // A failure outweighs damage that a dry run found.
    if (worst != kExitFailed && result != kExitOk) worst = result;
    if (InterruptSignal() != 0) return kExitInterruptedBase + InterruptSignal();
  }
  return worst;
}

}  // namespace

const Command kRepairCommand = {
    "repair",
    "FILE...",
    "Put a damaged header right; no sample moves.",
    "A healthy file stays as it is. Where only sizes or ids are wrong they alone are set. A header that is "
    "lost is"
    " written anew, with what is left of the format and the defaults below for the rest.",
    kOptions,
    Run,
};

}  // namespace qnwave
