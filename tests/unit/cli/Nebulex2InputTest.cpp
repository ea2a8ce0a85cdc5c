#include "cli/Nebulex2/Nebulex2Input.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/StandardErrorFile.h"
#include "support/TemporaryFolder.h"
#include "support/TiffBuilder.h"

namespace project_lumen::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class LoadInputImageTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/inputXXXXXX";
    folder_ = mkdtemp(pattern.data());
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string Write(const std::string& name, const cv::Mat& image) {
    const std::string path = folder_ / name;
    EXPECT_TRUE(cv::imwrite(path, image));
    return path;
  }

  LoadedInput Load(const std::string& path, bool upsample = false, bool linear = false) {
    return LoadInputImage(path, upsample, linear, {false, false, records_});
  }

  std::string FailureOf(const std::string& path) {
    try {
      Load(path);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "no failure";
  }

  fs::path folder_;
  std::ostringstream records_;
};

// Two pixels; OpenCV's order is blue, green, red.
cv::Mat ColourPair() {
  return (cv::Mat_<cv::Vec3b>(1, 2) << cv::Vec3b(0, 51, 255), cv::Vec3b(102, 153, 204));
}

TEST_F(LoadInputImageTest, ColourBecomesNormalisedRgbWithoutRescaling) {
  const LoadedInput input = Load(Write("a.png", ColourPair()));
  ASSERT_EQ(input.sourceSamples.type(), CV_32FC3);
  const cv::Mat expected =
      (cv::Mat_<cv::Vec3f>(1, 2) << cv::Vec3f(1.0F, 0.2F, 0.0F), cv::Vec3f(0.8F, 0.6F, 0.4F));
  EXPECT_LE(cv::norm(input.sourceSamples, expected, cv::NORM_INF), 1e-7);
  EXPECT_FALSE(input.info.isFits);
  EXPECT_FALSE(input.info.isGrayscale);
  EXPECT_EQ(input.info.storedDepth, CV_8U);
  EXPECT_EQ(input.info.fixedDivisor, 255.0);
  EXPECT_EQ(input.info.astroTiffHeader, "");
}

TEST_F(LoadInputImageTest, RecordsDescribeTheStoredSamplesInStoredOrder) {
  const std::string path = Write("a.png", ColourPair());
  Load(path);
  EXPECT_EQ(
      records_.str(),
      "Info [input]: Reading " + path +
          "\n"
          "Info [input_format]: format=PNG stored=uint8 width=2 height=1 channels=3\n"
          "Info [input_range]: scalar_samples=6 finite=6 nonfinite=0 physical_range=[0,255] "
          "type_normalized_range=[0,1] below_zero=0 (0%) above_one=0 (0%)\n"
          "Info [channel_range]: channel=1 scalar_samples=2 finite=2 nonfinite=0 "
          "physical_range=[0,102] type_normalized_range=[0,0.40000000000000002] below_zero=0 (0%) "
          "above_one=0 (0%)\n"
          "Info [channel_range]: channel=2 scalar_samples=2 finite=2 nonfinite=0 "
          "physical_range=[51,153] type_normalized_range=[0.20000000000000001,0.59999999999999998] "
          "below_zero=0 (0%) above_one=0 (0%)\n"
          "Info [channel_range]: channel=3 scalar_samples=2 finite=2 nonfinite=0 "
          "physical_range=[204,255] type_normalized_range=[0.80000000000000004,1] below_zero=0 "
          "(0%) "
          "above_one=0 (0%)\n"
          "Info [input_conversion]: fixed divisor K=255; offset=0; linear=0; no observed-range "
          "rescaling; inference=float32 (no MTF)\n"
          "Info [input_geometry]: width=2 height=1 interpretation=RGB\n");
}

TEST_F(LoadInputImageTest, SixteenBitEndsOfTheScaleAreExactlyZeroAndOne) {
  const cv::Mat stored = (cv::Mat_<std::uint16_t>(1, 2) << 0, 65535);
  const LoadedInput input = Load(Write("a.png", stored));
  EXPECT_EQ(input.sourceSamples.at<float>(0), 0.0F);
  EXPECT_EQ(input.sourceSamples.at<float>(1), 1.0F);
  EXPECT_EQ(input.info.fixedDivisor, 65535.0);
  EXPECT_THAT(records_.str(), HasSubstr("stored=uint16 width=2 height=1 channels=1\n"));
  EXPECT_THAT(records_.str(),
              HasSubstr("physical_range=[0,65535] type_normalized_range=[0,1] below_zero"));
  EXPECT_THAT(records_.str(), HasSubstr("fixed divisor K=65535; "));
}

TEST_F(LoadInputImageTest, OneChannelIsGrayscaleWithOneChannelOfSourceSamples) {
  const cv::Mat stored = (cv::Mat_<std::uint8_t>(2, 1) << 51, 255);
  const LoadedInput input = Load(Write("a.tif", stored));
  EXPECT_TRUE(input.info.isGrayscale);
  ASSERT_EQ(input.sourceSamples.type(), CV_32FC1);
  EXPECT_FLOAT_EQ(input.sourceSamples.at<float>(0), 0.2F);
  EXPECT_THAT(records_.str(), HasSubstr("format=TIFF stored=uint8 "));
  EXPECT_THAT(records_.str(), HasSubstr("height=2 interpretation=grayscale\n"));
}

TEST_F(LoadInputImageTest, ThreeEqualPlanesAreGrayscale) {
  const cv::Mat stored(3, 3, CV_8UC3, cv::Scalar(40, 40, 40));
  const LoadedInput input = Load(Write("a.tif", stored));
  EXPECT_TRUE(input.info.isGrayscale);
  EXPECT_EQ(input.sourceSamples.channels(), 1);
  EXPECT_THAT(records_.str(), HasSubstr("interpretation=grayscale\n"));
}

TEST_F(LoadInputImageTest, LinearRunsWorkInFloat64) {
  const cv::Mat stored = (cv::Mat_<std::uint16_t>(1, 3) << 1, 21845, 65535);
  const LoadedInput input = Load(Write("a.tif", stored), false, true);
  ASSERT_EQ(input.sourceSamples.type(), CV_64FC1);
  EXPECT_DOUBLE_EQ(input.sourceSamples.at<double>(0), 1.0 / 65535.0);
  EXPECT_DOUBLE_EQ(input.sourceSamples.at<double>(1), 1.0 / 3.0);
  EXPECT_EQ(input.sourceSamples.at<double>(2), 1.0);
  EXPECT_THAT(records_.str(), HasSubstr("linear=1; no observed-range rescaling; "
                                        "MTF/inverse=float64; inference=float32\n"));
}

TEST_F(LoadInputImageTest, UpsamplingIsAnnouncedAndLeavesTheSamplesOnTheirGrid) {
  const LoadedInput input = Load(Write("a.png", ColourPair()), true);
  EXPECT_EQ(input.sourceSamples.size(), cv::Size(2, 1));
  EXPECT_THAT(records_.str(), HasSubstr("width=2 height=1 interpretation=RGB\n"
                                        "Info [intermediate_sampling]: 2x grid-aligned cubic "
                                        "upsampling; output selects original grid samples without "
                                        "averaging\n"));
}

TEST_F(LoadInputImageTest, FloatTiffIsDescribedThenRefusedForItsDepth) {
  const cv::Mat stored = (cv::Mat_<float>(1, 2) << 0.25F, 0.5F);
  EXPECT_EQ(FailureOf(Write("a.tif", stored)),
            "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  EXPECT_THAT(records_.str(), HasSubstr("stored=float32 "));
  EXPECT_THAT(records_.str(), HasSubstr("physical_range=[0.25,0.5]"));
  EXPECT_THAT(records_.str(), HasSubstr("fixed divisor K=1; "));
}

TEST_F(LoadInputImageTest, AlphaChannelsAreRefusedBeforeTheDepth) {
  EXPECT_EQ(FailureOf(Write("a.png", cv::Mat(2, 2, CV_8UC4, cv::Scalar(1, 2, 3, 4)))),
            "Unsupported number of image channels: 4");
}

// A TIFF of 2 x 1 pixels in as many directories as there are pages.
std::string PagedTiff(int pages) {
  const test::TiffImage image{.width = 2, .height = 1};
  test::TiffBuilder first = test::BuildTiffImage(image, {"ab"});
  const std::size_t size = first.Build().size();
  std::string bytes;
  for (int page = 0; page < pages; ++page) {
    const bool isLast = page + 1 == pages;
    // Each directory lies where its file's would, so its offsets point into the first one.
    const std::size_t next = (static_cast<std::size_t>(page) + 1) * size + 8;
    bytes += first.SetNextDirectory(isLast ? 0 : next).Build();
  }
  return bytes;
}

TEST_F(LoadInputImageTest, FurtherPagesAreLeftAloneWithOneWarning) {
  for (const auto& [pages, left] : {std::pair(2, "1"), {4, "3"}}) {
    records_.str("");
    test::WriteFileBytes(folder_ / "a.tif", PagedTiff(pages));
    Load(folder_ / "a.tif");
    EXPECT_THAT(records_.str(),
                HasSubstr("Warning [output_fidelity]: The file holds " + std::to_string(pages) +
                          " images. Only the first is processed; further images left alone: " +
                          left + ".\n"));
  }
  records_.str("");
  test::WriteFileBytes(folder_ / "a.tif", PagedTiff(1));
  Load(folder_ / "a.tif");
  EXPECT_THAT(records_.str(), Not(HasSubstr("output_fidelity")));
}

struct Refused {
  test::TiffImage image;
  std::string format;
  std::string message;
};

TEST_F(LoadInputImageTest, TiffsThatAreRefusedAreDescribedFirst) {
  const std::string depth =
      "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.";
  const std::string channels = "Unsupported number of image channels: ";
  for (const Refused& refused : {
           Refused{{.width = 4, .height = 1, .bitsPerSample = 12}, "uint12", depth},
           Refused{{.width = 4, .height = 1, .bitsPerSample = 32}, "uint32", depth},
           Refused{
               {.width = 4, .height = 1, .bitsPerSample = 16, .sampleFormat = 3}, "float16", depth},
           Refused{
               {.width = 4, .height = 1, .bitsPerSample = 64, .sampleFormat = 3}, "float64", depth},
           Refused{{.width = 4, .height = 1, .samplesPerPixel = 2}, "uint8", channels + "2"},
           Refused{{.width = 4, .height = 1, .samplesPerPixel = 3}, "uint8", channels + "3"},
       }) {
    records_.str("");
    test::WriteFileBytes(folder_ / "a.tif",
                         test::BuildTiffImage(refused.image, {std::string(64, 'x')}).Build());
    EXPECT_EQ(FailureOf(folder_ / "a.tif"), refused.message);
    EXPECT_THAT(records_.str(),
                HasSubstr("Info [input_format]: format=TIFF stored=" + refused.format +
                          " width=4 height=1 channels=" +
                          std::to_string(refused.image.samplesPerPixel) + "\nInfo [input_range]"));
    EXPECT_THAT(records_.str(), HasSubstr("Info [input_conversion]: "));
  }
}

TEST_F(LoadInputImageTest, NothingOfDecodersReachesStandardError) {
  const std::string path = Write("a.png", cv::Mat::zeros(40, 60, CV_16UC3));
  const std::string whole = test::ReadFileBytes(path);
  test::WriteFileBytes(path, whole.substr(0, whole.size() / 2));
  const test::StandardErrorFile standardError;
  EXPECT_THAT(FailureOf(path), HasSubstr("Unable to read input image: "));
  EXPECT_EQ(standardError.Text(), "");
}

TEST_F(LoadInputImageTest, MissingFile) {
  const std::string path = folder_ / "missing.tif";
  EXPECT_EQ(FailureOf(path), "Input image does not exist: " + path);
}

TEST_F(LoadInputImageTest, DirectoryIsNotARegularFile) {
  EXPECT_EQ(FailureOf(folder_), "Input path is not a regular file: " + folder_.string());
}

TEST_F(LoadInputImageTest, PathBelowAFileCannotBeChecked) {
  const std::string file = folder_ / "file";
  std::ofstream(file) << "x";
  EXPECT_THAT(
      FailureOf(file + "/a.tif"),
      testing::AnyOf("Input image does not exist: " + file + "/a.tif",
                     "Unable to check input image path: " + file + "/a.tif (Not a directory)"));
}

TEST_F(LoadInputImageTest, TextIsNoImage) {
  const std::string path = folder_ / "a.tif";
  std::ofstream(path) << "no image";
  EXPECT_EQ(FailureOf(path),
            "Unable to read input image: " + path +
                ". Check that the file is a readable TIFF/TIF, PNG, or supported FITS image.");
}

TEST_F(LoadInputImageTest, FitsSuffixInCapitalsGoesToTheFitsReader) {
  const std::string path = folder_ / "image.FITS.GZ";
  std::ofstream(path) << "no fits";
  EXPECT_THAT(FailureOf(path), HasSubstr("Opening failed for FITS image " + path));
}

TEST_F(LoadInputImageTest, FzSuffixGoesToTheRasterReader) {
  const std::string path = folder_ / "image.fz";
  std::ofstream(path) << "no image";
  EXPECT_THAT(FailureOf(path), HasSubstr("Unable to read input image: "));
}

TEST_F(LoadInputImageTest, JpegIsAcceptedAndNamed) {
  Load(Write("a.jpg", cv::Mat(8, 8, CV_8UC3, cv::Scalar(10, 100, 200))));
  EXPECT_THAT(records_.str(), HasSubstr("format=JPEG stored=uint8 width=8 height=8 channels=3\n"));
}

}  // namespace
}  // namespace project_lumen::cli
