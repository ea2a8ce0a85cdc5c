#include "common/FailureText.h"

#include <gtest/gtest.h>

#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace project_lumen {
namespace {

constexpr const char* kNoMemory = "Not enough memory to process the image.";

TEST(FailureText, IsTheExceptionsOwn) {
  EXPECT_EQ(FailureText(std::invalid_argument("No such image")), "No such image");
  const cv::Exception failure(cv::Error::StsAssert, "a < b", "f", "f.cpp", 1);
  EXPECT_EQ(FailureText(failure), failure.what());
}

TEST(FailureText, NamesTheLackOfMemoryWhoeverFeelsIt) {
  EXPECT_EQ(FailureText(std::bad_alloc()), kNoMemory);
  EXPECT_EQ(FailureText(std::bad_array_new_length()), kNoMemory);
  EXPECT_EQ(FailureText(cv::Exception(cv::Error::StsNoMem, "Failed", "f", "f.cpp", 1)), kNoMemory);
}

}  // namespace
}  // namespace project_lumen
