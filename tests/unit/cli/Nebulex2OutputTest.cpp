#include "cli/Nebulex2/Nebulex2Output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>

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

const auto kNoRestoration = [](cv::Mat&) {};
const auto kIdentityReadBack = [](const cv::Mat& image) {
  cv::Mat values;
  image.convertTo(values, CV_64F);
  return values;
};

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

TEST(ReadBackOutputImage, HoldsWhatTheFileWillHoldInRgbOrder) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = ColourSource(CV_8U);
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar(0.1, 0.5001, 2.0));
  const cv::Mat values = ReadBackOutputImage("a.png", image, {source, nullptr, sink});
  ASSERT_EQ(values.type(), CV_64FC3);
  // 25.5 of a float32 0.1 (slightly above 0.1) rounds up to 26; 0.5001 * 255 = 127.5255.
  const cv::Vec3d expected(26 / 255.0, 128 / 255.0, 1.0);
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(values.at<cv::Vec3d>(0)[c], expected[c], 1e-15);
  }
  EXPECT_EQ(records.str(), "");
}

TEST(ReadBackOutputImage, SixteenBitGrayHasOneChannelOfMultiplesOfTheStep) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = GraySource(CV_16U);
  const cv::Mat image(1, 1, CV_64FC1, cv::Scalar(0.25));
  const cv::Mat values = ReadBackOutputImage("a.tif", image, {source, nullptr, sink});
  ASSERT_EQ(values.type(), CV_64FC1);
  EXPECT_NEAR(values.at<double>(0), 16384 / 65535.0, 1e-15);  // 0.25 * 65535 = 16383.75
}

TEST(PrepareFinalNebulexOutputs, LayersComeFromTheStarlessImageAsReadBack) {
  std::ostringstream records;
  const cv::Mat source(1, 1, CV_32FC3, cv::Scalar(0.5, 0.5, 0.5));
  const cv::Mat starless(1, 1, CV_32FC3, cv::Scalar(0.4, 0.4, 0.4));
  const FinalOutputs outputs = PrepareFinalNebulexOutputs(
      source, starless, {.wantMask = true, .wantUnscreen = true}, kNoRestoration,
      {false, false, records},
      [](const cv::Mat&) { return cv::Mat(1, 1, CV_64FC3, cv::Scalar(0.25, 0.25, 0.25)); });
  EXPECT_EQ(outputs.starless.type(), CV_32FC3);
  EXPECT_NEAR(outputs.starless.at<cv::Vec3f>(0)[0], 0.4, 1e-7);
  EXPECT_EQ(outputs.mask.at<cv::Vec3d>(0), cv::Vec3d(0.25, 0.25, 0.25));
  EXPECT_NEAR(outputs.unscreen.at<cv::Vec3d>(0)[1], 1.0 / 3.0, 1e-15);
  EXPECT_EQ(records.str(), "");
}

TEST(PrepareFinalNebulexOutputs, UnwantedLayersAreEmptyAndNothingIsReadBack) {
  std::ostringstream records;
  bool readBack = false;
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar::all(0.5));
  const FinalOutputs outputs = PrepareFinalNebulexOutputs(
      image, image, {}, kNoRestoration, {false, false, records}, [&readBack](const cv::Mat& m) {
        readBack = true;
        return m;
      });
  EXPECT_TRUE(outputs.mask.empty());
  EXPECT_TRUE(outputs.unscreen.empty());
  EXPECT_FALSE(readBack);
}

TEST(PrepareFinalNebulexOutputs, OnlyTheWantedLayerIsComputed) {
  std::ostringstream records;
  const cv::Mat image(1, 1, CV_32FC3, cv::Scalar::all(0.5));
  const FinalOutputs mask = PrepareFinalNebulexOutputs(
      image, image, {.wantMask = true}, kNoRestoration, {false, false, records}, kIdentityReadBack);
  EXPECT_FALSE(mask.mask.empty());
  EXPECT_TRUE(mask.unscreen.empty());
  const FinalOutputs unscreen =
      PrepareFinalNebulexOutputs(image, image, {.wantUnscreen = true}, kNoRestoration,
                                 {false, false, records}, kIdentityReadBack);
  EXPECT_TRUE(unscreen.mask.empty());
  EXPECT_FALSE(unscreen.unscreen.empty());
}

TEST(PrepareFinalNebulexOutputs, SuppressedSamplesAreADataLossWarningEvenWhenQuiet) {
  std::ostringstream records;
  const cv::Mat source(1, 2, CV_64FC1, cv::Scalar(1.0));
  const cv::Mat starless(1, 2, CV_64FC1, cv::Scalar(0.9999));
  PrepareFinalNebulexOutputs(source, starless, {.grayscaleSource = true, .wantUnscreen = true},
                             kNoRestoration, {true, false, records}, kIdentityReadBack);
  EXPECT_EQ(records.str(),
            "Warning [data_loss]: suppressed 2 near-saturated unscreen output sample(s). "
            "Additional unstable samples may remain. Check the input image for clipped or "
            "near-clipped highlights, especially channels with values at 1.0000.\n");
}

TEST(PrepareFinalNebulexOutputs, ReturnsToTheInputGridThenToGrayThenRestores) {
  std::ostringstream records;
  cv::Mat starless(4, 6, CV_64FC3, cv::Scalar::all(0.5));
  starless.at<cv::Vec3d>(2, 4) = cv::Vec3d(1, 1, 1);
  const cv::Mat source(2, 3, CV_64FC1, cv::Scalar(0.5));
  cv::Mat seen;
  const FinalOutputs outputs = PrepareFinalNebulexOutputs(
      source, starless, {.upsampled = true, .grayscaleSource = true},
      [&seen](cv::Mat& image) {
        seen = image.clone();
        image.at<double>(0) = 0.125;
      },
      {false, false, records}, kIdentityReadBack);
  ASSERT_EQ(seen.type(), CV_64FC1);
  ASSERT_EQ(seen.size(), cv::Size(3, 2));
  EXPECT_DOUBLE_EQ(seen.at<double>(1, 2), 1.0);
  EXPECT_EQ(outputs.starless.at<double>(0), 0.125);
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
