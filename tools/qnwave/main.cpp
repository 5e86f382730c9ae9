// qnwave: wave files on the command line. Finds the sub-command and runs it.
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "tools/common/options.h"
#include "tools/common/tool.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr const Command* kCommands[] = {
    &kInfoCommand,     &kConvertCommand,  &kCutCommand,    &kJoinCommand, &kSplitCommand,
    &kMixCommand,      &kLevelsCommand,   &kRepairCommand, &kTagsCommand, &kPeaksCommand,
    &kDrawCommand,     &kSpectrumCommand, &kFilterCommand, &kEqCommand,   &kReverbCommand,
    &kCompressCommand, &kStretchCommand,  &kToneCommand};

void PrintOverview() {
  std::printf("Usage: qnwave COMMAND [OPTIONS] FILE...\n\nCommands:\n");
  for (const Command* command : kCommands) std::printf("  %-10s%s\n", command->name, command->summary);
  std::printf("\n'qnwave COMMAND --help' tells more, 'qnwave --version' the version, 'man qnwave' all.\n");
}

int Run(std::span<char* const> words) {
  if (words.empty()) {
    ReportUsage("", "no command is given");
    return kExitUsage;
  }
  const std::string_view first = words[0];
  if (first == "--help" || first == "-h" || first == "help") {
    PrintOverview();
    return kExitOk;
  }
  if (first == "--version") {
    std::printf("qnwave %s\n", QNWAVE_VERSION);
    return kExitOk;
  }
  for (const Command* command : kCommands) {
    if (first == command->name) return RunCommand(*command, words.subspan(1));
  }
  ReportUsage("", "unknown command " + Quoted(first));
  return kExitUsage;
}

}  // namespace
}  // namespace qnwave

const char qntool::kProgram[] = "qnwave";

int main(int count, char** words) {
  return qntool::RunTool(count, words, qnwave::Run);
}
