#include "tools/qnwave/frame.h"

#include <algorithm>
#include <cmath>

#include "tools/qnwave/ruler.h"

namespace qnwave {

double LineWidth(const Canvas& canvas) {
  return std::max(std::round(canvas.Factor()), 1.0) / canvas.Factor();
}

void PaintPaper(Canvas* canvas, const Theme& theme) {
  canvas->AddRectangle(0, 0, canvas->Width(), canvas->Height());
  canvas->Fill(theme.paper);
}

void PaintTitle(Canvas* canvas, const Theme& theme, const Box& lanes, const std::string& title,
                const std::string& details, double detailsRight) {
  constexpr double kTitleY = 18;
  canvas->Text(lanes.x, kTitleY, title, {14, true, theme.text}, Align::kLeft, lanes.width);
  canvas->Text(lanes.x, kDetailsY, details, {11, false, theme.dimText}, Align::kLeft,
               std::max(detailsRight - lanes.x, 40.0));
}

void PaintLaneName(Canvas* canvas, const Theme& theme, const Box& lane, const std::string& name) {
  constexpr double kHeight = 15;
  if (name.empty() || lane.height < kHeight + 4) return;
  const TextStyle style = {kLabelSize, true, theme.text};
  canvas->AddRectangle(lane.x + 4, lane.y + 4, canvas->TextWidth(name, style) + 8, kHeight);
  canvas->Fill(theme.paper, 0.8);
  canvas->Text(lane.x + 8, lane.y + 4 + kHeight / 2, name, style);
}

void PaintTimeRuler(Canvas* canvas, const Theme& theme, const Box& lanes, std::span<const Box> grid,
                    const _qnposfmt& format, double start, double frames) {
  TextStyle style = LabelStyle(theme);
  const double line = LineWidth(*canvas);
  const std::vector<Tick> ticks =
      MakeTicks(format, start, frames, lanes.width / frames,
                [&](const std::string& text) { return canvas->TextWidth(text, style); });
  const auto xOf = [&](double frame) { return lanes.x + (frame - start) / frames * lanes.width; };
  const auto lineAt = [&](double frame) { return std::min(canvas->Snap(xOf(frame)), lanes.Right() - line); };
  for (const Tick& tick : ticks) {
    if (tick.label.empty()) continue;
    for (const Box& lane : grid) canvas->AddRectangle(lineAt(tick.frame), lane.y, line, lane.height);
  }
  canvas->Fill(theme.grid);
  const double top = lanes.Bottom() + 3;
  canvas->AddRectangle(lanes.x, canvas->Snap(top), lanes.width, line);
  for (const Tick& tick : ticks)
    canvas->AddRectangle(lineAt(tick.frame), canvas->Snap(top), line, tick.label.empty() ? 3 : 6);
  canvas->Fill(theme.centre);
  // A label that would leave the picture moves in, unless it meets the one before it then.
  const double y = top + 15;
  double free = 2;
  style.colour = theme.text;
  for (const Tick& tick : ticks) {
    if (tick.label.empty()) continue;
    const double width = canvas->TextWidth(tick.label, style);
    const double left = std::min(xOf(tick.frame) - width / 2, canvas->Width() - width - 4);
    if (left < free) continue;
    canvas->Text(left, y, tick.label, style);
    free = left + width + 8;
  }
}

}  // namespace qnwave
