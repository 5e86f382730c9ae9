// qnimage legal: what of a picture composite video cannot carry.
#include <algorithm>
#include <cstdio>

#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/qnimage/command.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

constexpr Option kOptions[] = {{"standard", "NAME", "ntsc-yiq, ntsc-yuv or pal (default: pal)"},
                               {"map", nullptr,
                                "OUT shows the colours that are not legal in red, all others as dark "
                                "gray; without --correct this is what OUT is"},
                               {"correct", nullptr, "OUT is the picture with these colours made paler"},
                               kTypeOption,
                               kRawSizeOption,
                               kFourccOption,
                               kFrameOption,
                               kOutFourccOption,
                               kMatrixOption,
                               kRangeOption,
                               kForceOption,
                               kQuietOption};

struct StandardRow {
  const char* name;
  BOOL (*isIllegal)(const QNRGBAFLOAT* pixel);
  BOOL (*correct)(QNRGBAFLOAT* pixel);
};
constexpr StandardRow kStandards[] = {{"ntsc-yiq", HotCheckNTSCYIQ, HotCheckNTSCYIQReturn},
                                      {"ntsc-yuv", HotCheckNTSCYUV, HotCheckNTSCYUVReturn},
                                      {"pal", HotCheckPALYUV, HotCheckPALYUVReturn}};

struct Counts {
  uint64_t all = 0;
  uint64_t illegal = 0;
};

// The luma at half of its brightness, so that the marks stand out.
QNRGBAFLOAT Shade(const QNRGBAFLOAT& pixel) {
  const float gray = (0.299f * pixel.red + 0.587f * pixel.green + 0.114f * pixel.blue) / 2;
  return {gray, gray, gray, pixel.alpha};
}

// Counts the pixels of a picture, and may change it.
enum class Change { kNone, kCorrect, kMark };
Counts Check(const StandardRow& standard, Change change, const Image& image) {
  Counts counts = {uint64_t{image.Width()} * image.Height()};
  const FloatRow row(image.Width());
  for (uint32_t y = 0; y < image.Height() && InterruptSignal() == 0; ++y) {
    row.Get(image, y);
    for (QNRGBAFLOAT& pixel : row.Pixels()) {
      const bool isIllegal = standard.isIllegal(&pixel) != 0;
      counts.illegal += isIllegal;
      if (change == Change::kMark) {
        pixel = isIllegal ? QNRGBAFLOAT{0, 0, 1, pixel.alpha} : Shade(pixel);
      } else if (change == Change::kCorrect && isIllegal) {
        standard.correct(&pixel);
      }
    }
    if (change != Change::kNone) row.Put(image, y);
  }
  return counts;
}

int Run(const Arguments& arguments) {
  const auto name = arguments.Value("standard").value_or("pal");
  const StandardRow* const standard = FindByName(kStandards, name);
  if (!standard) {
    ReportUsage("legal", "unknown standard " + Quoted(name) + " (one of " + NamesOf(kStandards) + ")");
    return kExitUsage;
  }
  const bool corrects = arguments.Has("correct");
  if (corrects && arguments.Has("map")) {
    ReportUsage("legal", "--map and --correct do not go together");
    return kExitUsage;
  }
  Counts counts, left;
  const auto work = [&](const OutputFile&, Image* image) {
    counts = Check(*standard, corrects ? Change::kCorrect : Change::kMark, *image);
    return true;
  };
  const auto inspect = [&](const Image& held) { left = Check(*standard, Change::kNone, held); };
  const int exitCode = RunOnPicture("legal", arguments, work, corrects ? Inspection(inspect) : Inspection());
  if (exitCode != kExitOk) return exitCode;
  std::printf("%s: %s of %s pixels are not legal (%.2f %%)", standard->name,
              Message::Number(counts.illegal).English().c_str(),
              Message::Number(counts.all).English().c_str(),
              100.0 * static_cast<double>(counts.illegal) / static_cast<double>(counts.all));
  if (corrects) std::printf(", %s after the correction", Message::Number(left.illegal).English().c_str());
  std::printf("\n");
  return exitCode;
}

}  // namespace

const Command kLegalCommand = {
    "legal",
    "IN OUT",
    "Find colours that are not legal in broadcasting, and correct them.",
    "Colours whose composite signal is too strong. IN and OUT are as for convert. The number of such pixels "
    "is "
    "printed.",
    kOptions,
    Run,
};

}  // namespace qnimage
