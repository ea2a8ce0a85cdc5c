#include "io/DisplayWriter.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/AstroTiff.h"
#include "io/TiffImageFields.h"
#include "io/TiffLayout.h"
#include "support/AddressSpaceLimit.h"
#include "support/ExpectMessage.h"
#include "support/FileSizeLimit.h"
#include "support/StandardErrorFile.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;
using test::AddressSpaceLimit;
using test::ExpectMessage;
using test::FileSizeLimit;
using test::ReadFileBytes;
using test::TemporaryFolder;
using test::WriteFileBytes;

constexpr const char* kHeader = "SIMPLE  = T\r\nBITPIX  = -32\r\nOBJECT  = 'M 31'\r\nEND";

cv::Mat RandomImage(int type, int rows = 40, int columns = 60) {
  cv::Mat image(rows, columns, type);
  cv::RNG generator(20240607);
  generator.fill(image, cv::RNG::UNIFORM, 0.0, image.depth() == CV_8U ? 256.0 : 65536.0);
  return image;
}

void ExpectSame(const cv::Mat& actual, const cv::Mat& expected) {
  ASSERT_EQ(actual.type(), expected.type());
  ASSERT_EQ(actual.size(), expected.size());
  EXPECT_EQ(cv::norm(actual, expected, cv::NORM_INF), 0.0);
}

cv::Mat ReadBack(const std::string& path) {
  return cv::imread(path, cv::IMREAD_UNCHANGED);
}

void ExpectRefused(const std::string& path, const std::string& reason) {
  ExpectMessage<std::invalid_argument>([&path] { WriteDisplayImage(path, RandomImage(CV_16UC3)); },
                                       "Unable to write output image: " + path + reason);
}

std::string DescriptionOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return ReadTiffLayout(file, path).description.value_or("(none)");
}

TEST(OutputSampleDepth, LosslessFormatsKeepTheDepthOfDisplaySources) {
  for (const char* path : {"a.tif", "a.TIF", "a.tiff", "a.Tiff", "a.png", "a.PNG"}) {
    EXPECT_EQ(OutputSampleDepth(path, CV_8U), CV_8U) << path;
    EXPECT_EQ(OutputSampleDepth(path, CV_16U), CV_16U) << path;
  }
}

TEST(OutputSampleDepth, LosslessFormatsHave16BitsForFitsAndEveryOtherSource) {
  for (const int storedDepth : {-1, CV_8S, CV_16S, CV_32S, CV_32F, CV_64F}) {
    EXPECT_EQ(OutputSampleDepth("a.tif", storedDepth), CV_16U);
    EXPECT_EQ(OutputSampleDepth("a.png", storedDepth), CV_16U);
  }
}

TEST(OutputSampleDepth, OtherExtensionsHave8BitsWhateverTheSource) {
  for (const char* path : {"a.jpg", "a.jpeg", "a.bmp", "a.tif.jpg", "atif_", "a.fits"}) {
    for (const int storedDepth : {-1, CV_8U, CV_16U}) {
      EXPECT_EQ(OutputSampleDepth(path, storedDepth), CV_8U) << path;
    }
  }
}

TEST(OutputSampleDepth, APathShorterThanTheSuffixIsOutOfRange) {
  for (const char* path : {"", "tif", ".jp", "a.jp"}) {
    ExpectMessage<std::out_of_range>([path] { OutputSampleDepth(path, CV_8U); },
                                     "invalid string position");
  }
  // Four characters do for the first test, and nothing more is looked at when it holds.
  EXPECT_EQ(OutputSampleDepth(".tif", CV_8U), CV_8U);
  EXPECT_EQ(OutputSampleDepth("b.jpg", CV_8U), CV_8U);
}

struct Format {
  std::string extension;
  int type;
};

class WriteDisplayImageTest : public testing::TestWithParam<Format> {};

INSTANTIATE_TEST_SUITE_P(LosslessFormats, WriteDisplayImageTest, testing::ValuesIn([] {
                           std::vector<Format> formats;
                           for (const char* extension : {"tif", "TIFF", "png", "PNG"}) {
                             for (const int type : {CV_8UC1, CV_8UC3, CV_16UC1, CV_16UC3}) {
                               formats.push_back({extension, type});
                             }
                           }
                           return formats;
                         }()),
                         [](const auto& instance) {
                           return instance.param.extension + cv::typeToString(instance.param.type);
                         });

TEST_P(WriteDisplayImageTest, TheFileHoldsTheImage) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a." + GetParam().extension);
  const cv::Mat image = RandomImage(GetParam().type);
  WriteDisplayImage(path, image);
  ExpectSame(ReadBack(path), image);
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST_P(WriteDisplayImageTest, TheFileIsTheOneThatOpenCvWrites) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a." + GetParam().extension);
  const std::string reference = folder.Path("reference." + GetParam().extension);
  const cv::Mat image = RandomImage(GetParam().type);
  WriteDisplayImage(path, image);
  cv::imwrite(reference, image, {cv::IMWRITE_TIFF_COMPRESSION, 5});
  EXPECT_TRUE(ReadFileBytes(path) == ReadFileBytes(reference));
}

TEST_P(WriteDisplayImageTest, APartOfALargerImageIsWritten) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a." + GetParam().extension);
  const cv::Mat part = RandomImage(GetParam().type)(cv::Rect(3, 5, 20, 10));
  WriteDisplayImage(path, part);
  ExpectSame(ReadBack(path), part);
}

TEST(WriteDisplayImage, TiffIsCompressedWithLzw) {
  const TemporaryFolder folder;
  for (const char* name : {"a.tif", "a.TIFF"}) {
    WriteDisplayImage(folder.Path(name), RandomImage(CV_16UC3));
    EXPECT_EQ(ReadTiffImageFields(folder.Path(name))->compression, kTiffLzw);
  }
}

TEST(WriteDisplayImage, JpegAndBmpAreWrittenAsOpenCvGivesThem) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_8UC3);
  for (const char* extension : {".jpg", ".jpeg", ".bmp", ".webp", ".ppm"}) {
    const std::string path = folder.Path(std::string("a") + extension);
    const std::string reference = folder.Path(std::string("reference") + extension);
    WriteDisplayImage(path, image);
    cv::imwrite(reference, image);
    EXPECT_TRUE(ReadFileBytes(path) == ReadFileBytes(reference)) << extension;
  }
}

TEST(WriteDisplayImage, FormatsThatAreNotEncodedInMemoryAreWrittenToo) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_8UC3);
  WriteDisplayImage(folder.Path("a.jp2"), image);
  EXPECT_EQ(ReadBack(folder.Path("a.jp2")).type(), CV_8UC3);
}

TEST(WriteDisplayImage, NamesAreJustNames) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_8UC1);
  for (const char* name : {"a b.tif", "m31[1].tif", "-x.png", "\xF0\x9F\x90\xBE.tif", "%d.png",
                           "a.fits.tif", ".tif", "'\"$.png"}) {
    WriteDisplayImage(folder.Path(name), image);
    ExpectSame(ReadBack(folder.Path(name)), image);
  }
}

TEST(WriteDisplayImage, ARelativeNameMayBeginWithADash) {
  const TemporaryFolder folder;
  const fs::path before = fs::current_path();
  fs::current_path(folder.Folder());
  WriteDisplayImage("-x.tif", RandomImage(CV_8UC1));
  fs::current_path(before);
  EXPECT_TRUE(fs::exists(folder.Path("-x.tif")));
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST(WriteDisplayImage, AFileThatExistsIsReplaced) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.png");
  WriteFileBytes(path, "old");
  WriteDisplayImage(path, RandomImage(CV_8UC1));
  ExpectSame(ReadBack(path), RandomImage(CV_8UC1));
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST(WriteDisplayImage, AnUnknownExtensionIsOpenCvsOwnErrorAndNothingIsWritten) {
  const TemporaryFolder folder;
  for (const char* name : {"a.xyz", "image", "a.tif.gz"}) {
    const std::string path = folder.Path(name);
    try {
      WriteDisplayImage(path, RandomImage(CV_8UC1));
      ADD_FAILURE() << "no exception";
    } catch (const cv::Exception& error) {
      EXPECT_NE(
          std::string(error.what()).find("could not find a writer for the specified extension"),
          std::string::npos);
    }
  }
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(WriteDisplayImage, AnImageThatTheFormatCannotHoldIsRefused) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.jpg");
  const cv::Mat tooWide(1, 70'000, CV_8UC1, cv::Scalar(0));
  ExpectMessage<std::invalid_argument>([&] { WriteDisplayImage(path, tooWide); },
                                       "Unable to write output image: " + path);
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(WriteDisplayImage, AFolderThatDoesNotExistIsNamed) {
  const TemporaryFolder folder;
  ExpectRefused(folder.Path("missing/a.tif"), " (No such file or directory)");
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(WriteDisplayImage, AFileUsedAsAFolderIsNamed) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("file"), "x");
  ExpectRefused(folder.Path("file/a.tif"), " (Not a directory)");
}

TEST(WriteDisplayImage, OnlyARegularFileIsReplaced) {
  const TemporaryFolder folder;
  fs::create_directory(folder.Path("folder.tif"));
  ASSERT_EQ(mkfifo(folder.Path("pipe.tif").c_str(), 0600), 0);
  ExpectRefused(folder.Path("folder.tif"), " (not a regular file)");
  ExpectRefused(folder.Path("pipe.tif"), " (not a regular file)");
  EXPECT_EQ(folder.FileCount(), 2);
}

TEST(WriteDisplayImage, ANameTooLongIsNamed) {
  const TemporaryFolder folder;
  ExpectRefused(folder.Path(std::string(300, 'n') + ".tif"), " (File name too long)");
}

TEST(WriteDisplayImage, AFullDiskIsNoticedAtEverySizeAndTheOldFileSurvives) {
  for (const char* name : {"a.png", "a.tif", "a.jpg"}) {
    const TemporaryFolder folder;
    const std::string path = folder.Path(name);
    WriteDisplayImage(path, RandomImage(CV_8UC3));
    const std::uint64_t size = fs::file_size(path);
    WriteFileBytes(path, "old");
    for (const std::uint64_t missing :
         {std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{12}, std::uint64_t{13},
          std::uint64_t{100}, size / 2, size - 1, size}) {
      const FileSizeLimit limit(size - missing);
      ExpectMessage<std::invalid_argument>(
          [&path] { WriteDisplayImage(path, RandomImage(CV_8UC3)); },
          "Unable to write output image: " + path + " (File too large)");
      EXPECT_EQ(ReadFileBytes(path), "old");
      EXPECT_EQ(folder.FileCount(), 1);
    }
    const FileSizeLimit limit(size);
    WriteDisplayImage(path, RandomImage(CV_8UC3));
    EXPECT_EQ(fs::file_size(path), size);
  }
}

// OpenCV's encoders of these write files themselves and do not notice. (That of Radiance HDR does,
// but loses the memory of a line, which the leak check would find.)
TEST(WriteDisplayImage, AFullDiskIsNoticedBehindOpenCvsBack) {
  for (const char* name : {"a.pfm", "a.jp2"}) {
    const TemporaryFolder folder;
    const std::string path = folder.Path(name);
    WriteDisplayImage(path, RandomImage(CV_8UC3));
    const std::uint64_t size = fs::file_size(path);
    WriteFileBytes(path, "old");
    for (const std::uint64_t missing : {std::uint64_t{1}, size / 2, size}) {
      const FileSizeLimit limit(size - missing);
      EXPECT_THROW(WriteDisplayImage(path, RandomImage(CV_8UC3)), std::invalid_argument) << name;
      EXPECT_EQ(ReadFileBytes(path), "old");
      EXPECT_EQ(folder.FileCount(), 1);
    }
  }
}

TEST(WriteDisplayImage, AstroTiffHeaderIsWrittenWithTheDepthOfTheOutput) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  for (const auto& [type, depth] :
       {std::pair(CV_8UC1, "8"), {CV_8UC3, "8"}, {CV_16UC1, "16"}, {CV_16UC3, "16"}}) {
    WriteDisplayImage(path, RandomImage(type), kHeader);
    EXPECT_EQ(ReadAstroTiffHeader(path), "SIMPLE  = T\nBITPIX  =                   " +
                                             std::string(depth) + "\nOBJECT  = 'M 31'\nEND");
    ExpectSame(ReadBack(path), RandomImage(type));
    EXPECT_EQ(folder.FileCount(), 1);
  }
}

TEST(WriteDisplayImage, WithoutAnAstroTiffHeaderTheTiffHasNoDescription) {
  const TemporaryFolder folder;
  WriteDisplayImage(folder.Path("a.tiff"), RandomImage(CV_8UC1));
  EXPECT_EQ(DescriptionOf(folder.Path("a.tiff")), "(none)");
}

TEST(WriteDisplayImage, OtherFormatsCarryNoAstroTiffHeader) {
  const TemporaryFolder folder;
  for (const char* name : {"a.png", "a.jpg"}) {
    WriteDisplayImage(folder.Path(name), RandomImage(CV_8UC1), kHeader);
    EXPECT_EQ(ReadFileBytes(folder.Path(name)).find("OBJECT"), std::string::npos);
  }
}

TEST(WriteDisplayImage, AstroTiffNeedsAnOutputOf8Or16Bits) {
  const TemporaryFolder folder;
  for (const int type : {CV_32FC1, CV_64FC1, CV_16SC1}) {
    ExpectMessage<std::invalid_argument>(
        [&] { WriteDisplayImage(folder.Path("a.tif"), cv::Mat::zeros(2, 2, type), kHeader); },
        "AstroTIFF metadata preservation requires an 8-bit or 16-bit TIFF output.");
  }
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(WriteDisplayImage, ATextThatIsNoAstroTiffHeaderIsRefusedAndNothingIsWritten) {
  const TemporaryFolder folder;
  ExpectMessage<std::invalid_argument>(
      [&] { WriteDisplayImage(folder.Path("a.tif"), RandomImage(CV_8UC1), "a photograph"); },
      "AstroTIFF metadata must start with SIMPLE and end with END.");
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(WriteDisplayImage, ADiskThatIsFullBeforeTheMetadataNamesTheRealPathAndKeepsTheOldFile) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  WriteDisplayImage(path, RandomImage(CV_8UC1));
  const std::uint64_t size = fs::file_size(path);
  WriteFileBytes(path, "old");
  const FileSizeLimit limit(size + 20);
  ExpectMessage<std::invalid_argument>(
      [&path] { WriteDisplayImage(path, RandomImage(CV_8UC1), kHeader); },
      "Unable to append AstroTIFF metadata to " + path);
  EXPECT_EQ(ReadFileBytes(path), "old");
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST(WriteDisplayImage, NothingReachesStandardError) {
  const TemporaryFolder folder;
  const test::StandardErrorFile standardError;
  EXPECT_THROW(WriteDisplayImage(folder.Path("a.jpg"), cv::Mat::zeros(1, 70'000, CV_8UC1)),
               std::invalid_argument);
  EXPECT_THROW(WriteDisplayImage(folder.Path("a.xyz"), RandomImage(CV_8UC1)), cv::Exception);
  WriteDisplayImage(folder.Path("a.tif"), RandomImage(CV_8UC1));
  EXPECT_EQ(standardError.Text(), "");
}

#ifndef __SANITIZE_ADDRESS__  // which needs more address space than any limit
// libtiff would be left by an exception inside a destructor, which ends the process.
TEST(WriteDisplayImage, LackOfMemoryForTheEncodedImageIsAnException) {
  const TemporaryFolder folder;
  // Far more than what tests before this one have left in the heap.
  const cv::Mat image = RandomImage(CV_16UC3, 4000, 4000);
  const AddressSpaceLimit limit(image.total() * image.elemSize() / 4);
  EXPECT_THROW(WriteDisplayImage(folder.Path("a.tif"), image), std::bad_alloc);
  EXPECT_EQ(folder.FileCount(), 0);
}
#endif

}  // namespace
}  // namespace project_lumen::io
