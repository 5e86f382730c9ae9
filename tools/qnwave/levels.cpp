#include "tools/qnwave/levels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qnwave {
namespace {

// A number with a true minus, as short as it can be.
std::string Text(double number, const char* plus) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%.6g", std::fabs(number));
  return (number < 0 ? "\u2212" : number > 0 ? plus : "") + std::string(digits);
}

}  // namespace

LevelScale::LevelScale(bool inDecibels, double highest) : inDecibels_(inDecibels) {
  const double most = std::max(highest, 1.0);
  // A little room above what is beyond full scale.
  top_ = inDecibels ? (most > 1 ? std::ceil(20 * std::log10(most)) : 0) : (most > 1 ? most * 1.02 : 1);
}

double LevelScale::PlaceOf(double sample) const {
  const double value = std::fabs(sample);
  const double place = !inDecibels_ ? value / top_ : value > 0 ? PlaceOfDecibels(20 * std::log10(value)) : 0;
  return std::copysign(std::clamp(place, 0.0, 1.0), sample);
}

std::vector<LevelScale::Level> LevelScale::Grid(double height, double spacing) const {
  std::vector<Level> half;  // the upper half, from the centre up
  if (inDecibels_) {
    half.push_back({0, "\u2212\u221E"});
    double step = -kFloor;
    for (const double finer : {30, 20, 12, 6, 3, 2, 1}) {
      if (height * finer / (top_ - kFloor) >= spacing) step = finer;
    }
    for (double level = kFloor + step; level <= top_ + 1e-9; level += step)
      half.push_back({PlaceOfDecibels(level), Text(level, "+")});
  } else {
    half.push_back({0, "0"});
    // 1, 2 and 5 in turn, from a tenth of the lowest decade up.
    double decade = std::pow(10.0, std::floor(std::log10(top_)) - 2);
    double step = decade;
    for (int i = 0; height * step / top_ < spacing && i < 12; ++i) {
      constexpr double kRound[] = {1, 2, 5};
      if (i % 3 == 2) decade *= 10;
      step = decade * kRound[(i + 1) % 3];
    }
    // A grid that leaves full scale out would mislead.
    if (top_ < 2 && step > 0.5) step = 1;
    for (int i = 1; i * step <= top_ + 1e-9; ++i) half.push_back({i * step / top_, Text(i * step, "")});
  }
  std::vector<Level> grid(half.rbegin(), half.rend());
  for (size_t i = 1; i < half.size(); ++i) {
    std::string text = half[i].text;
    // Decibels are the same on both sides.
    grid.push_back({-half[i].place, inDecibels_ ? text : "\u2212" + text});
  }
  return grid;
}

}  // namespace qnwave
