#include "studio/runs/PreviewArea.h"

#include <gtest/gtest.h>

namespace project_lumen::studio {
namespace {

TEST(PreviewArea, TakesWhatIsVisible) {
  EXPECT_EQ(PreviewArea({1000, 500, 800, 600}, {6000, 4000}), cv::Rect(1000, 500, 800, 600));
}

TEST(PreviewArea, GrowsAboutItsCentre) {
  // 100 pixels about 1050 become 512: from 794 on.
  EXPECT_EQ(PreviewArea({1000, 1000, 100, 100}, {6000, 4000}), cv::Rect(794, 794, 512, 512));
}

TEST(PreviewArea, ShrinksAboutItsCentre) {
  EXPECT_EQ(PreviewArea({0, 0, 6000, 4000}, {6000, 4000}), cv::Rect(1976, 976, 2048, 2048));
}

TEST(PreviewArea, StaysInTheImage) {
  EXPECT_EQ(PreviewArea({-300, 3900, 600, 600}, {6000, 4000}), cv::Rect(0, 3400, 600, 600));
  EXPECT_EQ(PreviewArea({1e300, -1e300, 1e300, 0}, {6000, 4000}), cv::Rect(3952, 0, 2048, 512));
}

TEST(PreviewArea, TakesAllOfASmallImage) {
  EXPECT_EQ(PreviewArea({10, 10, 50, 50}, {300, 700}), cv::Rect(0, 0, 300, 512));
}

}  // namespace
}  // namespace project_lumen::studio
