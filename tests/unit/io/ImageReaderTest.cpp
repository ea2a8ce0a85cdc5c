#include "io/ImageReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/ExpectMessage.h"
#include "support/FitsBytes.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::ExpectMessage;
using testing::ElementsAre;

// Notes how the rows come.
class CountedRows : public RowSink {
 public:
  void Begin(cv::Size size, int type) override { whole.Begin(size, type); }
  void Take(const cv::Mat& rows) override {
    ++bands;
    whole.Take(rows);
  }

  WholeImage whole;
  int bands = 0;
};

class ImageReaderTest : public testing::Test {
 protected:
  cv::Mat Read(const std::string& name, ReadMode mode = ReadMode::kDisplay) {
    description_ = {};
    CountedRows rows;
    ReadImage(folder_.Path(name), mode, rows, description_);
    bands_ = rows.bands;
    return rows.whole.Release();
  }
  void Write(const std::string& name, const cv::Mat& image) {
    ASSERT_TRUE(cv::imwrite(folder_.Path(name), image));
  }

  test::TemporaryFolder folder_;
  ImageDescription description_;
  int bands_ = 0;
};

TEST_F(ImageReaderTest, ColoursComeInRgbOrderDividedByTheWhiteOfTheirType) {
  Write("a.png", (cv::Mat_<cv::Vec3b>(1, 1) << cv::Vec3b(0, 51, 255)));
  const cv::Mat image = Read("a.png");
  ASSERT_EQ(image.type(), CV_32FC3);
  EXPECT_LE(cv::norm(image.at<cv::Vec3f>(0), cv::Vec3f(1.0F, 0.2F, 0.0F), cv::NORM_INF), 1e-7);
  EXPECT_FALSE(description_.source.isGrayscale);
  EXPECT_EQ(description_.source.storedDepth, CV_8U);
  EXPECT_EQ(description_.report.format, "PNG");
  EXPECT_EQ(description_.report.storedType, "uint8");
  EXPECT_THAT(description_.report.axes, ElementsAre(1, 1, 3));
}

TEST_F(ImageReaderTest, LinearReadingGivesDoubles) {
  Write("a.tif", (cv::Mat_<std::uint16_t>(1, 2) << 1, 65535));
  const cv::Mat image = Read("a.tif", ReadMode::kLinear);
  ASSERT_EQ(image.type(), CV_64FC1);
  EXPECT_EQ(image.at<double>(0), 1.5259021896696422e-05);  // the double nearest to 1 / 65535
  EXPECT_EQ(image.at<double>(1), 1.0);
}

TEST_F(ImageReaderTest, RowsOfALargeImageComeInBandsFromTopToBottom) {
  cv::Mat stored(3000, 1000, CV_8UC1);
  for (int r = 0; r < stored.rows; ++r) {
    stored.row(r).setTo(r % 251);
  }
  Write("a.png", stored);
  const cv::Mat image = Read("a.png");
  EXPECT_GT(bands_, 1);
  for (int r = 0; r < stored.rows; ++r) {
    ASSERT_FLOAT_EQ(image.at<float>(r, 999), static_cast<float>(r % 251) / 255.0F) << r;
  }
}

TEST_F(ImageReaderTest, ThePathsEndingChoosesFits) {
  test::WriteFileBytes(folder_.Path("a.FITS"),
                       test::FitsImageHdu<std::uint8_t>(8, {2, 1, 3}, {51, 0, 51, 0, 51, 0}));
  const cv::Mat image = Read("a.FITS");
  EXPECT_EQ(image.type(), CV_32FC3);
  EXPECT_TRUE(description_.source.isFits);
  EXPECT_TRUE(description_.source.isGrayscale);  // three equal planes
  EXPECT_EQ(description_.source.storedDepth, -1);
  EXPECT_EQ(description_.source.fixedDivisor, 255.0);
  EXPECT_EQ(description_.report.format, "FITS");
  Write("a.png", cv::Mat(1, 1, CV_8UC1, cv::Scalar(9)));
  std::filesystem::rename(folder_.Path("a.png"), folder_.Path("b.fits"));
  EXPECT_THROW(Read("b.fits"), std::invalid_argument);
}

TEST_F(ImageReaderTest, WhatWasFoundOutBeforeAFailureIsKept) {
  Write("a.tif", cv::Mat(1, 2, CV_32FC1, cv::Scalar(0.5)));
  ExpectMessage<std::invalid_argument>(
      [this] { Read("a.tif"); },
      "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  EXPECT_EQ(description_.report.storedType, "float32");
  EXPECT_EQ(description_.report.range->image.maximum, 0.5);
  EXPECT_EQ(description_.source.fixedDivisor, 1.0);
}

TEST_F(ImageReaderTest, ChannelsAreJudgedBeforeTheDepth) {
  Write("a.png", cv::Mat(1, 1, CV_8UC4, cv::Scalar(1, 2, 3, 4)));
  ExpectMessage<std::invalid_argument>([this] { Read("a.png"); },
                                       "Unsupported number of image channels: 4");
}

TEST_F(ImageReaderTest, AFileThatNobodyCanDecodeIsRefusedWithItsPath) {
  test::WriteFileBytes(folder_.Path("a.png"), "no image");
  ExpectMessage<std::invalid_argument>(
      [this] { Read("a.png"); },
      "Unable to read input image: " + folder_.Path("a.png") +
          ". Check that the file is a readable TIFF/TIF, PNG, or supported FITS image.");
  EXPECT_EQ(description_.report.format, "");
}

TEST_F(ImageReaderTest, AMissingFileIsRefusedWithItsPath) {
  ExpectMessage<std::invalid_argument>([this] { Read("a.fits"); },
                                       "Input image does not exist: " + folder_.Path("a.fits"));
}

TEST_F(ImageReaderTest, ADifficultyWithMetadataIsReportedAndTheImageRead) {
  Write("a.tif", cv::Mat(1, 1, CV_8UC1, cv::Scalar(255)));
  // A BMP file under a TIFF name: OpenCV reads it, and it holds no TIFF header.
  Write("b.bmp", cv::Mat(1, 1, CV_8UC1, cv::Scalar(255)));
  std::filesystem::rename(folder_.Path("b.bmp"), folder_.Path("b.tif"));
  Read("b.tif");
  EXPECT_EQ(description_.report.metadataFault,
            "Invalid TIFF byte order in " + folder_.Path("b.tif"));
  Read("a.tif");
  EXPECT_EQ(description_.report.metadataFault, "");
}

}  // namespace
}  // namespace project_lumen::io
