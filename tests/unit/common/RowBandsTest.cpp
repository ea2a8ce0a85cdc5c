#include "common/RowBands.h"

#include <gtest/gtest.h>

#include <vector>

namespace project_lumen {
namespace {

std::vector<cv::Range> BandsOf(int rows, int columns, int type) {
  std::vector<cv::Range> bands;
  ForEachRowBand(cv::Mat(rows, columns, type),
                 [&bands](const cv::Range& band) { bands.push_back(band); });
  return bands;
}

// 32768 samples a band: 32 rows of 1024.
TEST(ForEachRowBand, TheLastBandHoldsWhatIsLeft) {
  EXPECT_EQ(BandsOf(64, 1024, CV_8UC1), (std::vector<cv::Range>{{0, 32}, {32, 64}}));
  EXPECT_EQ(BandsOf(65, 1024, CV_8UC1), (std::vector<cv::Range>{{0, 32}, {32, 64}, {64, 65}}));
  EXPECT_EQ(BandsOf(31, 1024, CV_8UC1), (std::vector<cv::Range>{{0, 31}}));
}

TEST(ForEachRowBand, ChannelsCountAsSamples) {
  EXPECT_EQ(BandsOf(12, 1024, CV_16UC3), (std::vector<cv::Range>{{0, 10}, {10, 12}}));
}

TEST(ForEachRowBand, ARowThatIsTooLongIsABandOfItsOwn) {
  EXPECT_EQ(BandsOf(2, 32769, CV_8UC1), (std::vector<cv::Range>{{0, 1}, {1, 2}}));
}

}  // namespace
}  // namespace project_lumen
