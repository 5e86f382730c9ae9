#include "tools/qnwave/target.h"

#include <cstdio>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/wave_header.h"

namespace qnwave {

bool ChooseContainer(const char* command, const Arguments& arguments, Target* target) {
  const auto asked = arguments.Value("container");
  Container& container = target->container;
  container = Container::kUnknown;
  if (arguments.Has("raw-out")) {
    if (asked) ReportUsage(command, "--raw-out writes no container");
    return !asked;
  }
  if (asked) {
    if (*asked == "wav") container = Container::kWav;
    if (*asked == "w64") container = Container::kWave64;
    if (container == Container::kUnknown) ReportUsage(command, "unknown container " + Quoted(*asked));
  } else {
    for (const char* const ending : {".wav", ".WAV", ".wave"}) {
      if (target->name.ends_with(ending)) container = Container::kWav;
    }
    for (const char* const ending : {".w64", ".W64"}) {
      if (target->name.ends_with(ending)) container = Container::kWave64;
    }
    if (container == Container::kUnknown) {
      ReportUsage(command, "the name " + Quoted(target->name) +
                               " tells no container: end it in .wav or .w64, or give --container");
    }
  }
  return container != Container::kUnknown;
}

bool ChooseType(const char* command, const Arguments& arguments, Target* target) {
  const auto type = arguments.Value("type");
  if (!type) return true;
  const SampleTypeRow* const row = FindSampleType(*type);
  if (row) {
    target->format.type = row->type;
  } else {
    ReportUsage(command, "unknown sample type " + Quoted(*type) + " (one of " + SampleTypeNames() + ")");
  }
  return row != nullptr;
}

bool CheckSize(const Target& target) {
  const auto& [name, container, format, frames] = target;
  // As long as Wave64 can be, the size of a file without a header can be computed too.
  if (!CanHold(Container::kWave64, format, frames)) {
    ReportError(name, QN_E_FILE_TOO_LARGE, {messages::FileTooLarge, {Message::Bytes(kMostFileBytes)}},
                qntool::kSavingFiles);
    return false;
  }
  if (container != Container::kWav || CanHold(container, format, frames)) return true;
  ReportError(name, QN_E_FILE_TOO_LARGE,
              {messages::WavTooLarge, {Message::Bytes(WaveFileBytes(container, format, frames))}},
              qntool::kSavingFiles);
  return false;
}

int ReportInterrupt(const std::string& target) {
  ReportError(target, QN_E_CANCELLED, messages::NothingWritten);
  return kExitInterruptedBase + InterruptSignal();
}

std::string DescribeFrames(uint64_t frames) {
  return Grouped(frames) + (frames == 1 ? " frame" : " frames");
}

void TellWritten(const Target& target, bool quiet) {
  const SampleTypeRow& row = *FindSampleType(target.format.type);
  if (row.common != row.type && target.container != Container::kUnknown) {
    ReportWarning(target.name, {messages::PrivateTag, {Message(row.name)}});
  }
  if (quiet) return;
  std::printf("%s: %s, %s, %s, %u Hz\n", Shown(target.name).c_str(), DescribeFrames(target.frames).c_str(),
              row.words, DescribeChannels(target.format.channels).c_str(), target.format.rate);
}

}  // namespace qnwave
