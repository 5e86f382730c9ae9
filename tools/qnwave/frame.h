// What pictures have around their lanes: title, names and the time ruler.
#pragma once

#include <span>
#include <string>

#include "qn/text/qntimetext.h"
#include "tools/qnwave/canvas.h"
#include "tools/qnwave/theme.h"

namespace qnwave {

// The units of a picture that its lanes do not get.
constexpr double kMarginLeft = 54;
constexpr double kMarginTop = 56;
constexpr double kMarginBottom = 36;
constexpr double kLaneGap = 8;

constexpr double kLabelSize = 10.5;
constexpr double kDetailsY = 39;  // of the line below the title

struct Box {
  double x, y, width, height;

  double Right() const { return x + width; }
  double Bottom() const { return y + height; }
  double Middle() const { return y + height / 2; }
};

inline TextStyle LabelStyle(const Theme& theme) {
  return {kLabelSize, false, theme.dimText};
}

// Whole pixels, about a unit.
double LineWidth(const Canvas& canvas);

// Paper, and the title with a line of details, which ends before `detailsRight`.
void PaintPaper(Canvas* canvas, const Theme& theme);
void PaintTitle(Canvas* canvas, const Theme& theme, const Box& lanes, const std::string& title,
                const std::string& details, double detailsRight);

// The name of a lane in its corner, where there is room.
void PaintLaneName(Canvas* canvas, const Theme& theme, const Box& lane, const std::string& name);

// The times of a range of frames below all lanes, with lines in the lanes of `grid`.
void PaintTimeRuler(Canvas* canvas, const Theme& theme, const Box& lanes, std::span<const Box> grid,
                    const _qnposfmt& format, double start, double frames);

}  // namespace qnwave
