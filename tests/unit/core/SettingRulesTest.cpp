#include "core/SettingRules.h"

#include <gtest/gtest.h>

#include <limits>

namespace project_lumen::core {
namespace {

TEST(SettingRules, StridesFromOneToTheWindowAreWithinIt) {
  EXPECT_TRUE(IsWithinWindow(1));
  EXPECT_TRUE(IsWithinWindow(512));
  for (const std::int32_t stride : {0, -2, 513, std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_FALSE(IsWithinWindow(stride)) << stride;
  }
}

TEST(SettingRules, EvenStrides) {
  EXPECT_TRUE(IsEven(2));
  EXPECT_FALSE(IsEven(511));
}

TEST(SettingRules, ShadowsMultipliersAreFiniteAndNegative) {
  EXPECT_TRUE(IsShadowsMultiplier(-2.8));
  EXPECT_TRUE(IsShadowsMultiplier(-1e300));
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double value : {0.0, 1.0, kInfinity, -kInfinity, std::nan("")}) {
    EXPECT_FALSE(IsShadowsMultiplier(value)) << value;
  }
}

TEST(SettingRules, TargetBackgroundsLieBetweenBlackAndWhite) {
  EXPECT_TRUE(IsTargetBackground(0.25));
  EXPECT_TRUE(IsTargetBackground(1e-300));
  for (const double value :
       {0.0, 1.0, -0.25, std::numeric_limits<double>::infinity(), std::nan("")}) {
    EXPECT_FALSE(IsTargetBackground(value)) << value;
  }
}

}  // namespace
}  // namespace project_lumen::core
