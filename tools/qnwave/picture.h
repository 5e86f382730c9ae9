// The picture of a waveform: title, one lane a channel, levels beside them, the time ruler below.
#pragma once

#include <string>
#include <vector>

#include "qn/text/qntimetext.h"
#include "tools/qnwave/frame.h"
#include "tools/qnwave/waveform.h"

namespace qnwave {

struct PictureStyle {
  const Theme* theme = nullptr;
  bool inDecibels = false;
  _qnposfmt format = {};  // of the ruler, at the audio's rate
};

// What stands in the title.
struct PictureText {
  std::string title;
  std::string details;
  std::vector<std::string> laneNames;  // may be empty texts
};

// The units right of the lanes, and what a lane needs at least.
constexpr double kMarginRight = 18;
constexpr double kLeastLaneHeight = 16;
constexpr double kLeastLaneWidth = 120;

void DrawPicture(Canvas* canvas, const Waveform& waveform, const WaveformRequest& request,
                 const PictureStyle& style, const PictureText& text);

}  // namespace qnwave
