#include "studio/http/QueryNumbers.h"

#include <gtest/gtest.h>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

TEST(QueryNumbers, WholeNumbersAreDigitsAlone) {
  EXPECT_EQ(ParseWholeNumber("0"), 0);
  EXPECT_EQ(ParseWholeNumber("1000000000"), 1000000000);
  for (const char* text : {"", "-1", "+1", " 1", "1 ", "1.0", "0x1", "1000000001", "99999999999"}) {
    EXPECT_EQ(ParseWholeNumber(text), std::nullopt) << text;
  }
}

TEST(QueryNumbers, RealNumbersAreFinite) {
  EXPECT_EQ(ParseRealNumber("-2.8"), -2.8);
  EXPECT_EQ(ParseRealNumber("1e-3"), 0.001);
  for (const char* text : {"", "inf", "nan", "1e999", "1,5", "1.5x", " 1"}) {
    EXPECT_EQ(ParseRealNumber(text), std::nullopt) << text;
  }
}

TEST(QueryNumbers, StretchIsOffUnlessAskedFor) {
  EXPECT_FALSE(QueryStretch({}));
  EXPECT_FALSE(QueryStretch({{"stretch", "0"}, {"shadows", "-1"}}));
  const auto stretch = QueryStretch({{"stretch", "1"}, {"background", "0.3"}});
  ASSERT_TRUE(stretch);
  EXPECT_EQ(stretch->shadowsClipping, -2.8);
  EXPECT_EQ(stretch->targetBackground, 0.3);
}

TEST(QueryNumbers, SettingsOutOfRangeAreRefused) {
  for (const Query& query :
       {Query{{"stretch", "1"}, {"shadows", "0"}}, Query{{"stretch", "1"}, {"background", "1"}},
        Query{{"stretch", "1"}, {"background", "0"}}, Query{{"stretch", "yes"}}}) {
    EXPECT_THROW(QueryStretch(query), ApiError);
  }
  EXPECT_THROW(QueryLook({{"amount", "1.1"}}, Layer::kBlend), ApiError);
  EXPECT_THROW(QueryLook({{"curve", "0"}}, Layer::kBlend), ApiError);
  EXPECT_THROW(QueryLook({{"gain", "-1"}}, Layer::kMask), ApiError);
}

}  // namespace
}  // namespace project_lumen::studio
