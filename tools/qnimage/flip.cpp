// qnimage flip: a picture mirrored.
#include "tools/common/report.h"
#include "tools/qnimage/command.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

constexpr Option kOptions[] = {{"horizontal", nullptr, "exchange left and right"},
                               {"vertical", nullptr, "exchange top and bottom; both turn the picture round"},
                               kTypeOption,
                               kRawSizeOption,
                               kFourccOption,
                               kFrameOption,
                               kOutFourccOption,
                               kMatrixOption,
                               kRangeOption,
                               kForceOption,
                               kQuietOption};

int Run(const Arguments& arguments) {
  const UINT flags = (arguments.Has("horizontal") ? QNDIBFLIP_HORIZONTAL : 0) |
                     (arguments.Has("vertical") ? QNDIBFLIP_VERTICAL : 0);
  if (flags == 0) {
    ReportUsage("flip", "give --horizontal, --vertical or both");
    return kExitUsage;
  }
  return RunOnPicture("flip", arguments, [flags](const OutputFile&, Image* image) {
    QnDibFlip(image->Header(), nullptr, nullptr, 0, flags);
    return true;
  });
}

}  // namespace

const Command kFlipCommand = {
    "flip", "IN OUT", "Mirror a picture.", "IN and OUT are as for convert.", kOptions, Run,
};

}  // namespace qnimage
