// Images made from a seed, and checks, shared by the core's tests.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <typeinfo>

#include <opencv2/core.hpp>

namespace project_lumen::core {

// Uniform random samples in [low, high), of any float type.
inline cv::Mat MakeNoise(cv::Size size, int type, unsigned seed, double low = 0.0,
                         double high = 1.0) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<double> level(low, high);
  cv::Mat image(size, CV_MAKETYPE(CV_64F, CV_MAT_CN(type)));
  for (int r = 0; r < image.rows; ++r) {
    auto* row = image.ptr<double>(r);
    for (int i = 0; i < image.cols * image.channels(); ++i) {
      row[i] = level(generator);
    }
  }
  cv::Mat result;
  image.convertTo(result, CV_MAT_DEPTH(type));
  return result;
}

// The sample (row, column, channel) of a float32 or float64 image.
inline double SampleAt(const cv::Mat& image, int row, int column, int channel) {
  const int i = column * image.channels() + channel;
  return image.depth() == CV_32F ? static_cast<double>(image.ptr<float>(row)[i])
                                 : image.ptr<double>(row)[i];
}

// Whether both have the same shape, type and sample values.
inline bool AreEqual(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// Expects exactly this exception type with exactly this text.
template <typename Exception, typename Call>
void ExpectThrows(Call call, const std::string& text) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected: " << text;
  } catch (const Exception& error) {
    EXPECT_EQ(typeid(error), typeid(Exception));
    EXPECT_EQ(std::string(error.what()), text);
  }
}

// Expects an assertion failure (code -215) that names the function and the condition.
template <typename Call>
void ExpectAssertion(Call call, const std::string& function, const std::string& expression) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected: " << expression;
  } catch (const cv::Exception& error) {
    EXPECT_EQ(error.code, -215);
    EXPECT_EQ(error.func, function);
    EXPECT_EQ(error.err, expression);
  }
}

}  // namespace project_lumen::core
