#include "tools/qnwave/level_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/qnwave/frame.h"

namespace qnwave {
namespace {

constexpr double kMarginRight = 26;
constexpr double kLeastRange = 30;

// "-6", with a sign of the width of digits.
std::string SignedText(double value, bool withPlus) {
  char text[24];
  std::snprintf(text, sizeof text,
                value < 0               ? "\u2212%g"
                : value > 0 && withPlus ? "+%g"
                                        : "%g",
                std::fabs(value));
  return text;
}

class Painter {
 public:
  Painter(Canvas* canvas, const Theme& theme, const LevelPlot& plot)
      : canvas_(*canvas), theme_(theme), plot_(plot), line_(LineWidth(*canvas)) {
    box_ = {canvas_.Snap(kMarginLeft), canvas_.Snap(kMarginTop), 0, 0};
    box_.width = canvas_.Snap(canvas_.Width() - kMarginRight) - box_.x;
    box_.height = canvas_.Snap(canvas_.Height() - kMarginBottom) - box_.y;
    ChooseRange();
  }

  void Paint();

 private:
  void ChooseRange();
  void PaintGrid();
  void PaintCurve();

  double YOf(double decibels) const { return box_.y + (top_ - decibels) / (top_ - bottom_) * box_.height; }
  // Between two values.
  double LevelAt(double place) const;

  Canvas& canvas_;
  const Theme& theme_;
  const LevelPlot& plot_;
  const double line_;
  double top_ = 0;
  double bottom_ = 0;
  Box box_;
};

double Painter::LevelAt(double place) const {
  const double index = plot_.indexAt(place);
  const auto first = std::min(static_cast<size_t>(index), plot_.decibels.size() - 2);
  const double low = plot_.decibels[first];
  return low + (plot_.decibels[first + 1] - low) * std::clamp(index - static_cast<double>(first), 0.0, 1.0);
}

// Tens of decibels around the curve.
void Painter::ChooseRange() {
  const auto first = plot_.decibels.begin() + static_cast<ptrdiff_t>(plot_.indexAt(0));
  const auto [lowest, highest] = std::minmax_element(first, plot_.decibels.end());
  top_ = std::max(10 * std::ceil((*highest + 3) / 10), kLeastPlotLevel + kLeastRange);
  bottom_ = std::clamp(10 * std::floor(*lowest / 10), kLeastPlotLevel, top_ - kLeastRange);
}

void Painter::PaintGrid() {
  canvas_.AddRectangle(box_.x, box_.y, box_.width, box_.height);
  canvas_.Fill(theme_.lane);
  constexpr double kTextSpacing = 34;
  const auto marks = plot_.marks(box_.width, kTextSpacing);
  const auto lineAt = [&](double place) {
    return std::min(canvas_.Snap(box_.x + place * box_.width), box_.Right() - line_);
  };
  for (const FrequencyScale::Mark& mark : marks)
    canvas_.AddRectangle(lineAt(mark.place), box_.y, line_, box_.height);
  canvas_.Fill(theme_.grid, 0.45);
  for (const FrequencyScale::Mark& mark : marks) {
    if (!mark.text.empty()) canvas_.AddRectangle(lineAt(mark.place), box_.y, line_, box_.height);
  }
  constexpr double kLabelSpacing = 20;
  double step = 40;
  for (const double finer : {20.0, 10.0, 5.0, 2.0, 1.0}) {
    if (finer / (top_ - bottom_) * box_.height >= kLabelSpacing) step = finer;
  }
  const auto levelAt = [&](double level) {
    return std::min(canvas_.Snap(YOf(level)), box_.Bottom() - line_);
  };
  const double first = step * std::floor(top_ / step);
  for (double level = first; level >= bottom_; level -= step)
    canvas_.AddRectangle(box_.x, levelAt(level), box_.width, line_);
  canvas_.Fill(theme_.grid);
  if (bottom_ <= 0 && top_ >= 0) canvas_.AddRectangle(box_.x, levelAt(0), box_.width, line_);
  for (const double edge : plot_.edges) canvas_.AddRectangle(lineAt(edge), box_.y, line_, box_.height);
  canvas_.Fill(theme_.centre);
  for (double level = first; level >= bottom_; level -= step) {
    canvas_.Text(box_.x - 7, std::clamp(YOf(level), box_.y + 6, box_.Bottom() - 6), SignedText(level, true),
                 LabelStyle(theme_), Align::kRight);
  }
  canvas_.Text(box_.x - 7, box_.y - 11, "dB", LabelStyle(theme_), Align::kRight);
  TextStyle style = LabelStyle(theme_);
  style.colour = theme_.text;
  constexpr double kEdge = 4;
  const double y = box_.Bottom() + 16;
  const double unit = canvas_.Width() - kEdge;
  const double free = unit - canvas_.Text(unit, y, plot_.unit, LabelStyle(theme_), Align::kRight) - kEdge;
  for (const FrequencyScale::Mark& mark : marks) {
    const double x = box_.x + mark.place * box_.width;
    if (!mark.text.empty() && x + canvas_.TextWidth(mark.text, style) / 2 < free)
      canvas_.Text(x, y, mark.text, style, Align::kCentre);
  }
}

// A line through each column, up and down to the highest and the lowest level where the curve turns in it.
void Painter::PaintCurve() {
  constexpr double kLineWidth = 2;
  const auto columns = static_cast<size_t>(std::lround(box_.width * canvas_.Factor()));
  canvas_.Clip(box_.x, box_.y, box_.width, box_.height);
  canvas_.MoveTo(box_.x, YOf(LevelAt(0)));
  for (size_t column = 0; column < columns; ++column) {
    const double from = static_cast<double>(column) / static_cast<double>(columns);
    const double to = static_cast<double>(column + 1) / static_cast<double>(columns);
    const auto first = static_cast<size_t>(std::ceil(plot_.indexAt(from)));
    const auto end = std::min(static_cast<size_t>(plot_.indexAt(to)) + 1, plot_.decibels.size());
    double low = LevelAt(to), high = low;
    for (size_t i = first; i < end; ++i) {
      low = std::min(low, plot_.decibels[i]);
      high = std::max(high, plot_.decibels[i]);
    }
    const double x = box_.x + to * box_.width;
    canvas_.LineTo(x, YOf(high));
    canvas_.LineTo(x, YOf(low));
    canvas_.LineTo(x, YOf(LevelAt(to)));
  }
  canvas_.Stroke(theme_.wave, kLineWidth);
  canvas_.Unclip();
}

void Painter::Paint() {
  PaintPaper(&canvas_, theme_);
  PaintGrid();
  PaintCurve();
  PaintTitle(&canvas_, theme_, box_, plot_.title, plot_.details, box_.Right());
}

}  // namespace

double PlotLevel(double factor) {
  // So that a NaN lies on the bottom line too.
  return factor > 0 ? std::max(20 * std::log10(factor), kLeastPlotLevel) : kLeastPlotLevel;
}

void SetLinearAxis(LevelPlot* plot, double from, double to, const char* unit) {
  const auto last = static_cast<double>(plot->decibels.size() - 1);
  plot->indexAt = [last](double place) { return place * last; };
  plot->unit = unit;
  plot->marks = [from, to](double length, double spacing) {
    // The finest of 1, 2 and 5 times a power of 10 that leaves room for the texts.
    const double least = (to - from) * spacing / length;
    const double power = std::pow(10, std::floor(std::log10(least)));
    const double step = power * (least <= power ? 1 : least <= 2 * power ? 2 : least <= 5 * power ? 5 : 10);
    std::vector<FrequencyScale::Mark> marks;
    for (double i = std::ceil(from / step - 1e-9); i * step <= to + step * 1e-9; ++i)
      marks.push_back({(i * step - from) / (to - from), SignedText(i * step, false)});
    return marks;
  };
}

void DrawLevelPlot(Canvas* canvas, const Theme& theme, const LevelPlot& plot) {
  Painter(canvas, theme, plot).Paint();
}

}  // namespace qnwave
