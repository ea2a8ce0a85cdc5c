#include "io/ImageWriter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>

#include "support/ExpectMessage.h"
#include "support/ReadFits.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

SourceImageInfo ColourSource(int depth) {
  SourceImageInfo info;
  info.storedDepth = depth;
  return info;
}

SourceImageInfo GraySource(int depth) {
  SourceImageInfo info = ColourSource(depth);
  info.isGrayscale = true;
  return info;
}

cv::Mat Prepare(const std::string& path, const cv::Mat& image, const SourceImageInfo& source) {
  return PrepareOutputImage({path, OutputRole::kMain, source}, image);
}

// The image as it will be read back, through the path that the program takes.
cv::Mat ReadBack(const OutputFile& file, const cv::Mat& image) {
  return ReadBackOutputImage(file, PrepareOutputImage(file, image), {0, image.rows});
}

TEST(PrepareOutputImage, RoundsToNearestAndSaturates) {
  const cv::Mat image =
      (cv::Mat_<cv::Vec3f>(1, 2) << cv::Vec3f(-0.1F, 0.0F, 1.2F), cv::Vec3f(1.0F, 0.5F, 0.25F));
  const cv::Mat bits8 = Prepare("a.tif", image, ColourSource(CV_8U));
  ASSERT_EQ(bits8.type(), CV_8UC3);
  EXPECT_EQ(bits8.at<cv::Vec3b>(0), cv::Vec3b(255, 0, 0));
  // 0.5 * 255 = 127.5 lies between two values; 0.25 * 255 = 63.75.
  EXPECT_EQ(bits8.at<cv::Vec3b>(1), cv::Vec3b(64, 128, 255));
  const cv::Mat bits16 = Prepare("a.tif", image, ColourSource(CV_16U));
  ASSERT_EQ(bits16.type(), CV_16UC3);
  EXPECT_EQ(bits16.at<cv::Vec3w>(0), cv::Vec3w(65535, 0, 0));
  EXPECT_EQ(bits16.at<cv::Vec3w>(1), cv::Vec3w(16384, 32768, 65535));
}

TEST(PrepareOutputImage, GreyRowsAreQuantisedToo) {
  const cv::Mat prepared =
      Prepare("a.png", cv::Mat(2, 2, CV_32FC1, cv::Scalar(0.2)), GraySource(CV_8U));
  ASSERT_EQ(prepared.type(), CV_8UC1);
  EXPECT_EQ(prepared.at<std::uint8_t>(0), 51);
}

TEST(PrepareOutputImage, DepthFollowsSourceAndExtension) {
  const cv::Mat image(2, 2, CV_64FC3, cv::Scalar::all(0.5));
  const auto depth = [&image](const std::string& path, int stored) {
    return Prepare(path, image, ColourSource(stored)).depth();
  };
  EXPECT_EQ(depth("a.PNG", CV_8U), CV_8U);
  EXPECT_EQ(depth("a.tiff", CV_16U), CV_16U);
  EXPECT_EQ(depth("a.tif", -1), CV_16U);
  EXPECT_EQ(depth("a.jpeg", CV_16U), CV_8U);
  EXPECT_EQ(depth("a.jpg", -1), CV_8U);
}

TEST(PrepareOutputImage, FitsPathsKeepFloatingPointAndRgbOrder) {
  const cv::Mat image(1, 1, CV_64FC3, cv::Scalar(0.1, 0.2, 1.3));
  const cv::Mat prepared = Prepare("a.fits", image, ColourSource(CV_16U));
  ASSERT_EQ(prepared.type(), CV_64FC3);
  EXPECT_EQ(prepared.at<cv::Vec3d>(0), cv::Vec3d(0.1, 0.2, 1.3));
}

TEST(PrepareOutputImage, ShortPathIsOutOfRange) {
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar::all(0));
  try {
    Prepare("a", image, ColourSource(CV_8U));
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

TEST(ReadBackOutputImage, HoldsWhatTheFileWillHoldInRgbOrder) {
  const SourceImageInfo source = ColourSource(CV_8U);
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar(0.1, 0.5001, 2.0));
  const cv::Mat values = ReadBack({"a.png", OutputRole::kMain, source}, image);
  ASSERT_EQ(values.type(), CV_64FC3);
  // 25.5 of a float32 0.1 (slightly above 0.1) rounds up to 26; 0.5001 * 255 = 127.5255.
  const cv::Vec3d expected(26 / 255.0, 128 / 255.0, 1.0);
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(values.at<cv::Vec3d>(0)[c], expected[c], 1e-15);
  }
}

TEST(ReadBackOutputImage, SixteenBitGrayHasOneChannelOfMultiplesOfTheStep) {
  const SourceImageInfo source = GraySource(CV_16U);
  const cv::Mat image(1, 1, CV_64FC1, cv::Scalar(0.25));
  const cv::Mat values = ReadBack({"a.tif", OutputRole::kMain, source}, image);
  ASSERT_EQ(values.type(), CV_64FC1);
  EXPECT_NEAR(values.at<double>(0), 16384 / 65535.0, 1e-15);  // 0.25 * 65535 = 16383.75
}

TEST(ReadBackOutputImage, TakesTheRowsThatAreAskedFor) {
  const SourceImageInfo source = GraySource(CV_8U);
  const cv::Mat prepared = (cv::Mat_<std::uint8_t>(3, 1) << 0, 51, 255);
  const cv::Mat values =
      ReadBackOutputImage({"a.png", OutputRole::kMain, source}, prepared, {1, 3});
  ASSERT_EQ(values.size(), cv::Size(1, 2));
  EXPECT_NEAR(values.at<double>(0), 0.2, 1e-15);
  EXPECT_NEAR(values.at<double>(1), 1.0, 1e-15);
}

TEST(ReadBackOutputImage, LeavesThePreparedImageAsItIs) {
  const SourceImageInfo source = ColourSource(CV_8U);
  const cv::Mat prepared(2, 1, CV_8UC3, cv::Scalar(1, 2, 3));
  ReadBackOutputImage({"a.png", OutputRole::kMain, source}, prepared, {0, 2});
  EXPECT_EQ(prepared.at<cv::Vec3b>(0), cv::Vec3b(1, 2, 3));
  EXPECT_EQ(prepared.at<cv::Vec3b>(1), cv::Vec3b(1, 2, 3));
}

TEST(ReadBackOutputImage, FitsRowsAreThoseOfTheirPlace) {
  SourceImageInfo source = GraySource(-1);
  source.isFits = true;
  source.fits.bitpix = -64;
  source.fits.equivalentType = -64;
  const cv::Mat image = (cv::Mat_<double>(3, 1) << 0.125, 0.1875, 0.5);
  const cv::Mat values = ReadBackOutputImage({"a.fits", OutputRole::kMain, source}, image, {1, 3});
  ASSERT_EQ(values.size(), cv::Size(1, 2));
  EXPECT_EQ(values.at<double>(0), 0.1875);
  EXPECT_EQ(values.at<double>(1), 0.5);
}

class ImageWriterTest : public testing::Test {
 protected:
  void Check(const std::string& name) const {
    CheckOutputTarget({folder_.Path(name), OutputRole::kMain, SourceImageInfo()}, {600, 500});
  }

  test::TemporaryFolder folder_;
};

TEST_F(ImageWriterTest, BandsOfRowsBecomeOneFile) {
  const SourceImageInfo source = GraySource(CV_16U);
  const cv::Mat stored = (cv::Mat_<std::uint16_t>(3, 2) << 1, 2, 3, 4, 5, 65535);
  const std::string path = folder_.Path("a.tif");
  ImageWriter writer({path, OutputRole::kMain, source}, stored.size());
  writer.Append(stored.rowRange(0, 2));
  EXPECT_FALSE(std::filesystem::exists(path));
  writer.Append(stored.rowRange(2, 3));
  const OutputReport report = writer.Finish();
  EXPECT_FALSE(report.isQuantised);
  EXPECT_EQ(cv::norm(cv::imread(path, cv::IMREAD_UNCHANGED), stored, cv::NORM_INF), 0.0);
}

TEST_F(ImageWriterTest, FitsFilesTakeTheirStorageFromTheSource) {
  SourceImageInfo source = GraySource(-1);
  source.isFits = true;
  source.fits.bitpix = 8;
  source.fits.equivalentType = 8;
  source.fits.fixedDivisor = 255.0;
  const OutputFile file{folder_.Path("a.fits"), OutputRole::kMain, source};
  EXPECT_EQ(DescribeOutput(file).bitpix, 8);
  EXPECT_EQ(DescribeOutput(file).white, 255.0);
  ImageWriter writer(file, {2, 1});
  writer.Append((cv::Mat_<double>(1, 2) << 0.2, 1.5));
  const OutputReport report = writer.Finish();
  EXPECT_TRUE(report.isQuantised);
  EXPECT_EQ(report.clippedAtUpperLimit, 1U);
  const test::FitsImage read = test::ReadFits(file.path, true);
  EXPECT_EQ(read.image.at<double>(0), 0.2);
  EXPECT_EQ(read.image.at<double>(1), 1.0);
}

TEST_F(ImageWriterTest, ARasterFormatSaysItsDepth) {
  const SourceImageInfo source = ColourSource(CV_16U);
  EXPECT_FALSE(DescribeOutput({"a.png", OutputRole::kMain, source}).isFits);
  EXPECT_EQ(DescribeOutput({"a.png", OutputRole::kMain, source}).bits, 16);
  EXPECT_EQ(DescribeOutput({"a.jpg", OutputRole::kMain, source}).bits, 8);
}

TEST_F(ImageWriterTest, AResultThatMissesRowsIsNotWritten) {
  const SourceImageInfo source = GraySource(CV_8U);
  ImageWriter writer({folder_.Path("a.png"), OutputRole::kMain, source}, {2, 2});
  writer.Append(cv::Mat(1, 2, CV_8UC1, cv::Scalar(7)));
  EXPECT_THROW(writer.Finish(), cv::Exception);
  EXPECT_EQ(folder_.FileCount(), 0);
}

TEST_F(ImageWriterTest, TargetsAreCheckedByTheirFormat) {
  test::ExpectMessage<std::invalid_argument>([this] { Check("missing/a.fits"); },
                                             "Creating image failed for FITS image " +
                                                 folder_.Path("missing/a.fits") +
                                                 ": No such file or directory");
  test::ExpectMessage<std::invalid_argument>(
      [this] { Check("missing/a.tif"); },
      "Unable to write output image: " + folder_.Path("missing/a.tif") +
          " (No such file or directory)");
  Check("a.tif");
  EXPECT_EQ(folder_.FileCount(), 0);
}

}  // namespace
}  // namespace project_lumen::io
