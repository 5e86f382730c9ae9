// An axis of frequencies, linear or logarithmic.
#pragma once

#include <cmath>
#include <string>
#include <vector>

namespace qnwave {

class FrequencyScale {
 public:
  // From 0, or on a logarithmic axis from 20 Hz, `lowest` or less, up to half the sample rate.
  FrequencyScale(bool isLogarithmic, double sampleRate, double lowest = HUGE_VAL);

  // Places are 0 at the lowest frequency and 1 at the highest.
  double PlaceOf(double hertz) const;
  double At(double place) const;

  struct Mark {
    double place;
    std::string text;  // "2.5k"; empty for the small marks between
  };
  // Round frequencies from the lowest on, those with a text at least `spacing` apart on an axis of `length`.
  std::vector<Mark> Marks(double length, double spacing) const;

 private:
  bool isLogarithmic_;
  double lowest_;
  double highest_;
};

}  // namespace qnwave
