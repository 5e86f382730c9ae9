// The sub-commands: each file of a sub-command defines one Command, main.cpp holds the table of them.
#pragma once

#include "tools/common/options.h"

namespace qnimage {

using namespace qntool;

// What the process returns beside the common codes: plus the number of the signal.
constexpr int kExitInterruptedBase = 128;

extern const Command kInfoCommand;
extern const Command kConvertCommand;
extern const Command kLegalCommand;
extern const Command kFlipCommand;
extern const Command kScaleCommand;
extern const Command kCardCommand;

}  // namespace qnimage
