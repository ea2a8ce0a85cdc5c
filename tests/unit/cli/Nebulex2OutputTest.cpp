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

TEST(PrepareLayer, QuantisesAllRowsAsTheWholeLayerWouldBe) {
  const io::SourceImageInfo info = GraySource(CV_16U);
  const cv::Mat source = (cv::Mat_<float>(3, 1) << 0.75F, 1.0F, 0.25F);
  const core::LayerInputs inputs{source, [](const cv::Range& rows) {
                                   return cv::Mat(rows.size(), 1, CV_64FC1, cv::Scalar(0.5));
                                 }};
  cv::Mat mask;
  PrepareLayer({"a.tif", io::OutputRole::kDifference, info}, inputs, mask);
  ASSERT_EQ(mask.type(), CV_16UC1);
  EXPECT_EQ(mask.at<std::uint16_t>(0), 16384);  // 0.25 * 65535 = 16383.75
  EXPECT_EQ(mask.at<std::uint16_t>(1), 32768);  // 0.5 * 65535 = 32767.5, to even
  EXPECT_EQ(mask.at<std::uint16_t>(2), 0);
}

TEST(PrepareLayer, HoldsNothingOfTheImagesSizeButOneLayerForAll) {
  const cv::Mat source(1024, 1024, CV_32FC3, cv::Scalar::all(0.5));
  const core::LayerInputs inputs{source, [](const cv::Range& rows) {
                                   return cv::Mat(rows.size(), 1024, CV_64FC3,
                                                  cv::Scalar::all(0.25));
                                 }};
  const io::SourceImageInfo info = ColourSource(CV_16U);
  const LargeAllocations large(source.total());
  cv::Mat layer;
  PrepareLayer({"a.tif", io::OutputRole::kDifference, info}, inputs, layer);
  PrepareLayer({"b.tif", io::OutputRole::kUnscreen, info}, inputs, layer);
  EXPECT_EQ(large.Sizes(), (std::vector<std::size_t>{source.total() * 3 * sizeof(std::uint16_t)}));
}

TEST(PrepareLayer, FitsLayersStayInFloat64AndRgbOrder) {
  const cv::Mat source(1, 1, CV_32FC3, cv::Scalar(0.5, 0.75, 1.0));
  const core::LayerInputs inputs{
      source, [](const cv::Range&) { return cv::Mat(1, 1, CV_64FC3, cv::Scalar::all(0.5)); }};
  cv::Mat layer;
  const io::SourceImageInfo info = ColourSource(CV_16U);
  PrepareLayer({"a.fits", io::OutputRole::kUnscreen, info}, inputs, layer);
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

TEST_F(WriteOutputImageTest, RasterFormatsSayTheirDepthAndKeepTheSamples) {
  std::ostringstream records;
  const DiagnosticsSink sink{false, false, records};
  const io::SourceImageInfo source = ColourSource(CV_16U);
  const std::string path = folder_ / "a.tif";
  const cv::Mat prepared(2, 2, CV_16UC3, cv::Scalar(1, 300, 65535));
  WriteOutputImage({path, io::OutputRole::kMain, source}, prepared, sink);
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
  WriteOutputImage({folder_ / "a.png", io::OutputRole::kUnscreen, source},
                   cv::Mat(2, 2, CV_8UC1, cv::Scalar(7)), sink);
  EXPECT_NE(records.str().find("depth=8 bits;"), std::string::npos);
}

}  // namespace
}  // namespace project_lumen::cli
