// qnimage: pictures and raw frames on the command line. Finds the sub-command and runs it.
#include <span>

#include "tools/common/report.h"
#include "tools/common/tool.h"
#include "tools/qnimage/command.h"

namespace qnimage {
namespace {

constexpr const Command* kCommands[] = {&kInfoCommand, &kConvertCommand, &kLegalCommand,
                                        &kFlipCommand, &kScaleCommand,   &kCardCommand};

int Run(std::span<char* const> words) {
  return RunCommands(kCommands, QNIMAGE_VERSION, words);
}

}  // namespace
}  // namespace qnimage

const char qntool::kProgram[] = "qnimage";

int main(int count, char** words) {
  return qntool::RunTool(count, words, qnimage::Run);
}
