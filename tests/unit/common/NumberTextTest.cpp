#include "common/NumberText.h"

#include <gtest/gtest.h>

#include <limits>

namespace project_lumen {
namespace {

TEST(FormatReal, WholeNumbersHaveNoPoint) {
  EXPECT_EQ(FormatReal(0.0), "0");
  EXPECT_EQ(FormatReal(255.0), "255");
  EXPECT_EQ(FormatReal(65535.0), "65535");
}

TEST(FormatReal, SeventeenSignificantDigits) {
  EXPECT_EQ(FormatReal(0.25), "0.25");
  EXPECT_EQ(FormatReal(-2.8), "-2.7999999999999998");
  EXPECT_EQ(FormatReal(1.0 / 255.0), "0.0039215686274509803");
  EXPECT_EQ(FormatReal(1.0 / 65535.0), "1.5259021896696422e-05");
}

TEST(FormatReal, LargeValuesTurnScientific) {
  EXPECT_EQ(FormatReal(9223372036854775808.0), "9.2233720368547758e+18");
}

TEST(FormatReal, NonFiniteValues) {
  EXPECT_EQ(FormatReal(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(FormatReal(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_EQ(FormatReal(std::numeric_limits<double>::quiet_NaN()), "nan");
}

}  // namespace
}  // namespace project_lumen
