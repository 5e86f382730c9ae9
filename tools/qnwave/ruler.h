// The time ruler: where its ticks stand and what they say.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "qn/text/qntimetext.h"

namespace qnwave {

struct Tick {
  double frame;
  std::string label;  // empty for the small ticks between the labels
};

// The ticks of a range of frames at the rate of `format`, drawn at `unitsPerFrame`: round steps of what the
// format counts, as close as the labels leave room, whose widths `widthOf` tells. A range too short for the
// format's finest step is shown in samples.
std::vector<Tick> MakeTicks(const _qnposfmt& format, double start, double frames, double unitsPerFrame,
                            const std::function<double(const std::string&)>& widthOf);

}  // namespace qnwave
