// qnwave join: files one after the other in one file.
#include "qn/settings/qnstatus.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"output", "OUT", "the new file, in place of the last operand"},
    {"type", "TYPE", "sample type of OUT (default: that of the first file), as convert has it"},
    kContainerOption,
    kToEndOption,
    kForceOption,
    kQuietOption,
};

int Usage(const char* mistake) {
  ReportUsage("join", mistake);
  return kExitUsage;
}

// False with the difference reported.
bool GoesWith(const AudioSource& first, const AudioSource& next) {
  const AudioFormat& a = first.format;
  const AudioFormat& b = next.format;
  const Message firstName(Quoted(first.name));
  if (a.rate != b.rate) {
    ReportError(next.name, QN_E_MEDIA_TYPE,
                {messages::RateDiffers, {Message::Number(b.rate), firstName, Message::Number(a.rate)}});
  } else if (a.channels != b.channels) {
    ReportError(
        next.name, QN_E_MEDIA_TYPE,
        {messages::ChannelsDiffer, {ChannelsMessage(b.channels), firstName, ChannelsMessage(a.channels)}});
  }
  return a.rate == b.rate && a.channels == b.channels;
}

int Run(const Arguments& arguments) {
  std::vector<std::string> names = arguments.Operands();
  Target target;
  if (const auto output = arguments.Value("output")) {
    target.name = *output;
  } else if (!names.empty()) {
    target.name = names.back();
    names.pop_back();
  }
  if (names.size() < 2) return Usage("two or more files and OUT are needed");
  if (!ChooseContainer("join", arguments, &target) || !ChooseType("join", arguments, &target))
    return kExitUsage;

  std::vector<AudioSource> sources(names.size());
  std::vector<Piece> pieces;
  for (size_t i = 0; i < names.size(); ++i) {
    const int exitCode = OpenSource(arguments, names[i], &sources[i]);
    if (exitCode != kExitOk) return exitCode;
    if (!GoesWith(sources[0], sources[i])) return kExitFailed;
    pieces.push_back({&sources[i], 0, sources[i].frames});
    target.frames += sources[i].frames;
  }
  const QNSAMPLETYPE asked = target.format.type;
  target.format = KeptFormat(sources[0].format);
  if (asked != QNST_NONE) target.format.type = asked;
  if (target.format.FrameBytes() > kMostFrameBytes) {
    ReportError(target.name, QN_E_MEDIA_TYPE, {messages::FrameTooLarge, {Message::Bytes(kMostFrameBytes)}});
    return kExitFailed;
  }
  return WritePieces(pieces, {&target, 1}, arguments);
}

}  // namespace

const Command kJoinCommand = {
    "join",
    "FILE... OUT",
    "Write files one after the other to a new file.",
    "All have the same rate and channels. Samples of another type than that of OUT are converted, all others"
    " stay as they are. OUT is written beside its place under another name and moved there when it is whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
