#include "tools/qnwave/response_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/qnwave/frame.h"
#include "tools/qnwave/frequency_scale.h"

namespace qnwave {
namespace {

constexpr double kMarginRight = 26;
constexpr double kFloor = -120;  // dB; what is softer lies on the bottom line
constexpr double kLeastRange = 30;

class Painter {
 public:
  Painter(Canvas* canvas, const Theme& theme, const std::vector<double>& gains, uint32_t rate)
      : canvas_(*canvas), theme_(theme), gains_(gains), scale_(true, rate), line_(LineWidth(*canvas)) {
    box_ = {canvas_.Snap(kMarginLeft), canvas_.Snap(kMarginTop), 0, 0};
    box_.width = canvas_.Snap(canvas_.Width() - kMarginRight) - box_.x;
    box_.height = canvas_.Snap(canvas_.Height() - kMarginBottom) - box_.y;
    binWidth_ = static_cast<double>(rate) / 2 / static_cast<double>(gains.size() - 1);
    ChooseRange();
  }

  void Paint(const std::vector<double>& edges, const ResponseText& text);

 private:
  void ChooseRange();
  void PaintGrid(const std::vector<double>& edges);
  void PaintCurve();

  double DecibelsAt(size_t bin) const { return std::max(20 * std::log10(gains_[bin]), kFloor); }
  // Between two bins.
  double DecibelsAt(double place) const;
  double XOf(double hertz) const { return box_.x + scale_.PlaceOf(hertz) * box_.width; }
  double YOf(double decibels) const { return box_.y + (top_ - decibels) / (top_ - bottom_) * box_.height; }

  Canvas& canvas_;
  const Theme& theme_;
  const std::vector<double>& gains_;
  const FrequencyScale scale_;
  const double line_;
  double binWidth_;
  double top_ = 0;
  double bottom_ = 0;
  Box box_;
};

double Painter::DecibelsAt(double place) const {
  const double bin = scale_.At(place) / binWidth_;
  const auto first = std::min(static_cast<size_t>(bin), gains_.size() - 2);
  const double low = DecibelsAt(first);
  return low + (DecibelsAt(first + 1) - low) * std::clamp(bin - static_cast<double>(first), 0.0, 1.0);
}

// Tens of decibels around the curve.
void Painter::ChooseRange() {
  double highest = kFloor, lowest = 1e9;
  for (auto bin = static_cast<size_t>(scale_.At(0) / binWidth_); bin < gains_.size(); ++bin) {
    highest = std::max(highest, DecibelsAt(bin));
    lowest = std::min(lowest, DecibelsAt(bin));
  }
  top_ = 10 * std::ceil((highest + 3) / 10);
  bottom_ = std::max(std::min(10 * std::floor(lowest / 10), top_ - kLeastRange),
                     std::min(kFloor, top_ - kLeastRange));
}

void Painter::PaintGrid(const std::vector<double>& edges) {
  canvas_.AddRectangle(box_.x, box_.y, box_.width, box_.height);
  canvas_.Fill(theme_.lane);
  constexpr double kTextSpacing = 34;
  const auto marks = scale_.Marks(box_.width, kTextSpacing);
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
  canvas_.AddRectangle(box_.x, levelAt(0), box_.width, line_);
  for (const double edge : edges)
    canvas_.AddRectangle(lineAt(scale_.PlaceOf(edge)), box_.y, line_, box_.height);
  canvas_.Fill(theme_.centre);
  for (double level = first; level >= bottom_; level -= step) {
    char text[16];
    std::snprintf(text, sizeof text, level < 0 ? "\u2212%g" : level > 0 ? "+%g" : "%g", std::fabs(level));
    canvas_.Text(box_.x - 7, std::clamp(YOf(level), box_.y + 6, box_.Bottom() - 6), text, LabelStyle(theme_),
                 Align::kRight);
  }
  canvas_.Text(box_.x - 7, box_.y - 11, "dB", LabelStyle(theme_), Align::kRight);
  TextStyle style = LabelStyle(theme_);
  style.colour = theme_.text;
  constexpr double kEdge = 4;
  const double y = box_.Bottom() + 16;
  const double unit = canvas_.Width() - kEdge;
  const double free = unit - canvas_.Text(unit, y, "Hz", LabelStyle(theme_), Align::kRight) - kEdge;
  for (const FrequencyScale::Mark& mark : marks) {
    const double x = box_.x + mark.place * box_.width;
    if (!mark.text.empty() && x + canvas_.TextWidth(mark.text, style) / 2 < free)
      canvas_.Text(x, y, mark.text, style, Align::kCentre);
  }
}

// A line through each column, up and down to the highest and the lowest gain where the curve turns in it.
void Painter::PaintCurve() {
  constexpr double kLineWidth = 2;
  const auto columns = static_cast<size_t>(std::lround(box_.width * canvas_.Factor()));
  canvas_.Clip(box_.x, box_.y, box_.width, box_.height);
  canvas_.MoveTo(box_.x, YOf(DecibelsAt(0.0)));
  for (size_t column = 0; column < columns; ++column) {
    const double from = static_cast<double>(column) / static_cast<double>(columns);
    const double to = static_cast<double>(column + 1) / static_cast<double>(columns);
    const auto first = static_cast<size_t>(std::ceil(scale_.At(from) / binWidth_));
    const auto end = std::min(static_cast<size_t>(scale_.At(to) / binWidth_) + 1, gains_.size());
    double low = DecibelsAt(to), high = low;
    for (size_t bin = first; bin < end; ++bin) {
      low = std::min(low, DecibelsAt(bin));
      high = std::max(high, DecibelsAt(bin));
    }
    const double x = box_.x + to * box_.width;
    canvas_.LineTo(x, YOf(high));
    canvas_.LineTo(x, YOf(low));
    canvas_.LineTo(x, YOf(DecibelsAt(to)));
  }
  canvas_.Stroke(theme_.wave, kLineWidth);
  canvas_.Unclip();
}

void Painter::Paint(const std::vector<double>& edges, const ResponseText& text) {
  PaintPaper(&canvas_, theme_);
  PaintGrid(edges);
  PaintCurve();
  PaintTitle(&canvas_, theme_, box_, text.title, text.details, box_.Right());
}

}  // namespace

void DrawResponse(Canvas* canvas, const Theme& theme, const std::vector<double>& gains, uint32_t rate,
                  const std::vector<double>& edges, const ResponseText& text) {
  Painter(canvas, theme, gains, rate).Paint(edges, text);
}

}  // namespace qnwave
