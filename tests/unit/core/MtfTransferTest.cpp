#include "core/MtfTransfer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace project_lumen::core {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

TEST(MtfForward, PassesThroughItsThreeFixedPoints) {
  for (const double m : {0.01, 0.25, 0.5, 0.9}) {
    EXPECT_EQ(MtfForward(m, 0.0), 0.0);
    EXPECT_NEAR(MtfForward(m, m), 0.5, 1e-15);
    EXPECT_EQ(MtfForward(m, 1.0), 1.0);
  }
}

TEST(MtfForward, MatchesHandWorkedValues) {
  // m = 1/4: (-3/4 x) / (-x/2 - 1/4) = 3x / (2x + 1).
  EXPECT_NEAR(MtfForward(0.25, 0.5), 0.75, 1e-15);
  EXPECT_NEAR(MtfForward(0.25, 0.1), 0.25, 1e-15);
  EXPECT_NEAR(MtfForward(0.5, 0.3), 0.3, 1e-15);
}

TEST(MtfForward, ClipsOutsideTheUnitRange) {
  EXPECT_EQ(MtfForward(0.25, -0.1), 0.0);
  EXPECT_EQ(MtfForward(0.25, 1.1), 1.0);
  EXPECT_EQ(MtfForward(0.25, -std::numeric_limits<double>::infinity()), 0.0);
  EXPECT_EQ(MtfForward(0.25, std::numeric_limits<double>::infinity()), 1.0);
}

TEST(MtfForward, PassesNanOn) {
  EXPECT_TRUE(std::isnan(MtfForward(0.25, kNan)));
}

TEST(MtfForward, OfTheTargetIsTheBalanceThatReachesTheTarget) {
  for (const double target : {0.05, 0.25, 0.6}) {
    for (const double background : {1e-4, 0.01, 0.2, 0.9}) {
      EXPECT_NEAR(MtfForward(MtfForward(target, background), background), target, 1e-14);
    }
  }
}

TEST(MtfInverse, MatchesHandWorkedValues) {
  // m = 1/4: (y/4) / (3/4 (1 - y) + y/4) = y / (3 - 2y).
  EXPECT_NEAR(MtfInverse(0.25, 0.75), 0.5, 1e-15);
  EXPECT_NEAR(MtfInverse(0.25, 0.25), 0.1, 1e-15);
  EXPECT_NEAR(MtfInverse(0.5, 0.3), 0.3, 1e-15);
}

TEST(MtfInverse, ClipsOutsideTheUnitRange) {
  EXPECT_EQ(MtfInverse(0.25, -0.1), 0.0);
  EXPECT_EQ(MtfInverse(0.25, 0.0), 0.0);
  EXPECT_EQ(MtfInverse(0.25, 1.0), 1.0);
  EXPECT_EQ(MtfInverse(0.25, 1.1), 1.0);
}

TEST(MtfInverse, PassesNanOn) {
  EXPECT_TRUE(std::isnan(MtfInverse(0.25, kNan)));
}

TEST(MtfInverse, UndoesTheForwardTransfer) {
  for (int i = 1; i < 1000; ++i) {
    const double m = i / 1000.0;
    for (int j = 1; j < 1000; ++j) {
      const double x = j / 1000.0;
      ASSERT_NEAR(MtfInverse(m, MtfForward(m, x)), x, 1e-12) << "m " << m;
      ASSERT_NEAR(MtfForward(m, MtfInverse(m, x)), x, 1e-12) << "m " << m;
    }
  }
}

}  // namespace
}  // namespace project_lumen::core
