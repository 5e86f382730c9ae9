// qnwave split: a file in several.
#include <filesystem>

#include "tools/qnwave/command.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"channels", nullptr, "make a mono file of each channel"},
    {"output", "PATTERN",
     "names of the new files, with {} for the number, from 1 (default: that of FILE with -1, -2, ...)"},
    {"container", "wav|w64", "container of the new files (default: by their extension)"},
    kToEndOption,
    {"force", nullptr, "overwrite the new files; until the end they stay as they were"},
    kQuietOption,
};

constexpr std::string_view kPlace = "{}";

int Usage(const std::string& mistake) {
  ReportUsage("split", mistake);
  return kExitUsage;
}

// Beside the file, with the extension of the container.
std::string DefaultPattern(const Arguments& arguments, const std::string& name) {
  const std::filesystem::path path(name);
  const std::string extension = path.extension().string();
  const auto asked = arguments.Value("container");
  const bool isWave64 = asked ? *asked == "w64" : extension == ".w64" || extension == ".W64";
  return (path.parent_path() / path.stem()).string() + "-{}" + (isWave64 ? ".w64" : ".wav");
}

// The numbers have the same count of digits, so that the names sort.
std::string NameOf(const std::string& pattern, size_t place, uint32_t number, uint32_t most) {
  std::string digits = std::to_string(number);
  digits.insert(0, std::to_string(most).size() - digits.size(), '0');
  return std::string(pattern).replace(place, kPlace.size(), digits);
}

int Run(const Arguments& arguments) {
  if (!arguments.Has("channels"))
    return Usage("how to split is told by --channels: a mono file of each channel");
  if (arguments.Operands().size() != 1) return Usage("one file is needed");
  const std::string& name = arguments.Operands()[0];
  const auto given = arguments.Value("output");
  const std::string pattern = given ? std::string(*given) : DefaultPattern(arguments, name);
  const size_t place = pattern.rfind(kPlace);
  if (place == std::string::npos) return Usage("the pattern " + Quoted(pattern) + " has no {}");
  Target target;
  target.name = pattern;
  if (!ChooseContainer("split", arguments, &target)) return kExitUsage;

  AudioSource source;
  const int exitCode = OpenSource(arguments, name, &source);
  if (exitCode != kExitOk) return exitCode;
  target.format = KeptFormat(source.format);
  target.format.channels = 1;
  target.format.mask = 0;
  target.frames = source.frames;
  std::vector<Target> targets(source.format.channels, target);
  for (uint32_t i = 0; i < source.format.channels; ++i)
    targets[i].name = NameOf(pattern, place, i + 1, source.format.channels);
  const Piece piece = {&source, 0, source.frames};
  return WritePieces({&piece, 1}, targets, arguments);
}

}  // namespace

const Command kSplitCommand = {
    "split",
    "--channels FILE",
    "Write each channel of a file to a mono file.",
    "The samples stay as they are. The new files are written beside their places under other names and moved"
    " there when all are whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
