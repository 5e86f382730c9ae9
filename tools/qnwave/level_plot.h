// A picture of levels in dB as a curve over another quantity.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/qnwave/canvas.h"
#include "tools/qnwave/frequency_scale.h"
#include "tools/qnwave/theme.h"

namespace qnwave {

// The softest level that is drawn; what is softer lies on the bottom line.
constexpr double kLeastPlotLevel = -120;

// A factor in dB, down to that.
double PlotLevel(double factor);

struct LevelPlot {
  std::string title;
  std::string details;
  std::vector<double> decibels;  // two or more
  // Which of them, and how far to the next, belongs to a place of the axis, from 0 at its left to 1.
  std::function<double(double place)> indexAt;
  // The marks of the axis, whose texts are at least `spacing` apart when it is `length` long.
  std::function<std::vector<FrequencyScale::Mark>(double length, double spacing)> marks;
  std::string unit;           // of the axis
  std::vector<double> edges;  // places that are marked
};

// Gives a plot an even axis from one value to another.
void SetLinearAxis(LevelPlot* plot, double from, double to, const char* unit);

// What a picture needs at least, in units.
constexpr double kLeastPlotWidth = 240;
constexpr double kLeastPlotHeight = 160;

void DrawLevelPlot(Canvas* canvas, const Theme& theme, const LevelPlot& plot);

}  // namespace qnwave
