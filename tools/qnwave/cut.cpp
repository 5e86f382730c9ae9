// qnwave cut: a part of a file as a file of its own.
#include <algorithm>

#include "qn/settings/qnstatus.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/position.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"start", "POS", "the first frame (default: that of FILE)"},
    {"end", "POS", "the frame behind the last one (default: the end of FILE)"},
    {"length", "POS", "the length, in place of --end"},
    kFormatOption,
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kContainerOption,
    kToEndOption,
    kForceOption,
    kQuietOption,
};

int Usage(const char* mistake) {
  ReportUsage("cut", mistake);
  return kExitUsage;
}

// The part that is asked for; an exit code.
int ReadPart(const Arguments& arguments, const AudioSource& source, Piece* piece) {
  std::optional<uint64_t> start, end, length;
  const auto read = [&](const char* option, bool isLength, std::optional<uint64_t>* frame) {
    return ReadPosition("cut", arguments, option, isLength, source.format.rate, frame);
  };
  if (!read("start", false, &start) || !read("end", false, &end) || !read("length", true, &length))
    return kExitUsage;
  const uint64_t first = start.value_or(0);
  uint64_t last = end.value_or(source.frames);
  if (length) last = first + *length;
  if (last > source.frames && first < source.frames) {
    ReportWarning(source.name, {messages::CutAtEnd, {Message::Number(source.frames)}});
    last = source.frames;
  }
  if (first >= std::min(last, source.frames)) {
    ReportError(source.name, E_INVALIDARG,
                {messages::NothingToCut,
                 {Message::Number(first), Message::Number(last), Message::Number(source.frames)}});
    return kExitFailed;
  }
  *piece = {&source, first, last - first};
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 2) return Usage("two files are needed: FILE and OUT");
  if (arguments.Has("end") && arguments.Has("length")) return Usage("--end and --length do not go together");
  if (!arguments.Has("start") && !arguments.Has("end") && !arguments.Has("length"))
    return Usage("what to cut is told by --start, --end or --length");
  if (!HasFormatForItsOptions("cut", arguments)) return kExitUsage;
  Target target;
  target.name = arguments.Operands()[1];
  if (!ChooseContainer("cut", arguments, &target)) return kExitUsage;
  AudioSource source;
  int exitCode = OpenSource(arguments, arguments.Operands()[0], &source);
  if (exitCode != kExitOk) return exitCode;
  Piece piece{};
  exitCode = ReadPart(arguments, source, &piece);
  if (exitCode != kExitOk) return exitCode;
  target.format = KeptFormat(source.format);
  target.frames = piece.frames;
  return WritePieces({&piece, 1}, {&target, 1}, arguments);
}

}  // namespace

const Command kCutCommand = {
    "cut",
    "FILE OUT",
    "Write a part of a file to a new file.",
    "The samples stay as they are. A POS without --format is a frame, counted from 0, when it is a whole "
    "number,"
    " and a time when it has a point or a colon: 12.5, 1:30, 1:02:03.25. OUT is written beside its place "
    "under"
    " another name and moved there when it is whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
