// The settings and the lines of a reverberator. What it does with audio is in qnreverb_process.cpp.
#include "qn/dsp/qnreverb.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <utility>

#include "qn/platform/memory.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr size_t kMostCombs = 10;

struct Room {
  DWORD combs;
  double delays[kMostCombs];  // milliseconds
};

// Row 6 has a comb of almost four seconds. Hosts rely on it.
constexpr Room kRooms[] = {
    {10, {23.583, 47.049, 25.481, 27.493, 29.67, 34.518, 32.056, 37.317, 40.358, 19.941}},
    {8, {23.161, 18.481, 20.611, 16.035, 26.45, 29.281, 12.957, 33.46}},
    {10, {53.703, 67.624, 41.051, 72.937, 84.262, 49.613, 45.85, 57.837, 62.5, 78.724}},
    {10, {13.453, 24.966, 28.415, 12.028, 15.817, 17.836, 10.72, 19.719, 9.439, 22.011}},
    {10, {54.208, 28.707, 21.029, 49.33, 44.418, 35.918, 12.332, 66.457, 40.313, 60.051}},
    {10, {70.539, 46.457, 52.802, 39.727, 76.939, 58.518, 64.33, 31.62, 90.769, 83.537}},
    {10, {46.463, 89.887, 53.024, 58.824, 83.067, 70.527, 3901.707, 76.433, 64.719, 31.627}},
    {9, {25.037, 34.831, 29.502, 37.527, 32.139, 22.731, 40.532, 43.812, 47.07}},
    {10, {32.963, 35.329, 44.227, 38.224, 62.813, 30.368, 41.467, 47.525, 51.611, 56.539}},
    {10, {13.407, 24.354, 11.88, 10.291, 4.527, 15.213, 20.313, 8.519, 17.221, 6.513}},
    {10, {31.71, 21.921, 5.019, 27.327, 11.403, 16.029, 6.604, 9.733, 8.169, 13.309}},
    {10, {13.319, 20.32, 12.034, 10.609, 4.697, 14.75, 17.036, 9.106, 6.564, 7.949}},
    {10, {21.096, 66.413, 28.715, 49.337, 44.433, 35.993, 12.339, 40.301, 54.257, 60.013}},
    {10, {41.005, 45.815, 49.637, 53.795, 57.812, 62.504, 67.637, 72.921, 78.721, 84.212}},
    {10, {37.051, 45.853, 62.817, 53.717, 57.815, 17.296, 67.611, 72.953, 78.716, 84.214}},
    {9, {50.139, 62.811, 53.916, 25.834, 17.235, 67.81, 73.626, 93.927, 84.219}},
    {9, {31.737, 15.013, 11.528, 36.037, 19.131, 5.439, 9.41, 26.433, 7.437}},
    {10, {3.101, 18.37, 12.86, 11.063, 5.027, 15.513, 6.544, 9.539, 21.734, 7.924}},
    {10, {29.809, 12.764, 49.653, 20.817, 25.333, 43.015, 15.957, 4.613, 9.111, 36.519}},
};

// The right channel's first two combs are this much as long.
constexpr double kRightDelays[2] = {0.93, 1.06};

struct Reflections {
  double times[3];  // milliseconds
  double gains[3];  // percent
  double pans[3];   // -100 to 100
};

constexpr Reflections kReflections[] = {
    {{6.113, 17.041, 29.231}, {46, -60, 21}, {-72, 71, -6}},
    {{8.213, 20.043, 53.213}, {56, -60, 18}, {70, -70, 16}},
    {{11.057, 17.049, 29.455}, {-47, 60, 28}, {-76, 100, 35}},
    {{16.011, 30.058, 55.013}, {79, -80, 40}, {64, -100, -26}},
    {{20.013, 29.021, 49.014}, {100, -50, 40}, {25, -29, -25}},
    {{36.501, 47.132, 62.022}, {100, -50, 40}, {25, -29, -25}},
    {{8.213, 20.043, 53.213}, {56, -60, 18}, {50, 70, 26}},
    {{8.213, 20.043, 53.213}, {56, -60, 18}, {-50, -70, -26}},
    {{16.011, 30.058, 55.013}, {79, -80, 40}, {80, 90, 25}},
    {{16.011, 30.058, 55.013}, {79, -80, 40}, {-80, -90, -25}},
};

// Added to the times, so that taps of whole milliseconds do not fall together.
constexpr double kTapOffsets[3] = {0.051, 0.151, 0.078};

bool IsRow(LONG row, size_t rows) {
  return row >= 0 && static_cast<size_t>(row) < rows;
}

// A gain in tenths of a dB as a factor.
double LevelOf(LONG gain) {
  const double decibels = gain / 10.0;
  if (gain == 0) return 1;
  return decibels <= -800 ? 0 : std::pow(10, decibels / 20);
}

double EarlyLevelOf(LONG gain) {
  return gain == -800 ? 0 : std::pow(10, gain / 200.0) / 100;
}

void SetHighCut(HQNREVERB& reverb, const _reverb_props& props) {
  const bool on = props.highCutOn && props.highCutHz < reverb.sampleRate;
  reverb.highCutA = on ? std::exp(-4 * kPi * props.highCutHz / reverb.sampleRate) : 0;
  reverb.highCutB = 1 - reverb.highCutA;
}

void SetLowCut(HQNREVERB& reverb, LONG hertz) {
  const double f = static_cast<double>(hertz) / reverb.sampleRate;
  const double g = std::clamp(f < 0.011337868480725623 ? f / 2.2 : f / 3.3, 0.0004, 0.49);
  const double c = 2 * std::cos(2 * kPi * g);
  reverb.lowCutP = std::exp(-kPi * g / 0.1) * c;
  reverb.lowCutQ = std::exp(-2 * kPi * g / 0.1);
  reverb.lowCutR = 1 - reverb.lowCutP + reverb.lowCutQ;
}

void SetComb(tQNREVERB_COMB& comb, double milliseconds, LONG decay, LONG sampleRate) {
  const double delay = milliseconds / 1000;
  comb.gain = std::pow(10, -3 * delay / (decay / 10.0));
  comb.length = static_cast<int64_t>(std::floor(sampleRate * delay + 0.5));
}

// What creation and updates have in common.
void Set(HQNREVERB& reverb, const _reverb_props& props, LONG sampleRate) {
  reverb.sampleRate = sampleRate;
  reverb.tailFrames = int64_t{props.decay / 10} * sampleRate;
  reverb.dryLevel = LevelOf(props.dryGain);
  reverb.reverbLevel = LevelOf(props.reverbGain);
  reverb.earlyLevel = EarlyLevelOf(props.earlyGain);
  SetHighCut(reverb, props);
  if (reverb.lowCutOn) SetLowCut(reverb, props.lowCutHz);
  const Room& room = kRooms[props.room];
  for (DWORD i = 0; i < std::min(reverb.combCount, room.combs); ++i)
    SetComb(reverb.combs[i], room.delays[i], props.decay, sampleRate);
  for (size_t i = 0; i < std::size(kRightDelays) && reverb.channels == 2; ++i)
    SetComb(reverb.rightCombs[i], room.delays[i] * kRightDelays[i], props.decay, sampleRate);
}

// A ring has at least one frame, however low the rate.
template <class Ring>
bool MakeRing(Ring& ring, int64_t length) {
  const auto frames = static_cast<uint64_t>(std::max<int64_t>(length, 1));
  ring.start = static_cast<double*>(GlobalAlloc(GPTR, frames * sizeof(double)));
  if (!ring.start) return false;
  ring.end = ring.start + frames;
  return true;
}

template <class Ring>
bool MakeLine(Ring& ring, int64_t length) {
  if (!MakeRing(ring, length)) return false;
  ring.cursor = ring.start;
  return true;
}

bool MakeTaps(HQNREVERB& reverb, const Reflections& early) {
  struct Tap {
    int64_t delay;
    double gain;
    double pan;
  } taps[3];
  for (size_t i = 0; i < 3; ++i) {
    const double delay = std::floor((early.times[i] + kTapOffsets[i]) * reverb.sampleRate / 1000);
    taps[i] = {static_cast<int64_t>(delay), early.gains[i], early.pans[i]};
  }
  if (taps[0].delay > taps[1].delay) std::swap(taps[0], taps[1]);
  if (taps[1].delay > taps[2].delay) std::swap(taps[1], taps[2]);
  for (DWORD channel = 0; channel < std::min<DWORD>(reverb.channels, 2); ++channel) {
    tQNREVERB_TAPS& ring = reverb.taps[channel];
    if (!MakeRing(ring, taps[2].delay)) return false;
    for (size_t i = 0; i < 3; ++i) {
      const double right = (taps[i].pan + 100) / 200;
      const double share = reverb.channels == 1 ? 1 : channel == 0 ? 1 - right : right;
      reverb.tapGains[channel][i] = taps[i].gain * share;
      // At the end of the ring is its start; that is where the third tap always is.
      ring.tap[i] = taps[i].delay == 0 || i == 2 ? ring.start : ring.end - taps[i].delay;
    }
  }
  return true;
}

bool MakeLines(HQNREVERB& reverb, const _reverb_props& props) {
  for (DWORD channel = 0; channel < std::min<DWORD>(reverb.channels, 2); ++channel)
    if (!MakeLine(reverb.lines[channel], int64_t{props.preDelay} * reverb.sampleRate / 1000)) return false;
  for (DWORD i = 0; i < reverb.combCount; ++i)
    if (!MakeLine(reverb.combs[i], reverb.combs[i].length)) return false;
  for (tQNREVERB_COMB& comb : reverb.rightCombs)
    if (reverb.channels == 2 && !MakeLine(comb, comb.length)) return false;
  return MakeTaps(reverb, kReflections[props.early]);
}

// Calls `visit` with each ring of the record.
template <class Visit>
void ForEachRing(HQNREVERB& reverb, Visit visit) {
  std::ranges::for_each(reverb.combs, visit);
  std::ranges::for_each(reverb.rightCombs, visit);
  std::ranges::for_each(reverb.lines, visit);
  std::ranges::for_each(reverb.taps, visit);
}

void Clear(HQNREVERB& reverb) {
  ForEachRing(reverb, [](auto& ring) { std::fill(ring.start, ring.end, 0.0); });
  for (tQNREVERB_COMB& comb : reverb.combs) comb.state = 0;
  for (tQNREVERB_COMB& comb : reverb.rightCombs) comb.state = 0;
  reverb.highCutState = reverb.lowCutState[0] = reverb.lowCutState[1] = 0;
}

HRESULT Create(HQNREVERB** handle, const _reverb_props& props, LONG sampleRate, DWORD channels) {
  auto* const reverb = static_cast<HQNREVERB*>(GlobalAlloc(GPTR, sizeof(HQNREVERB)));
  if (!reverb) return E_OUTOFMEMORY;
  reverb->channels = channels;
  reverb->combCount = kRooms[props.room].combs;
  reverb->lowCutOn = props.lowCutOn != 0;
  reverb->inputScale = 1;
  Set(*reverb, props, sampleRate);
  if (!MakeLines(*reverb, props)) {
    QnReverbClose(reverb);
    return E_OUTOFMEMORY;
  }
  *handle = reverb;
  return S_OK;
}

}  // namespace

HRESULT QnReverbInit(HQNREVERB** handle, int create, _reverb_props* props, LONG sampleRate, DWORD channels,
                     int clear) {
  if (!handle || !props || (!create && !*handle)) return E_POINTER;
  if (!IsRow(props->room, std::size(kRooms)) || !IsRow(props->early, std::size(kReflections)) ||
      props->decay < 0 || sampleRate < 1) {
    return E_INVALIDARG;
  }
  if (create) return Create(handle, *props, sampleRate, channels);
  Set(**handle, *props, sampleRate);
  if (clear) Clear(**handle);
  return S_OK;
}

void QnReverbClose(HQNREVERB* handle) {
  if (!handle) return;
  ForEachRing(*handle, [](auto& ring) { GlobalFree(ring.start); });
  GlobalFree(handle);
}
