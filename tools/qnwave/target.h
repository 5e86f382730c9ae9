// The wave file that a command makes: what its name and the options say of it, and what is said at its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/common/options.h"
#include "tools/qnwave/container.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {

constexpr qntool::Option kContainerOption = {"container", "wav|w64",
                                             "container of OUT (default: by its extension)"};
constexpr qntool::Option kForceOption = {"force", nullptr, "overwrite OUT; until the end it stays as it was"};
constexpr qntool::Option kQuietOption = {"quiet", nullptr, "no progress bar and no last line"};

struct Target {
  std::string name;
  Container container = Container::kUnknown;  // kUnknown: no header
  AudioFormat format;
  uint64_t frames = 0;
};

// Takes the container from --container, --raw-out or the name; false with the mistake reported.
bool ChooseContainer(const char* command, const qntool::Arguments& arguments, Target* target);

// Takes the sample type from --type, if that is given; false with the mistake reported.
bool ChooseType(const char* command, const qntool::Arguments& arguments, Target* target);

// False, and that is reported, when the container cannot count the frames.
bool CheckSize(const Target& target);

// The exit code of an interrupted run, which is reported about the file that is not there then.
int ReportInterrupt(const std::string& target);

// "1,234 frames"
std::string DescribeFrames(uint64_t frames);

// What is said of a file that is written.
void TellWritten(const Target& target, bool quiet);

}  // namespace qnwave
