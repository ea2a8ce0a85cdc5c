#include "common/Assertion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace project_lumen {
namespace {

using ::testing::HasSubstr;

TEST(Assertion, PassesWhenTheConditionHolds) {
  EXPECT_NO_THROW(NEBULEX_ASSERT("project_lumen::Example", 1 + 1 == 2));
}

TEST(Assertion, NamesTheQualifiedFunctionTheConditionAndCode215) {
  const int rows = 0;
  try {
    NEBULEX_ASSERT("project_lumen::Example", rows > 0 && rows < 9);
    FAIL() << "no exception";
  } catch (const cv::Exception& error) {
    EXPECT_EQ(error.code, -215);
    EXPECT_EQ(error.err, "rows > 0 && rows < 9");
    EXPECT_EQ(error.func, "project_lumen::Example");
    EXPECT_THAT(error.what(), HasSubstr("(-215:Assertion failed) rows > 0 && rows < 9 in function "
                                        "'project_lumen::Example'"));
  }
}

}  // namespace
}  // namespace project_lumen
