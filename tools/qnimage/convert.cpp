// qnimage convert: a picture or a raw frame as another kind of file.
#include "tools/qnimage/command.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

constexpr Option kOptions[] = {kTypeOption,   kRawSizeOption, kFourccOption, kFrameOption, kOutFourccOption,
                               kMatrixOption, kRangeOption,   kForceOption,  kQuietOption};

int Run(const Arguments& arguments) {
  return RunOnPicture("convert", arguments, {});
}

}  // namespace

const Command kConvertCommand = {
    "convert",
    "IN OUT",
    "Convert between BMP, PNG and raw frames.",
    "IN is a BMP, DIB or PNG file, or with --size one of raw frames. OUT is what its name ends in: .bmp and "
    ".dib, "
    ".png, .raw and .yuv. It is written beside its place under another name and moved there when it is "
    "whole.",
    kOptions,
    Run,
};

}  // namespace qnimage
