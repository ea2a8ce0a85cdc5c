#include "io/raster/RasterWriter.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/tiff/AstroTiff.h"
#include "io/tiff/TiffLayout.h"
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

void WriteRasterImage(const std::string& path, const cv::Mat& image,
                      const std::string& astroTiffHeader = "") {
  RasterWriter writer(path, image.size(), image.type(), astroTiffHeader);
  writer.Append(image);
  writer.Finish();
}

cv::Mat ReadBack(const std::string& path) {
  return cv::imread(path, cv::IMREAD_UNCHANGED);
}

void ExpectRefused(const std::string& path, const std::string& reason) {
  ExpectMessage<std::invalid_argument>([&path] { WriteRasterImage(path, RandomImage(CV_16UC3)); },
                                       "Unable to write output image: " + path + reason);
}

std::string DescriptionOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return ReadTiffLayout(file, path).description.value_or("(none)");
}

// The number in the field of the directory's entry with this tag, of type SHORT.
std::uint64_t ShortField(const std::string& path, std::uint16_t tag) {
  std::ifstream file(path, std::ios::binary);
  const TiffDirectory directory = ReadTiffLayout(file, path).directory;
  for (const TiffEntry& entry : directory.entries) {
    if (entry.tag == tag) {
      return directory.variant.Decode(std::span(entry.value).first(2));
    }
  }
  return 0;
}

TEST(OutputSampleDepth, LosslessFormatsKeepTheDepthOfRasterSources) {
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

class RasterWriterFormatTest : public testing::TestWithParam<Format> {};

INSTANTIATE_TEST_SUITE_P(LosslessFormats, RasterWriterFormatTest, testing::ValuesIn([] {
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

TEST_P(RasterWriterFormatTest, TheFileHoldsTheImage) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a." + GetParam().extension);
  const cv::Mat image = RandomImage(GetParam().type);
  WriteRasterImage(path, image);
  ExpectSame(ReadBack(path), image);
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST_P(RasterWriterFormatTest, TheFileIsTheOneThatOpenCvWrites) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a." + GetParam().extension);
  const std::string reference = folder.Path("reference." + GetParam().extension);
  const cv::Mat image = RandomImage(GetParam().type);
  WriteRasterImage(path, image);
  cv::imwrite(reference, image, {cv::IMWRITE_TIFF_COMPRESSION, 5});
  EXPECT_TRUE(ReadFileBytes(path) == ReadFileBytes(reference));
}

TEST_P(RasterWriterFormatTest, APartOfALargerImageIsWritten) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a." + GetParam().extension);
  const cv::Mat part = RandomImage(GetParam().type)(cv::Rect(3, 5, 20, 10));
  WriteRasterImage(path, part);
  ExpectSame(ReadBack(path), part);
}

TEST(RasterWriter, TiffIsCompressedWithLzw) {
  const TemporaryFolder folder;
  for (const char* name : {"a.tif", "a.TIFF"}) {
    WriteRasterImage(folder.Path(name), RandomImage(CV_16UC3));
    EXPECT_EQ(ShortField(folder.Path(name), 259), 5U);
  }
}

TEST(RasterWriter, JpegAndBmpAreWrittenAsOpenCvGivesThem) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_8UC3);
  for (const char* extension : {".jpg", ".jpeg", ".bmp", ".webp", ".ppm"}) {
    const std::string path = folder.Path(std::string("a") + extension);
    const std::string reference = folder.Path(std::string("reference") + extension);
    WriteRasterImage(path, image);
    cv::imwrite(reference, image);
    EXPECT_TRUE(ReadFileBytes(path) == ReadFileBytes(reference)) << extension;
  }
}

TEST(RasterWriter, FormatsThatAreNotEncodedInMemoryAreWrittenToo) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_8UC3);
  WriteRasterImage(folder.Path("a.jp2"), image);
  EXPECT_EQ(ReadBack(folder.Path("a.jp2")).type(), CV_8UC3);
}

TEST(RasterWriter, NamesAreJustNames) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_8UC1);
  for (const char* name : {"a b.tif", "m31[1].tif", "-x.png", "\xF0\x9F\x90\xBE.tif", "%d.png",
                           "a.fits.tif", ".tif", "'\"$.png"}) {
    WriteRasterImage(folder.Path(name), image);
    ExpectSame(ReadBack(folder.Path(name)), image);
  }
}

TEST(RasterWriter, ARelativeNameMayBeginWithADash) {
  const TemporaryFolder folder;
  const fs::path before = fs::current_path();
  fs::current_path(folder.Folder());
  WriteRasterImage("-x.tif", RandomImage(CV_8UC1));
  fs::current_path(before);
  EXPECT_TRUE(fs::exists(folder.Path("-x.tif")));
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST(RasterWriter, AFileThatExistsIsReplaced) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.png");
  WriteFileBytes(path, "old");
  WriteRasterImage(path, RandomImage(CV_8UC1));
  ExpectSame(ReadBack(path), RandomImage(CV_8UC1));
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST(RasterWriter, AnUnknownExtensionIsOpenCvsOwnErrorAndNothingIsWritten) {
  const TemporaryFolder folder;
  for (const char* name : {"a.xyz", "image", "a.tif.gz"}) {
    const std::string path = folder.Path(name);
    try {
      WriteRasterImage(path, RandomImage(CV_8UC1));
      ADD_FAILURE() << "no exception";
    } catch (const cv::Exception& error) {
      EXPECT_NE(
          std::string(error.what()).find("could not find a writer for the specified extension"),
          std::string::npos);
    }
  }
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(RasterWriter, AnImageThatTheFormatCannotHoldIsRefused) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.jpg");
  const cv::Mat tooWide(1, 70'000, CV_8UC1, cv::Scalar(0));
  ExpectMessage<std::invalid_argument>([&] { WriteRasterImage(path, tooWide); },
                                       "Unable to write output image: " + path +
                                           " (JPEG holds at most 65500 pixels a side; choose TIFF "
                                           "or FITS)");
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(RasterWriter, AFolderThatDoesNotExistIsNamed) {
  const TemporaryFolder folder;
  ExpectRefused(folder.Path("missing/a.tif"), " (No such file or directory)");
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(RasterWriter, AFileUsedAsAFolderIsNamed) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("file"), "x");
  ExpectRefused(folder.Path("file/a.tif"), " (Not a directory)");
}

TEST(RasterWriter, OnlyARegularFileIsReplaced) {
  const TemporaryFolder folder;
  fs::create_directory(folder.Path("folder.tif"));
  ASSERT_EQ(mkfifo(folder.Path("pipe.tif").c_str(), 0600), 0);
  ExpectRefused(folder.Path("folder.tif"), " (not a regular file)");
  ExpectRefused(folder.Path("pipe.tif"), " (not a regular file)");
  EXPECT_EQ(folder.FileCount(), 2);
}

TEST(RasterWriter, ANameTooLongIsNamed) {
  const TemporaryFolder folder;
  ExpectRefused(folder.Path(std::string(300, 'n') + ".tif"), " (File name too long)");
}

TEST(RasterWriter, AFullDiskIsNoticedAtEverySizeAndTheOldFileSurvives) {
  for (const char* name : {"a.png", "a.tif", "a.jpg"}) {
    const TemporaryFolder folder;
    const std::string path = folder.Path(name);
    WriteRasterImage(path, RandomImage(CV_8UC3));
    const std::uint64_t size = fs::file_size(path);
    WriteFileBytes(path, "old");
    for (const std::uint64_t missing :
         {std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{12}, std::uint64_t{13},
          std::uint64_t{100}, size / 2, size - 1, size}) {
      const FileSizeLimit limit(size - missing);
      ExpectMessage<std::invalid_argument>(
          [&path] { WriteRasterImage(path, RandomImage(CV_8UC3)); },
          "Unable to write output image: " + path + " (File too large)");
      EXPECT_EQ(ReadFileBytes(path), "old");
      EXPECT_EQ(folder.FileCount(), 1);
    }
    const FileSizeLimit limit(size);
    WriteRasterImage(path, RandomImage(CV_8UC3));
    EXPECT_EQ(fs::file_size(path), size);
  }
}

// OpenCV's encoders of these write files themselves and do not notice. (That of Radiance HDR does,
// but loses the memory of a line, which the leak check would find.)
TEST(RasterWriter, AFullDiskIsNoticedBehindOpenCvsBack) {
  for (const char* name : {"a.pfm", "a.jp2"}) {
    const TemporaryFolder folder;
    const std::string path = folder.Path(name);
    WriteRasterImage(path, RandomImage(CV_8UC3));
    const std::uint64_t size = fs::file_size(path);
    WriteFileBytes(path, "old");
    for (const std::uint64_t missing : {std::uint64_t{1}, size / 2, size}) {
      const FileSizeLimit limit(size - missing);
      EXPECT_THROW(WriteRasterImage(path, RandomImage(CV_8UC3)), std::invalid_argument) << name;
      EXPECT_EQ(ReadFileBytes(path), "old");
      EXPECT_EQ(folder.FileCount(), 1);
    }
  }
}

TEST(RasterWriter, AstroTiffHeaderIsWrittenWithTheDepthOfTheOutput) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  for (const auto& [type, depth] :
       {std::pair(CV_8UC1, "8"), {CV_8UC3, "8"}, {CV_16UC1, "16"}, {CV_16UC3, "16"}}) {
    WriteRasterImage(path, RandomImage(type), kHeader);
    EXPECT_EQ(ReadAstroTiffHeader(path), "SIMPLE  = T\nBITPIX  =                   " +
                                             std::string(depth) + "\nOBJECT  = 'M 31'\nEND");
    ExpectSame(ReadBack(path), RandomImage(type));
    EXPECT_EQ(folder.FileCount(), 1);
  }
}

TEST(RasterWriter, WithoutAnAstroTiffHeaderTheTiffHasNoDescription) {
  const TemporaryFolder folder;
  WriteRasterImage(folder.Path("a.tiff"), RandomImage(CV_8UC1));
  EXPECT_EQ(DescriptionOf(folder.Path("a.tiff")), "(none)");
}

TEST(RasterWriter, OtherFormatsCarryNoAstroTiffHeader) {
  const TemporaryFolder folder;
  for (const char* name : {"a.png", "a.jpg"}) {
    WriteRasterImage(folder.Path(name), RandomImage(CV_8UC1), kHeader);
    EXPECT_EQ(ReadFileBytes(folder.Path(name)).find("OBJECT"), std::string::npos);
  }
}

TEST(RasterWriter, AstroTiffNeedsAnOutputOf8Or16Bits) {
  const TemporaryFolder folder;
  for (const int type : {CV_32FC1, CV_64FC1, CV_16SC1}) {
    ExpectMessage<std::invalid_argument>(
        [&] { WriteRasterImage(folder.Path("a.tif"), cv::Mat::zeros(2, 2, type), kHeader); },
        "AstroTIFF metadata preservation requires an 8-bit or 16-bit TIFF output.");
  }
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(RasterWriter, ATextThatIsNoAstroTiffHeaderIsRefusedAndNothingIsWritten) {
  const TemporaryFolder folder;
  ExpectMessage<std::invalid_argument>(
      [&] { WriteRasterImage(folder.Path("a.tif"), RandomImage(CV_8UC1), "a photograph"); },
      "AstroTIFF metadata must start with SIMPLE and end with END.");
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(RasterWriter, ADiskThatIsFullBeforeTheMetadataNamesTheRealPathAndKeepsTheOldFile) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  WriteRasterImage(path, RandomImage(CV_8UC1));
  const std::uint64_t size = fs::file_size(path);
  WriteFileBytes(path, "old");
  const FileSizeLimit limit(size + 20);
  ExpectMessage<std::invalid_argument>(
      [&path] { WriteRasterImage(path, RandomImage(CV_8UC1), kHeader); },
      "Unable to append AstroTIFF metadata to " + path);
  EXPECT_EQ(ReadFileBytes(path), "old");
  EXPECT_EQ(folder.FileCount(), 1);
}

TEST(RasterWriter, NothingOfATiffReachesStandardError) {
  const TemporaryFolder folder;
  const test::StandardErrorFile standardError;
  WriteRasterImage(folder.Path("a.tif"), RandomImage(CV_8UC1));
  const FileSizeLimit limit(100);
  EXPECT_THROW(WriteRasterImage(folder.Path("b.tif"), RandomImage(CV_8UC1)), std::invalid_argument);
  EXPECT_EQ(standardError.Text(), "");
}

TEST_P(RasterWriterFormatTest, RowsMayComeInBands) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(GetParam().type);
  const std::string whole = folder.Path("a." + GetParam().extension);
  const std::string bands = folder.Path("b." + GetParam().extension);
  WriteRasterImage(whole, image);
  RasterWriter writer(bands, image.size(), image.type());
  for (int row = 0; row < image.rows; row += 7) {
    writer.Append(image.rowRange(row, std::min(row + 7, image.rows)));
  }
  writer.Finish();
  EXPECT_TRUE(ReadFileBytes(whole) == ReadFileBytes(bands));
}

TEST(RasterWriter, WithoutItsEndNothingIsLeft) {
  const TemporaryFolder folder;
  for (const char* name : {"a.tif", "a.png"}) {
    RasterWriter writer(folder.Path(name), {60, 40}, CV_8UC1);
    writer.Append(RandomImage(CV_8UC1).rowRange(0, 20));
  }
  EXPECT_EQ(folder.FileCount(), 0);
}

TEST(RasterWriter, ATiffOfOtherTypesIsRefused) {
  const TemporaryFolder folder;
  for (const int type : {CV_32FC1, CV_16SC1, CV_8UC4}) {
    ExpectMessage<std::invalid_argument>(
        [&] {
          RasterWriter writer(folder.Path("a.tif"), {2, 2}, type);
        },
        "Unable to write output image: " + folder.Path("a.tif"));
  }
  EXPECT_EQ(folder.FileCount(), 0);
}

#ifndef __SANITIZE_ADDRESS__  // which needs more address space than any limit
// Far more than what other tests have left in the heap.
TEST(RasterWriter, ATiffNeedsNoMemoryForTheEncodedImage) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_16UC3, 4000, 4000);
  {
    const AddressSpaceLimit limit(image.total() * image.elemSize() / 4);
    WriteRasterImage(folder.Path("a.tif"), image);
  }
  ExpectSame(ReadBack(folder.Path("a.tif")), image);
}

TEST(RasterWriter, LackOfMemoryForTheEncodedImageIsAnException) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_16UC3, 4000, 4000);
  const AddressSpaceLimit limit(image.total() * image.elemSize() / 4);
  EXPECT_THROW(WriteRasterImage(folder.Path("a.png"), image), std::bad_alloc);
  EXPECT_EQ(folder.FileCount(), 0);
}
#endif

}  // namespace
}  // namespace project_lumen::io
