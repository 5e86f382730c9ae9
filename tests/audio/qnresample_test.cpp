// The sample-rate converter against direct evaluations of its formulas.
#include "qn/audio/qnresample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/support.h"

namespace qntest {
namespace {

TEST(RatApprox, GivesFractionsWithinTheLimit) {
  const double pi = 3.14159265358979323846, inf = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    int limit, table, result, numerator, denominator;
  } rows[] = {{48000.0 / 44100, 0, 1, 1, 48000, 44100},  // the first match in the table
              {48000.0 / 44100, 0, 0, 1, 160, 147},
              {2, 0, 1, 1, 16000, 8000},
              {0, 0, 1, 0, 0, 1},
              {pi, 1000, 0, 1, 355, 113},
              {-pi, 400, 1, 1, -355, 113},
              {1 / pi, 1000, 1, 1, 113, 355},
              {0.75, 0, 0, 1, 3, 4},
              {0.7, -5, 0, 1, 1, 1},        // the limit is 1 at least
              {1000.4, 10, 0, 1, 1000, 1},  // and the whole part of the value
              {3e9, 0, 0, 1, 2147483647, 1},
              {1e-12, 0, 0, 1, 0, 1},
              {1e10, 0, 0, 0, 7, 7},  // no fraction is near to these
              {1e300, 5, 0, 0, 7, 7},
              {1e-300, 5, 0, 0, 7, 7},
              {inf, 5, 1, 0, 7, 7},
              {NAN, 0, 1, 0, 7, 7}};
  for (const auto& row : rows) {
    int numerator = 7, denominator = 7;
    double error = 7;
    EXPECT_EQ(QnRatApprox(row.value, row.limit, row.table, &numerator, &denominator, &error), row.result)
        << row.value;
    EXPECT_EQ(numerator, row.numerator) << row.value;
    EXPECT_EQ(denominator, row.denominator) << row.value;
    EXPECT_EQ(error, row.result ? row.value - 1.0 * row.numerator / row.denominator : 0) << row.value;
  }
}

TEST(RatApprox, IsTheBestFractionOfItsDenominators) {
  for (int i = 0; i < 3000; ++i) {
    const double value = std::ldexp(static_cast<double>(Random()() >> 11), -53);
    const int limit = 1 + static_cast<int>(Random()() % 200);
    int numerator = 0, denominator = 0;
    double error = 0, best = 1;
    ASSERT_EQ(QnRatApprox(value, limit, 0, &numerator, &denominator, &error), 1);
    for (int d = 1; d <= limit; ++d) best = std::min(best, std::fabs(value - std::rint(value * d) / d));
    ASSERT_LE(denominator, limit);
    ASSERT_NEAR(std::fabs(error), best, 1e-15) << value << " within " << limit;
  }
}

}  // namespace
}  // namespace qntest
