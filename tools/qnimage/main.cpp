// qnimage: pictures and raw frames on the command line. Finds the sub-command and runs it.
#include <cstdio>
#include <span>
#include <string_view>

#include "tools/common/report.h"
#include "tools/common/tool.h"
#include "tools/qnimage/command.h"

namespace qnimage {
namespace {

constexpr const Command* kCommands[] = {&kInfoCommand, &kConvertCommand, &kLegalCommand,
                                        &kFlipCommand, &kScaleCommand,   &kCardCommand};

void PrintOverview() {
  std::printf("Usage: qnimage COMMAND [OPTIONS] FILE...\n\nCommands:\n");
  for (const Command* command : kCommands) std::printf("  %-10s%s\n", command->name, command->summary);
  std::printf("\n'qnimage COMMAND --help' tells more, 'qnimage --version' the version, 'man qnimage' all.\n");
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
    std::printf("qnimage %s\n", QNIMAGE_VERSION);
    return kExitOk;
  }
  for (const Command* command : kCommands) {
    if (first == command->name) return RunCommand(*command, words.subspan(1));
  }
  ReportUsage("", "unknown command " + Quoted(first));
  return kExitUsage;
}

}  // namespace
}  // namespace qnimage

const char qntool::kProgram[] = "qnimage";

int main(int count, char** words) {
  return qntool::RunTool(count, words, qnimage::Run);
}
