#include "tools/qnwave/picture.h"

#include <algorithm>
#include <cmath>

#include "tools/qnwave/frame.h"
#include "tools/qnwave/levels.h"

namespace qnwave {
namespace {

constexpr double kLabelSpacing = 17;  // between two levels

double HighestOf(const Waveform& waveform) {
  double highest = 0;
  for (const Lane& lane : waveform.lanes) {
    for (const Pair& pair : lane.pairs) {
      for (const double value : {pair.low, pair.high}) {
        if (!pair.IsEmpty() && std::isfinite(value)) highest = std::max(highest, std::fabs(value));
      }
    }
  }
  return highest;
}

class Painter {
 public:
  Painter(Canvas* canvas, const Waveform& waveform, const WaveformRequest& request, const PictureStyle& style)
      : canvas_(*canvas),
        waveform_(waveform),
        request_(request),
        style_(style),
        theme_(*style.theme),
        scale_(style.inDecibels, HighestOf(waveform)),
        pixel_(1 / canvas->Factor()),
        line_(LineWidth(*canvas)) {
    lanes_ = {canvas_.Snap(kMarginLeft), canvas_.Snap(kMarginTop), 0, 0};
    // As many pixels as there are columns.
    lanes_.width = request.columns * pixel_;
    lanes_.height = canvas_.Snap(canvas_.Height() - kMarginBottom) - lanes_.y;
  }

  void Paint(const PictureText& text);

 private:
  Box LaneBox(size_t lane) const;
  double YOf(const Box& box, double sample) const {
    return box.Middle() - scale_.PlaceOf(sample) * box.height / 2;
  }
  double XOf(double frame) const {
    return lanes_.x + (frame - static_cast<double>(request_.start)) / static_cast<double>(request_.frames) *
                          lanes_.width;
  }
  bool Clips(const Pair& pair) const {
    return !pair.IsEmpty() && (pair.high >= waveform_.clipHigh || pair.low <= waveform_.clipLow);
  }

  void PaintHeader(const PictureText& text);
  void PaintLevels(const Box& box);
  void PaintColumns(const Box& box, const Lane& lane);
  void PaintFrames(const Box& box, const Lane& lane);
  void AddClipMark(const Box& box, double x, double width, const Pair& pair);
  TextStyle Label() const { return LabelStyle(theme_); }

  Canvas& canvas_;
  const Waveform& waveform_;
  const WaveformRequest& request_;
  const PictureStyle& style_;
  const Theme& theme_;
  const LevelScale scale_;
  const double pixel_;  // a column
  const double line_;   // whole pixels, about a unit
  Box lanes_;
};

Box Painter::LaneBox(size_t lane) const {
  const double count = static_cast<double>(waveform_.lanes.size());
  const double step = (lanes_.height + kLaneGap) / count;
  const double top = canvas_.Snap(lanes_.y + step * static_cast<double>(lane));
  const double bottom = canvas_.Snap(lanes_.y + step * static_cast<double>(lane + 1) - kLaneGap);
  return {lanes_.x, top, lanes_.width, bottom - top};
}

void Painter::Paint(const PictureText& text) {
  PaintPaper(&canvas_, theme_);
  std::vector<Box> boxes;
  for (size_t lane = 0; lane < waveform_.lanes.size(); ++lane) {
    boxes.push_back(LaneBox(lane));
    canvas_.AddRectangle(boxes[lane].x, boxes[lane].y, boxes[lane].width, boxes[lane].height);
  }
  canvas_.Fill(theme_.lane);
  PaintTimeRuler(&canvas_, theme_, lanes_, boxes, style_.format, static_cast<double>(request_.start),
                 static_cast<double>(request_.frames));
  for (size_t lane = 0; lane < waveform_.lanes.size(); ++lane) {
    PaintLevels(boxes[lane]);
    if (waveform_.isOfFrames)
      PaintFrames(boxes[lane], waveform_.lanes[lane]);
    else
      PaintColumns(boxes[lane], waveform_.lanes[lane]);
    PaintLaneName(&canvas_, theme_, boxes[lane], text.laneNames[lane]);
  }
  PaintHeader(text);
}

void Painter::PaintHeader(const PictureText& text) {
  struct Entry {
    const char* name;
    uint32_t colour;
    bool isShown;
  };
  bool clips = false;
  for (const Lane& lane : waveform_.lanes) {
    clips |= std::any_of(lane.pairs.begin(), lane.pairs.end(), [this](const Pair& p) { return Clips(p); });
  }
  const bool hasRms = !waveform_.lanes[0].rms.empty();
  double right = lanes_.Right();
  // From the right to the left.
  for (const Entry& entry : {Entry{"clipped", theme_.clip, clips}, Entry{"RMS", theme_.rms, hasRms},
                             Entry{waveform_.isOfFrames ? "samples" : "peaks", theme_.wave, true}}) {
    if (!entry.isShown) continue;
    right -= canvas_.Text(right, kDetailsY, entry.name, Label(), Align::kRight) + 6;
    constexpr double kSwatch = 10;
    canvas_.AddRectangle(canvas_.Snap(right - kSwatch), canvas_.Snap(kDetailsY - kSwatch / 2), kSwatch,
                         kSwatch);
    canvas_.Fill(entry.colour);
    right -= kSwatch + 14;
  }
  PaintTitle(&canvas_, theme_, lanes_, text.title, text.details, right);
}

void Painter::PaintLevels(const Box& box) {
  const auto grid = scale_.Grid(box.height / 2, kLabelSpacing);
  const auto yOf = [&](double place) {
    // Within the lane also at its bottom.
    return std::min(canvas_.Snap(box.Middle() - place * box.height / 2), box.Bottom() - line_);
  };
  for (const LevelScale::Level& level : grid) canvas_.AddRectangle(box.x, yOf(level.place), box.width, line_);
  canvas_.Fill(theme_.grid);
  canvas_.AddRectangle(box.x, yOf(0), box.width, line_);
  if (scale_.GoesBeyondFullScale()) {
    for (const double rail : {-1.0, 1.0})
      canvas_.AddRectangle(box.x, yOf(scale_.PlaceOf(rail)), box.width, line_);
  }
  canvas_.Fill(theme_.centre);
  // Labels at the lane's edges stay inside, clear of the next lane's.
  constexpr double kHalfLabel = 6;
  double last = -1e9;
  for (const LevelScale::Level& level : grid) {
    const double y = std::clamp(yOf(level.place), box.y + kHalfLabel, box.Bottom() - kHalfLabel);
    if (y - last < 2 * kHalfLabel) continue;
    last = y;
    canvas_.Text(box.x - 7, y, level.text, Label(), Align::kRight, kMarginLeft - 9);
  }
}

void Painter::AddClipMark(const Box& box, double x, double width, const Pair& pair) {
  constexpr double kLeastWidth = 2;
  constexpr double kHeight = 5;
  const double wide = std::max(width, kLeastWidth);
  const double left = x - (wide - width) / 2;
  if (pair.high >= waveform_.clipHigh) canvas_.AddRectangle(left, box.y, wide, kHeight);
  if (pair.low <= waveform_.clipLow) canvas_.AddRectangle(left, box.Bottom() - kHeight, wide, kHeight);
}

void Painter::PaintColumns(const Box& box, const Lane& lane) {
  const auto add = [&](size_t column, double low, double high) {
    double top = YOf(box, high);
    double height = YOf(box, low) - top;
    if (height < 2 * pixel_) {
      // Spread over two rows a thin line would fade.
      height = pixel_;
      top = std::min(canvas_.Snap(top), box.Bottom() - pixel_);
    }
    canvas_.AddRectangle(box.x + static_cast<double>(column) * pixel_, top, pixel_, height);
  };
  const auto paint = [&](uint32_t colour, auto addColumn) {
    for (size_t column = 0; column < lane.pairs.size(); ++column) {
      if (!lane.pairs[column].IsEmpty()) addColumn(column, lane.pairs[column]);
    }
    canvas_.Fill(colour);
  };
  canvas_.Clip(box.x, box.y, box.width, box.height);
  paint(theme_.wave, [&](size_t column, const Pair& pair) { add(column, pair.low, pair.high); });
  paint(theme_.clip, [&](size_t column, const Pair& pair) {
    if (Clips(pair)) add(column, pair.low, pair.high);
  });
  if (!lane.rms.empty()) {
    paint(theme_.rms, [&](size_t column, const Pair& pair) {
      // Inside the peaks, also where the signal has an offset; in silence it would only hide them.
      const float low = std::max(pair.low, -lane.rms[column]);
      const float high = std::min(pair.high, lane.rms[column]);
      if (YOf(box, low) - YOf(box, high) >= 2 * pixel_) add(column, low, high);
    });
  }
  paint(theme_.clip, [&](size_t column, const Pair& pair) {
    if (Clips(pair)) AddClipMark(box, box.x + static_cast<double>(column) * pixel_, pixel_, pair);
  });
  canvas_.Unclip();
}

void Painter::PaintFrames(const Box& box, const Lane& lane) {
  const double spacing = lanes_.width / static_cast<double>(request_.frames);
  constexpr double kLineWidth = 1.5;
  constexpr double kLeastDotSpacing = 5;
  const double radius = std::min(spacing / 4, 3.0);
  const auto xOf = [&](size_t i) { return XOf(static_cast<double>(waveform_.firstFrame + i)); };
  const auto isInRange = [&](size_t i) {
    return waveform_.firstFrame + i >= request_.start &&
           waveform_.firstFrame + i < request_.start + request_.frames;
  };
  canvas_.Clip(box.x, box.y, box.width, box.height);
  bool joined = false;
  for (size_t i = 0; i < lane.pairs.size(); ++i) {
    const Pair& pair = lane.pairs[i];
    if (joined && !pair.IsEmpty())
      canvas_.LineTo(xOf(i), YOf(box, pair.low));
    else
      canvas_.MoveTo(xOf(i), YOf(box, pair.low));
    joined = !pair.IsEmpty();
  }
  canvas_.Stroke(theme_.wave, kLineWidth);
  canvas_.Unclip();
  for (const bool clipped : {false, true}) {
    for (size_t i = 0; i < lane.pairs.size(); ++i) {
      const Pair& pair = lane.pairs[i];
      if (pair.IsEmpty() || !isInRange(i) || Clips(pair) != clipped) continue;
      // A mark has to be seen where dots would be too many.
      if (clipped || spacing >= kLeastDotSpacing)
        canvas_.AddDot(xOf(i), YOf(box, pair.low), clipped ? std::max(radius, 2.0) : radius);
      if (clipped) AddClipMark(box, xOf(i), 0, pair);
    }
    canvas_.Fill(clipped ? theme_.clip : theme_.wave);
  }
}

}  // namespace

void DrawPicture(Canvas* canvas, const Waveform& waveform, const WaveformRequest& request,
                 const PictureStyle& style, const PictureText& text) {
  Painter(canvas, waveform, request, style).Paint(text);
}

}  // namespace qnwave
