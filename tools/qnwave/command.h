// The sub-commands: each file of a sub-command defines one Command, main.cpp holds the table of them.
#pragma once

#include "tools/common/options.h"

namespace qnwave {

using namespace qntool;

// What the process returns, beside the common codes.
constexpr int kExitDamaged = 3;            // a file is damaged: `qnwave repair` may help
constexpr int kExitInterruptedBase = 128;  // plus the number of the signal

extern const Command kInfoCommand;
extern const Command kConvertCommand;
extern const Command kCutCommand;
extern const Command kJoinCommand;
extern const Command kSplitCommand;
extern const Command kLevelsCommand;
extern const Command kMixCommand;
extern const Command kRepairCommand;
extern const Command kTagsCommand;
extern const Command kPeaksCommand;
extern const Command kDrawCommand;
extern const Command kSpectrumCommand;
extern const Command kFilterCommand;
extern const Command kEqCommand;
extern const Command kReverbCommand;
extern const Command kCompressCommand;
extern const Command kStretchCommand;
extern const Command kToneCommand;

}  // namespace qnwave
