// The sub-commands: each file of a sub-command defines one Command, main.cpp holds the table of them.
#pragma once

#include <span>

namespace qnwave {

class Arguments;

// What the process returns.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitDamaged = 3;            // a file is damaged: `qnwave repair` may help
constexpr int kExitInterruptedBase = 128;  // plus the number of the signal

struct Option {
  const char* name;   // without the dashes
  const char* value;  // what stands for the value in the help, or null for a switch
  const char* help;
};

struct Command {
  const char* name;
  const char* operands;  // as the usage line shows them
  const char* summary;   // one line
  const char* details;   // a paragraph for --help
  std::span<const Option> options;
  int (*run)(const Arguments& arguments);
};

extern const Command kInfoCommand;
extern const Command kConvertCommand;
extern const Command kRepairCommand;

}  // namespace qnwave
