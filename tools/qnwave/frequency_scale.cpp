#include "tools/qnwave/frequency_scale.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qnwave {
namespace {

constexpr double kLeastMarkSpacing = 4;

std::string FrequencyText(double hertz) {
  char text[32];
  std::snprintf(text, sizeof text, hertz < 1000 ? "%.4g" : "%.5gk", hertz < 1000 ? hertz : hertz / 1000);
  return text;
}

}  // namespace

FrequencyScale::FrequencyScale(bool isLogarithmic, double sampleRate, double lowest)
    : isLogarithmic_(isLogarithmic),
      lowest_(isLogarithmic ? std::min({20.0, sampleRate / 200, lowest}) : 0),
      highest_(sampleRate / 2) {}

double FrequencyScale::PlaceOf(double hertz) const {
  if (!isLogarithmic_) return hertz / highest_;
  return std::log(std::max(hertz, lowest_) / lowest_) / std::log(highest_ / lowest_);
}

double FrequencyScale::At(double place) const {
  return isLogarithmic_ ? lowest_ * std::pow(highest_ / lowest_, place) : highest_ * place;
}

std::vector<FrequencyScale::Mark> FrequencyScale::Marks(double length, double spacing) const {
  const double decade = std::pow(10.0, std::floor(std::log10(isLogarithmic_ ? lowest_ : highest_)));
  std::vector<Mark> marks;
  if (isLogarithmic_) {
    // 1, 2 and 5 of each decade have a text where there is room for that, else 1 alone.
    const double perDecade = length / std::log10(highest_ / lowest_);
    const bool hasThree = perDecade * std::log10(2.0) >= spacing;
    const bool hasSmall = perDecade * std::log10(10.0 / 9) >= kLeastMarkSpacing;
    for (double power = decade; power <= highest_; power *= 10) {
      for (int digit = 1; digit < 10; ++digit) {
        const double hertz = power * digit;
        const bool isMajor = digit == 1 || (hasThree && (digit == 2 || digit == 5));
        if (hertz < lowest_ * (1 - 1e-9) || hertz > highest_ || (!isMajor && !hasSmall)) continue;
        marks.push_back({PlaceOf(hertz), isMajor ? FrequencyText(hertz) : std::string()});
      }
    }
    return marks;
  }
  for (double power = decade / 1000;; power *= 10) {
    for (const int digit : {1, 2, 5}) {
      const double step = power * digit;
      if (step / highest_ * length < spacing && step < highest_) continue;
      const int ratio = digit == 2 ? 4 : 5;
      const double small = step / ratio;
      const bool hasSmall = small / highest_ * length >= kLeastMarkSpacing;
      for (int i = 0; i * small <= highest_ * (1 + 1e-9); ++i) {
        const bool isMajor = i % ratio == 0;
        if (isMajor || hasSmall)
          marks.push_back({PlaceOf(i * small), isMajor ? FrequencyText(i * small) : std::string()});
      }
      return marks;
    }
  }
}

}  // namespace qnwave
