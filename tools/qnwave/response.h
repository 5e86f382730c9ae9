// The frequency response of an effect.
#pragma once

#include <span>
#include <vector>

#include "qn/platform/types.h"
#include "tools/qnwave/effect_run.h"
#include "tools/qnwave/level_plot.h"

namespace qnwave {

// Sends an impulse through an effect of one channel and makes a plot of its gain over the logarithm of the
// frequency, with marks at `edges`, in hertz. The title is left to the caller.
HRESULT PlotResponse(Effect* effect, uint32_t rate, std::span<const double> edges, LevelPlot* plot);

}  // namespace qnwave
