#include "tools/qnwave/ruler.h"

#include <algorithm>
#include <cmath>

#include "qn/platform/text.h"

namespace qnwave {
namespace {

constexpr double kSecond = 1e7;          // in nanotime
constexpr double kMostUnits = 1e15;      // of a step
constexpr double kLeastLabelGap = 14;    // between two labels
constexpr double kLeastTickSpacing = 5;  // between two small ticks
constexpr double kTolerance = 1e-3;      // of times in nanotime
constexpr size_t kMostTicks = 1 << 16;

// What a format counts. Label number n is that of n units, each `unit` of nanotime long; in formats that
// count frames in clock time `perSecond` units are a second of the label.
struct Counting {
  double unit = 0;
  std::vector<int64_t> steps;     // round numbers of units, ascending
  int64_t shortFrom = INT64_MAX;  // steps from here on need no fractions in their labels
  int64_t perSecond = 0;
  bool isDropFrame = false;
  bool isClock = false;  // seconds are those of the clock, whatever the units make
};

void AddDecimal(std::vector<int64_t>* steps, int64_t first) {
  for (double decade = static_cast<double>(first); decade < kMostUnits; decade *= 10) {
    for (const int factor : {1, 2, 5}) steps->push_back(static_cast<int64_t>(decade) * factor);
  }
}

void AddDoubling(std::vector<int64_t>* steps, int64_t first) {
  for (double step = static_cast<double>(first); step < kMostUnits; step *= 2)
    steps->push_back(static_cast<int64_t>(step));
}

// Seconds to days.
void AddClock(std::vector<int64_t>* steps, int64_t second) {
  for (const int64_t seconds :
       {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200})
    steps->push_back(seconds * second);
  AddDecimal(steps, 86400 * second);
}

Counting Decimal(double unit, int64_t shortFrom = INT64_MAX) {
  Counting counting;
  counting.unit = unit;
  counting.shortFrom = shortFrom;
  AddDecimal(&counting.steps, 1);
  return counting;
}

// Frames within seconds: those steps of frames that a second is made of.
Counting Frames(double rate, int64_t perSecond) {
  Counting counting;
  counting.unit = kSecond / rate;
  counting.perSecond = counting.shortFrom = perSecond;
  constexpr int64_t kMostDivided = 1000;
  for (int64_t step = 1; step < std::min(perSecond, kMostDivided); ++step) {
    if (perSecond % step == 0) counting.steps.push_back(step);
  }
  AddClock(&counting.steps, perSecond);
  return counting;
}

Counting Milliseconds() {
  Counting counting;
  counting.unit = kSecond / 1000;
  counting.shortFrom = 1000;
  for (const int64_t step : {1, 2, 5, 10, 20, 50, 100, 200, 500}) counting.steps.push_back(step);
  AddClock(&counting.steps, 1000);
  return counting;
}

// Whole feet behind their frames.
Counting Feet(double rate, int64_t perFoot) {
  Counting counting;
  counting.unit = kSecond / rate;
  for (int64_t step = 1; step < perFoot; ++step) {
    if (perFoot % step == 0) counting.steps.push_back(step);
  }
  AddDecimal(&counting.steps, perFoot);
  return counting;
}

Counting Measures(const _qnposfmt& format) {
  constexpr int64_t kPerBeat = 64;
  Counting counting;
  counting.unit = kSecond * 60 / format.tempo / kPerBeat;
  counting.shortFrom = kPerBeat;
  for (int64_t step = 1; step <= kPerBeat; step *= 2) counting.steps.push_back(step);
  if (format.beatsPerMeasure > 1)
    AddDoubling(&counting.steps, kPerBeat * format.beatsPerMeasure);
  else
    AddDoubling(&counting.steps, 2 * kPerBeat);
  return counting;
}

Counting CountingOf(const _qnposfmt& format) {
  constexpr double kNtsc = 1000.0 / 1001;
  switch (format.format) {
    case QNPOSFMT_TIME:
      return Milliseconds();
    case QNPOSFMT_COMPACT: {
      Counting counting;
      counting.unit = kSecond;
      AddClock(&counting.steps, 1);
      return counting;
    }
    case QNPOSFMT_SECONDS:
      return Decimal(kSecond / 1000, 1000);
    case QNPOSFMT_TIME_FRAMES: {
      Counting counting = Frames(format.frameRate, static_cast<int64_t>(std::ceil(format.frameRate)));
      counting.isClock = true;
      return counting;
    }
    case QNPOSFMT_FRAMES:
      return Decimal(kSecond / format.frameRate);
    case QNPOSFMT_MEASURES:
    case QNPOSFMT_MEASURES_FROM_0:
      return Measures(format);
    case QNPOSFMT_BEATS:
      return Decimal(kSecond * 60 / format.tempo / 1000, 1000);
    case QNPOSFMT_SMPTE_NONDROP:
      return Frames(30 * kNtsc, 30);
    case QNPOSFMT_SMPTE_DROP: {
      Counting counting = Frames(30 * kNtsc, 30);
      counting.isDropFrame = true;
      return counting;
    }
    case QNPOSFMT_SMPTE_30:
      return Frames(30, 30);
    case QNPOSFMT_SMPTE_25:
      return Frames(25, 25);
    case QNPOSFMT_SMPTE_24:
      return Frames(24, 24);
    case QNPOSFMT_SMPTE_23976:
      return Frames(24 * kNtsc, 24);
    case QNPOSFMT_CD:
      return Frames(75, 75);
    case QNPOSFMT_NANOTIME:
      return Decimal(1);
    case QNPOSFMT_MICROSECONDS:
      return Decimal(10);
    case QNPOSFMT_FEET_40:
      return Feet(format.frameRate, 40);
    case QNPOSFMT_FEET_16:
      return Feet(format.frameRate, 16);
    default:
      return Decimal(kSecond / format.sampleRate);
  }
}

// The time of a label.
double TimeOf(const Counting& counting, int64_t label) {
  if (label < 0) return -TimeOf(counting, -label);
  if (counting.isClock) {
    return static_cast<double>(label / counting.perSecond) * kSecond +
           static_cast<double>(label % counting.perSecond) * counting.unit;
  }
  if (counting.isDropFrame) {
    // Two labels are left out of each minute but every tenth; one of them stands for the next that there is.
    const int64_t minute = counting.perSecond * 60;
    const int64_t minutes = label / minute;
    if (minutes % 10 != 0) label = std::max(label, minutes * minute + 2);
    label -= 2 * (minutes - minutes / 10);
  }
  return static_cast<double>(label) * counting.unit;
}

// What the format makes of a time. Times are whole numbers: rounded up, that of a frame is in the frame.
std::string LabelOf(const _qnposfmt& format, double time, bool isShort) {
  WCHAR text[128];
  const auto whole = static_cast<LONGLONG>(std::ceil(time - kTolerance)) + format.offset;
  QnNanoTimeToTextExN(text, 128, &format, whole, isShort ? QNTIMETEXT_SHORT : 0);
  return qn::ToUtf8(text);
}

// The range as the format counts: nanotime behind the format's origin.
struct Range {
  double start;
  double end;
  double unitsPerTime;
};

// Where the ticks of a step stand, as their numbers of units.
std::vector<int64_t> LabelsOf(const Counting& counting, const Range& range, int64_t step) {
  // Dropped frames and seconds that are off their frames shift labels by less than a hundredth.
  const double perStep = static_cast<double>(step) * counting.unit;
  auto first = static_cast<int64_t>(std::floor((range.start - std::fabs(range.start) / 100) / perStep)) - 2;
  auto last = static_cast<int64_t>(std::ceil((range.start + std::fabs(range.start) / 100) / perStep)) + 2;
  while (first < last) {
    const int64_t middle = first + (last - first) / 2;
    if (TimeOf(counting, middle * step) < range.start - kTolerance)
      first = middle + 1;
    else
      last = middle;
  }
  std::vector<int64_t> labels;
  while (TimeOf(counting, first * step) <= range.end + kTolerance && labels.size() < kMostTicks)
    labels.push_back(first++ * step);
  return labels;
}

}  // namespace

std::vector<Tick> MakeTicks(const _qnposfmt& format, double start, double frames, double unitsPerFrame,
                            const std::function<double(const std::string&)>& widthOf) {
  const Counting counting = CountingOf(format);
  const double perFrame = kSecond / format.sampleRate;
  const double origin = static_cast<double>(format.offset);
  const Range range = {start * perFrame - origin, (start + frames) * perFrame - origin,
                       unitsPerFrame / perFrame};
  // Beyond some ten thousand years there are no times to show.
  constexpr double kMostTime = 4e18;
  if (std::max(std::fabs(range.start), std::fabs(range.end)) > kMostTime || std::fabs(origin) > kMostTime)
    return {};
  const auto spacing = [&](int64_t step) {
    return static_cast<double>(step) * counting.unit * range.unitsPerTime;
  };

  size_t major = 0;
  std::vector<int64_t> labels;
  for (; major + 1 < counting.steps.size(); ++major) {
    const int64_t step = counting.steps[major];
    if (spacing(step) < 2 * kLeastLabelGap) continue;
    labels = LabelsOf(counting, range, step);
    double widest = 0;
    for (size_t i = 0; i < labels.size(); i += std::max<size_t>(labels.size() / 4, 1)) {
      widest =
          std::max(widest, widthOf(LabelOf(format, TimeOf(counting, labels[i]), step >= counting.shortFrom)));
    }
    if (spacing(step) >= widest + kLeastLabelGap) break;
  }
  const bool isTooCoarse = major == 0 && labels.size() < 2;
  if (isTooCoarse && format.format != QNPOSFMT_SAMPLES) {
    _qnposfmt inSamples = format;
    inSamples.format = QNPOSFMT_SAMPLES;
    return MakeTicks(inSamples, start, frames, unitsPerFrame, widthOf);
  }

  const int64_t step = counting.steps[major];
  int64_t minor = step;
  for (size_t i = major; i-- > 0 && spacing(counting.steps[i]) >= kLeastTickSpacing;) {
    if (step % counting.steps[i] == 0) minor = counting.steps[i];
  }
  std::vector<Tick> ticks;
  const auto frameOf = [&](double time) { return (time + origin) / perFrame; };
  for (const int64_t label : LabelsOf(counting, range, minor)) {
    const double time = TimeOf(counting, label);
    const bool isMajor = label % step == 0;
    ticks.push_back(
        {frameOf(time), isMajor ? LabelOf(format, time, step >= counting.shortFrom) : std::string()});
  }
  return ticks;
}

}  // namespace qnwave
