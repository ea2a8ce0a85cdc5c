#include "common/OutOfMemory.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <stdexcept>
#include <typeinfo>

namespace project_lumen {
namespace {

cv::Exception OpenCvError(int code) {
  return {code, "Failed", "f", "f.cpp", 1};
}

TEST(MeansLackOfMemory, IsTrueForBothKinds) {
  EXPECT_TRUE(MeansLackOfMemory(std::bad_alloc()));
  EXPECT_TRUE(MeansLackOfMemory(std::bad_array_new_length()));
  EXPECT_TRUE(MeansLackOfMemory(OpenCvError(cv::Error::StsNoMem)));
}

TEST(MeansLackOfMemory, IsFalseForEveryOtherError) {
  EXPECT_FALSE(MeansLackOfMemory(std::runtime_error("Not enough memory")));
  EXPECT_FALSE(MeansLackOfMemory(OpenCvError(cv::Error::StsAssert)));
}

TEST(WithBadAlloc, ReturnsWhatTheWorkReturns) {
  EXPECT_EQ(WithBadAlloc([] { return 7; }), 7);
  bool done = false;
  WithBadAlloc([&done] { done = true; });
  EXPECT_TRUE(done);
}

TEST(WithBadAlloc, TurnsOpenCvsLackOfMemoryIntoTheStandardOne) {
  EXPECT_THROW(WithBadAlloc([] { throw OpenCvError(cv::Error::StsNoMem); }), std::bad_alloc);
}

TEST(WithBadAlloc, LetsEverythingElsePass) {
  EXPECT_THROW(WithBadAlloc([] { throw OpenCvError(cv::Error::StsAssert); }), cv::Exception);
  EXPECT_THROW(WithBadAlloc([] { throw 42; }), int);
  try {
    WithBadAlloc([] { throw std::invalid_argument("mine"); });
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::exception& error) {
    EXPECT_EQ(typeid(error), typeid(std::invalid_argument));
    EXPECT_STREQ(error.what(), "mine");
  }
}

}  // namespace
}  // namespace project_lumen
