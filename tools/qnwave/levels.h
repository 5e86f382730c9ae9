// The vertical scale of a lane: samples or decibels above and below silence.
#pragma once

#include <string>
#include <vector>

namespace qnwave {

class LevelScale {
 public:
  // `highest` is the largest absolute value to be shown; the scale goes to full scale at least. One in
  // decibels begins at kFloor: what is softer lies on the line of silence.
  LevelScale(bool inDecibels, double highest);

  // The place of a sample: 1 is the lane's top, 0 its centre, -1 its bottom. What lies beyond stays there.
  double PlaceOf(double sample) const;

  struct Level {
    double place;
    std::string text;
  };
  // Round levels, the highest first, at least `spacing` apart in a lane whose half has `height`.
  std::vector<Level> Grid(double height, double spacing) const;

  bool GoesBeyondFullScale() const { return inDecibels_ ? top_ > 0 : top_ > 1; }

  static constexpr double kFloor = -60;

 private:
  double PlaceOfDecibels(double decibels) const { return (decibels - kFloor) / (top_ - kFloor); }

  bool inDecibels_;
  double top_;
};

}  // namespace qnwave
