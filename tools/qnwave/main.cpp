// qnwave: wave files on the command line. Finds the sub-command and runs it.
#include <span>

#include "tools/common/options.h"
#include "tools/common/report.h"
#include "tools/common/tool.h"
#include "tools/qnwave/command.h"

namespace qnwave {
namespace {

constexpr const Command* kCommands[] = {
    &kInfoCommand,     &kConvertCommand,  &kCutCommand,    &kJoinCommand, &kSplitCommand,
    &kMixCommand,      &kLevelsCommand,   &kRepairCommand, &kTagsCommand, &kPeaksCommand,
    &kDrawCommand,     &kSpectrumCommand, &kFilterCommand, &kEqCommand,   &kReverbCommand,
    &kCompressCommand, &kStretchCommand,  &kToneCommand};

int Run(std::span<char* const> words) {
  return RunCommands(kCommands, QNWAVE_VERSION, words);
}

}  // namespace
}  // namespace qnwave

const char qntool::kProgram[] = "qnwave";

int main(int count, char** words) {
  return qntool::RunTool(count, words, qnwave::Run);
}
