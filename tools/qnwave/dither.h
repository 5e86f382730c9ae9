// Dither and noise shaping on the command line.
#pragma once

#include "qn/dsp/qndither.h"
#include "tools/common/options.h"
#include "tools/qnwave/target.h"

namespace qnwave {

constexpr qntool::Option kDitherOption = {
    "dither", "TYPE",
    "noise that is added before samples are rounded to an integer type: none, rectangular-half, rectangular,"
    " triangular, highpass or gaussian (default: none)"};
constexpr qntool::Option kShapeOption = {
    "shape", "N",
    "feed the error of the rounding back, which moves it to less audible frequencies: 0 to 3 (default: 0)"};

struct DitherSettings {
  eQNDITHER_DITHERTYPE type = eQNDITHER_NONE;
  eQNDITHER_NOISESHAPE shape = eQNDITHER_SHAPE_NONE;

  // Then samples are rounded as in any conversion.
  bool IsNone() const { return type == eQNDITHER_NONE && shape == eQNDITHER_SHAPE_NONE; }
};

// Takes the settings from --dither and --shape; false with the mistake reported.
bool ChooseDither(const char* command, const qntool::Arguments& arguments, DitherSettings* dither);

// Whether a target can have what was asked for; an exit code, with the reason reported.
int CheckDither(const char* command, const qntool::Arguments& arguments, const DitherSettings& dither,
                const Target& target);

}  // namespace qnwave
