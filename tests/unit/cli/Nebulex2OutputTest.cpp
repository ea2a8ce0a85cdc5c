#include "cli/Nebulex2/Nebulex2Output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/LargeAllocations.h"

namespace project_lumen::cli {
namespace {

namespace fs = std::filesystem;

io::SourceImageInfo ColourSource(int depth) {
  io::SourceImageInfo info;
  info.storedDepth = depth;
  return info;
}

io::SourceImageInfo GraySource(int depth) {
  io::SourceImageInfo info = ColourSource(depth);
  info.isGrayscale = true;
  return info;
}

// The image as it will be read back, through the path that the program takes.
cv::Mat ReadBack(const std::string& path, const cv::Mat& image, const OutputContext& context) {
  const cv::Mat prepared = PrepareOutputImage(path, image, false, context.source);
  return ReadBackOutputRows(path, prepared, {0, image.rows}, context);
}

TEST(PrepareOutputImage, RoundsToNearestAndSaturates) {
  const cv::Mat image =
      (cv::Mat_<cv::Vec3f>(1, 2) << cv::Vec3f(-0.1F, 0.0F, 1.2F), cv::Vec3f(1.0F, 0.5F, 0.25F));
  const cv::Mat bits8 = PrepareOutputImage("a.tif", image, false, ColourSource(CV_8U));
  ASSERT_EQ(bits8.type(), CV_8UC3);
  EXPECT_EQ(bits8.at<cv::Vec3b>(0), cv::Vec3b(255, 0, 0));
  // 0.5 * 255 = 127.5 lies between two values; 0.25 * 255 = 63.75.
  EXPECT_EQ(bits8.at<cv::Vec3b>(1), cv::Vec3b(64, 128, 255));
  const cv::Mat bits16 = PrepareOutputImage("a.tif", image, false, ColourSource(CV_16U));
  ASSERT_EQ(bits16.type(), CV_16UC3);
  EXPECT_EQ(bits16.at<cv::Vec3w>(0), cv::Vec3w(65535, 0, 0));
  EXPECT_EQ(bits16.at<cv::Vec3w>(1), cv::Vec3w(16384, 32768, 65535));
}

TEST(PrepareOutputImage, GrayscaleSourcesBecomeOneChannel) {
  const cv::Mat image(2, 2, CV_32FC3, cv::Scalar(0.2, 0.2, 0.2));
  const cv::Mat prepared = PrepareOutputImage("a.png", image, false, GraySource(CV_8U));
  ASSERT_EQ(prepared.type(), CV_8UC1);
  EXPECT_EQ(prepared.at<std::uint8_t>(0), 51);
}

TEST(PrepareOutputImage, DepthFollowsSourceAndExtension) {
  const cv::Mat image(2, 2, CV_64FC3, cv::Scalar::all(0.5));
  const auto depth = [&image](const std::string& path, int stored) {
    return PrepareOutputImage(path, image, false, ColourSource(stored)).depth();
  };
  EXPECT_EQ(depth("a.PNG", CV_8U), CV_8U);
  EXPECT_EQ(depth("a.tiff", CV_16U), CV_16U);
  EXPECT_EQ(depth("a.tif", -1), CV_16U);
  EXPECT_EQ(depth("a.jpeg", CV_16U), CV_8U);
  EXPECT_EQ(depth("a.jpg", -1), CV_8U);
}

TEST(PrepareOutputImage, FitsPathsKeepFloatingPointAndRgbOrder) {
  const cv::Mat image(1, 1, CV_64FC3, cv::Scalar(0.1, 0.2, 1.3));
  const cv::Mat prepared = PrepareOutputImage("a.fits", image, false, ColourSource(CV_16U));
  ASSERT_EQ(prepared.type(), CV_64FC3);
  EXPECT_EQ(prepared.at<cv::Vec3d>(0), cv::Vec3d(0.1, 0.2, 1.3));
}

TEST(PrepareOutputImage, DownsampleTakesTheEvenSamples) {
  cv::Mat image(2, 4, CV_32FC3, cv::Scalar::all(0));
  image.at<cv::Vec3f>(0, 2) = cv::Vec3f(1, 1, 1);
  const cv::Mat prepared = PrepareOutputImage("a.tif", image, true, ColourSource(CV_8U));
  ASSERT_EQ(prepared.size(), cv::Size(2, 1));
  EXPECT_EQ(prepared.at<cv::Vec3b>(0, 1), cv::Vec3b(255, 255, 255));
}

TEST(PrepareOutputImage, ShortPathIsOutOfRange) {
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar::all(0));
  try {
    PrepareOutputImage("a", image, false, ColourSource(CV_8U));
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

TEST(ReadBackOutputRows, HoldsWhatTheFileWillHoldInRgbOrder) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = ColourSource(CV_8U);
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar(0.1, 0.5001, 2.0));
  const cv::Mat values = ReadBack("a.png", image, {source, nullptr, sink});
  ASSERT_EQ(values.type(), CV_64FC3);
  // 25.5 of a float32 0.1 (slightly above 0.1) rounds up to 26; 0.5001 * 255 = 127.5255.
  const cv::Vec3d expected(26 / 255.0, 128 / 255.0, 1.0);
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(values.at<cv::Vec3d>(0)[c], expected[c], 1e-15);
  }
  EXPECT_EQ(records.str(), "");
}

TEST(ReadBackOutputRows, SixteenBitGrayHasOneChannelOfMultiplesOfTheStep) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = GraySource(CV_16U);
  const cv::Mat image(1, 1, CV_64FC1, cv::Scalar(0.25));
  const cv::Mat values = ReadBack("a.tif", image, {source, nullptr, sink});
  ASSERT_EQ(values.type(), CV_64FC1);
  EXPECT_NEAR(values.at<double>(0), 16384 / 65535.0, 1e-15);  // 0.25 * 65535 = 16383.75
}

TEST(ReadBackOutputRows, TakesTheRowsThatAreAskedFor) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = GraySource(CV_8U);
  const cv::Mat prepared = (cv::Mat_<std::uint8_t>(3, 1) << 0, 51, 255);
  const cv::Mat values = ReadBackOutputRows("a.png", prepared, {1, 3}, {source, nullptr, sink});
  ASSERT_EQ(values.size(), cv::Size(1, 2));
  EXPECT_NEAR(values.at<double>(0), 0.2, 1e-15);
  EXPECT_NEAR(values.at<double>(1), 1.0, 1e-15);
}

TEST(ReadBackOutputRows, LeavesThePreparedImageAsItIs) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = ColourSource(CV_8U);
  const cv::Mat prepared(2, 1, CV_8UC3, cv::Scalar(1, 2, 3));
  ReadBackOutputRows("a.png", prepared, {0, 2}, {source, nullptr, sink});
  EXPECT_EQ(prepared.at<cv::Vec3b>(0), cv::Vec3b(1, 2, 3));
  EXPECT_EQ(prepared.at<cv::Vec3b>(1), cv::Vec3b(1, 2, 3));
}

// Rows of a linear run are restored from the source's rows at the same place.
TEST(ReadBackOutputRows, RestoredFitsSamplesKeepTheirPlace) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  io::SourceImageInfo source = GraySource(-1);
  source.isFits = true;
  source.fits.bitpix = -64;
  source.fits.equivalentType = -64;
  io::LinearOutputInfo linear;
  linear.channels = {{.shadows = 0.25, .constant = false}};
  linear.sourceSamples = (cv::Mat_<double>(3, 1) << 0.125, 0.1875, 0.5);
  const cv::Mat image = (cv::Mat_<double>(3, 1) << 0.75, 0.75, 0.75);
  const cv::Mat values = ReadBackOutputRows("a.fits", image, {1, 3}, {source, &linear, sink});
  ASSERT_EQ(values.size(), cv::Size(1, 2));
  EXPECT_EQ(values.at<double>(0), 0.1875);
  EXPECT_EQ(values.at<double>(1), 0.75);
}

TEST(PrepareFinalStarless, ReturnsToTheInputGridThenToGrayThenRestores) {
  cv::Mat starless(4, 6, CV_64FC3, cv::Scalar::all(0.5));
  starless.at<cv::Vec3d>(2, 4) = cv::Vec3d(1, 1, 1);
  cv::Mat seen;
  const cv::Mat prepared = PrepareFinalStarless(starless, true, true, [&seen](cv::Mat& image) {
    seen = image.clone();
    image.at<double>(0) = 0.125;
  });
  ASSERT_EQ(seen.type(), CV_64FC1);
  ASSERT_EQ(seen.size(), cv::Size(3, 2));
  EXPECT_DOUBLE_EQ(seen.at<double>(1, 2), 1.0);
  EXPECT_EQ(prepared.at<double>(0), 0.125);
}

TEST(PrepareFinalStarless, ColourOnTheInputGridStaysAsItIs) {
  const cv::Mat starless(2, 2, CV_32FC3, cv::Scalar(0.1, 0.2, 0.3));
  const cv::Mat prepared = PrepareFinalStarless(starless, false, false, [](cv::Mat&) {});
  EXPECT_EQ(prepared.data, starless.data);
}

TEST(PrepareLayer, QuantisesAllRowsAsTheWholeLayerWouldBe) {
  const cv::Mat source = (cv::Mat_<float>(3, 1) << 0.75F, 1.0F, 0.25F);
  const LayerInputs inputs{source, [](const cv::Range& rows) {
                             return cv::Mat(rows.size(), 1, CV_64FC1, cv::Scalar(0.5));
                           }};
  cv::Mat mask;
  PrepareLayer("a.tif", inputs, io::OutputRole::kDifference, GraySource(CV_16U), mask);
  ASSERT_EQ(mask.type(), CV_16UC1);
  EXPECT_EQ(mask.at<std::uint16_t>(0), 16384);  // 0.25 * 65535 = 16383.75
  EXPECT_EQ(mask.at<std::uint16_t>(1), 32768);  // 0.5 * 65535 = 32767.5, to even
  EXPECT_EQ(mask.at<std::uint16_t>(2), 0);
}

TEST(PrepareLayer, HoldsNothingOfTheImagesSizeButOneLayerForAll) {
  const cv::Mat source(1024, 1024, CV_32FC3, cv::Scalar::all(0.5));
  const LayerInputs inputs{source, [](const cv::Range& rows) {
                             return cv::Mat(rows.size(), 1024, CV_64FC3, cv::Scalar::all(0.25));
                           }};
  const LargeAllocations large(source.total());
  cv::Mat layer;
  PrepareLayer("a.tif", inputs, io::OutputRole::kDifference, ColourSource(CV_16U), layer);
  PrepareLayer("b.tif", inputs, io::OutputRole::kUnscreen, ColourSource(CV_16U), layer);
  EXPECT_EQ(large.Sizes(), (std::vector<std::size_t>{source.total() * 3 * sizeof(std::uint16_t)}));
}

TEST(PrepareLayer, FitsLayersStayInFloat64AndRgbOrder) {
  const cv::Mat source(1, 1, CV_32FC3, cv::Scalar(0.5, 0.75, 1.0));
  const LayerInputs inputs{
      source, [](const cv::Range&) { return cv::Mat(1, 1, CV_64FC3, cv::Scalar::all(0.5)); }};
  cv::Mat layer;
  PrepareLayer("a.fits", inputs, io::OutputRole::kUnscreen, ColourSource(CV_16U), layer);
  ASSERT_EQ(layer.type(), CV_64FC3);
  EXPECT_EQ(layer.at<cv::Vec3d>(0), cv::Vec3d(0.0, 0.5, 1.0));
}

class WriteOutputImageTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/outputXXXXXX";
    folder_ = mkdtemp(pattern.data());
  }
  void TearDown() override { fs::remove_all(folder_); }
  fs::path folder_;
};

TEST_F(WriteOutputImageTest, DisplayFormatsSayTheirDepthAndKeepTheSamples) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = ColourSource(CV_16U);
  const std::string path = folder_ / "a.tif";
  const cv::Mat prepared(2, 2, CV_16UC3, cv::Scalar(1, 300, 65535));
  WriteOutputImage(path, prepared, io::OutputRole::kMain, {source, nullptr, sink});
  EXPECT_EQ(records.str(), "Info [output]: Writing " + path +
                               "\nInfo [output_conversion]: display-format export; depth=16 bits; "
                               "normalized display values, not physical FITS units\n");
  const cv::Mat read = cv::imread(path, cv::IMREAD_UNCHANGED);
  EXPECT_EQ(cv::norm(read, prepared, cv::NORM_INF), 0.0);
}

TEST_F(WriteOutputImageTest, EightBitsAreNamedToo) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = GraySource(CV_8U);
  WriteOutputImage(folder_ / "a.png", cv::Mat(2, 2, CV_8UC1, cv::Scalar(7)),
                   io::OutputRole::kUnscreen, {source, nullptr, sink});
  EXPECT_NE(records.str().find("depth=8 bits;"), std::string::npos);
}

}  // namespace
}  // namespace project_lumen::cli
