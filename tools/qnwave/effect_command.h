// What the commands that send a file through an effect share: operands and options, the checks of names and
// formats, the picture and the run.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>

#include "tools/common/options.h"
#include "tools/common/text.h"
#include "tools/qnwave/effect_run.h"
#include "tools/qnwave/level_plot.h"
#include "tools/qnwave/picture_file.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {

constexpr qntool::Option kPlotSizeOption = {
    "size", "WxH[@FACTOR]", "width and height of PICTURE and pixels for one of them (default 900x420)"};
constexpr qntool::Option kEffectTypeOption = {"type", "TYPE",
                                              "sample type of OUT (default: that of FILE), as for convert"};
constexpr qntool::Option kEffectForceOption = {"force", nullptr,
                                               "overwrite OUT and PICTURE, unless they are FILE itself"};

struct EffectJob {
  AudioSource source;
  Target target;          // without a name there is none
  PictureTarget picture;  // alike
  DitherSettings dither;
  bool keepsDelay = false;

  bool HasTarget() const { return !target.name.empty(); }
  bool HasPicture() const { return !picture.name.empty(); }
};

// FILE and OUT, of which --plot makes do without the second, and the options of both; false with the mistake
// reported.
bool ReadEffectOptions(const char* command, const qntool::Arguments& arguments, EffectJob* job);

// False, and that is reported, when an option is given that makes no sense for `what`.
bool RefuseOptions(const char* command, const qntool::Arguments& arguments,
                   std::initializer_list<const char*> options, const std::string& what);

// The number of an option in the first unit of a pair, as a whole number of the second, of which `units` make
// one of the first; false with the mistake reported, also for numbers between. `none` is what the word "none"
// stands for, if it is taken.
bool ReadUnits(const char* command, const qntool::Arguments& arguments, const char* option, double lowest,
               double highest, double units, std::optional<LONG> none, LONG* value);

// A frequency as a part of a sentence that names its unit.
qntool::Message HertzMessage(double frequency);

// False, and that is reported, for a frequency that is not below half the rate of a file.
bool IsBelowHalfRate(const AudioSource& source, double hertz);

// False, and that is reported, for a file of more than two channels, about `what` it is too much for.
bool IsMonoOrStereo(const AudioSource& source, const char* what);

// The format of the target, which is `tail` frames longer than the opened source, and what the names lead to;
// an exit code, with the reason reported.
int CompleteEffect(const char* command, const qntool::Arguments& arguments, uint64_t tail, EffectJob* job);

// Writes what there is to be written, tells of it and returns the exit code. `plot` is there if a picture is.
int ApplyEffect(const qntool::Arguments& arguments, const EffectJob& job, Effect* effect,
                const LevelPlot& plot);

// "1.5 kHz"
std::string Hertz(double frequency);

}  // namespace qnwave
