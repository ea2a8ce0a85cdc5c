#include "cli/OutputPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>

namespace project_lumen::cli {
namespace {

namespace fs = std::filesystem;

class OutputPathsTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/pathsXXXXXX";
    folder_ = mkdtemp(pattern.data());
  }
  void TearDown() override { fs::remove_all(folder_); }

  [[nodiscard]] RunOptions Options(const std::string& output, const std::string& mask = "",
                                   const std::string& unscreen = "") const {
    RunOptions options;
    options.outputPath = folder_ / output;
    options.maskPath = mask.empty() ? "" : (folder_ / mask).string();
    options.unscreenPath = unscreen.empty() ? "" : (folder_ / unscreen).string();
    return options;
  }

  static void RequireWritable(const RunOptions& options) {
    RequireWritableOutputs(options, io::SourceImageInfo(), {600, 500});
  }

  template <typename Check>
  static std::string FailureOf(Check check, const RunOptions& options) {
    try {
      check(options);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "no failure";
  }

  fs::path folder_;
};

TEST_F(OutputPathsTest, DifferentPathsAreFine) {
  EXPECT_NO_THROW(RequireDistinctOutputs(Options("a.tif", "b.tif", "c.tif")));
  EXPECT_NO_THROW(RequireDistinctOutputs(Options("a.tif")));
}

TEST_F(OutputPathsTest, EveryPairOfEqualPathsIsRefused) {
  const std::string expected = "Two outputs have the same path: " + (folder_ / "a.tif").string();
  EXPECT_EQ(FailureOf(RequireDistinctOutputs, Options("a.tif", "a.tif")), expected);
  EXPECT_EQ(FailureOf(RequireDistinctOutputs, Options("a.tif", "", "a.tif")), expected);
  EXPECT_EQ(FailureOf(RequireDistinctOutputs, Options("b.tif", "a.tif", "a.tif")), expected);
}

TEST_F(OutputPathsTest, TheSameFileUnderAnotherNameIsRefused) {
  EXPECT_NE(FailureOf(RequireDistinctOutputs, Options("a.tif", "./x/../a.tif")), "no failure");
  std::ofstream(folder_ / "a.tif") << "x";
  fs::create_symlink("a.tif", folder_ / "link.tif");
  EXPECT_NE(FailureOf(RequireDistinctOutputs, Options("a.tif", "link.tif")), "no failure");
}

TEST_F(OutputPathsTest, WritableTargetsLeaveNothingBehind) {
  EXPECT_NO_THROW(RequireWritable(Options("a.tif", "b.png", "c.fits")));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 0);
}

TEST_F(OutputPathsTest, AFolderInTheWayIsFoundForEveryOutput) {
  fs::create_directory(folder_ / "d.tif");
  const std::string expected =
      "Unable to write output image: " + (folder_ / "d.tif").string() + " (not a regular file)";
  EXPECT_EQ(FailureOf(RequireWritable, Options("d.tif")), expected);
  EXPECT_EQ(FailureOf(RequireWritable, Options("a.tif", "d.tif")), expected);
  EXPECT_EQ(FailureOf(RequireWritable, Options("a.tif", "", "d.tif")), expected);
}

TEST_F(OutputPathsTest, AMissingFolderIsNamedWithItsReason) {
  EXPECT_EQ(FailureOf(RequireWritable, Options("no/a.png")),
            "Unable to write output image: " + (folder_ / "no/a.png").string() +
                " (No such file or directory)");
}

TEST_F(OutputPathsTest, FitsTargetsHaveTheirOwnTexts) {
  fs::create_directory(folder_ / "d.fits");
  EXPECT_EQ(FailureOf(RequireWritable, Options("d.fits")),
            "Unable to replace FITS output path: " + (folder_ / "d.fits").string() +
                " (not a regular file)");
  EXPECT_EQ(FailureOf(RequireWritable, Options("no/a.fits.gz")),
            "Creating image failed for FITS image " + (folder_ / "no/a.fits.gz").string() +
                ": No such file or directory");
}

TEST_F(OutputPathsTest, AShortPathIsOutOfRange) {
  RunOptions options;
  options.outputPath = "abc";
  EXPECT_THROW(RequireWritable(options), std::out_of_range);
}

TEST_F(OutputPathsTest, AnUnknownExtensionIsOpenCvsOwnError) {
  EXPECT_THROW(RequireWritable(Options("a.unknown")), cv::Exception);
}

TEST_F(OutputPathsTest, MoreThanAFormatCanHoldIsRefusedBeforeTheRun) {
  const auto check = [](const RunOptions& options) {
    RequireWritableOutputs(options, io::SourceImageInfo(), {70'000, 512});
  };
  EXPECT_EQ(FailureOf(check, Options("a.tif", "b.jpg")),
            "Unable to write output image: " + (folder_ / "b.jpg").string() +
                " (JPEG holds at most 65500 pixels a side; choose TIFF or FITS)");
  EXPECT_EQ(FailureOf(check, Options("a.tif", "b.png", "c.fits")), "no failure");
}

}  // namespace
}  // namespace project_lumen::cli
