#include "io/tiff/TiffWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <string>
#include <system_error>

#include "io/files/FileDescriptor.h"
#include "support/FileSizeLimit.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

TEST(NeedsBigTiff, SamplesThatFitInAnyCaseStayClassic) {
  EXPECT_FALSE(NeedsBigTiff({1, 1}, CV_8UC1));
  EXPECT_FALSE(NeedsBigTiff({12'000, 8'500}, CV_16UC3));
  EXPECT_FALSE(NeedsBigTiff({20'000, 20'000}, CV_16UC3));  // 2.4 GB, 3.6 GB at worst
}

TEST(NeedsBigTiff, SamplesThatMightNotFitDoNot) {
  EXPECT_TRUE(NeedsBigTiff({22'000, 22'000}, CV_16UC3));  // 2.9 GB, 4.36 GB at worst
  EXPECT_TRUE(NeedsBigTiff({30'000, 30'000}, CV_16UC3));
  EXPECT_TRUE(NeedsBigTiff({1'048'576, 1'048'576}, CV_8UC1));
}

// The strips' own bytes count where rows are short: 2^30 rows of a sample, 8192 a strip, but rows
// of 8 KiB and more are a strip each.
TEST(NeedsBigTiff, CountsTheEntriesOfStrips) {
  EXPECT_FALSE(NeedsBigTiff({1, 1 << 30}, CV_8UC1));
  EXPECT_FALSE(NeedsBigTiff({8193, 330'000}, CV_8UC1));
  EXPECT_TRUE(NeedsBigTiff({8193, 349'000}, CV_8UC1));
}

TEST(TiffWriter, AFullDiskIsTheSystemsError) {
  const test::TemporaryFolder folder;
  const FileDescriptor file(open(folder.Path("a.tif").c_str(), O_RDWR | O_CREAT, 0600));
  cv::Mat image(400, 600, CV_16UC3);
  cv::RNG(5).fill(image, cv::RNG::UNIFORM, 0, 65536);
  const test::FileSizeLimit limit(100'000);
  TiffWriter writer(file.Get(), image.size(), image.type());
  try {
    writer.Append(image);
    writer.Finish();
    ADD_FAILURE() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EFBIG);
  }
}

}  // namespace
}  // namespace project_lumen::io
