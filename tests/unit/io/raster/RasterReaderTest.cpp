#include "io/raster/RasterReader.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/ExpectMessage.h"
#include "support/PngBuilder.h"
#include "support/StandardErrorFile.h"
#include "support/TemporaryFolder.h"
#include "support/TiffBuilder.h"

namespace project_lumen::io {
namespace {

using namespace std::string_literals;
using test::BuildPng;
using test::BuildTiffImage;
using test::ExpectMessage;
using test::PngChunk;
using test::PngColour;
using test::PngImage;
using test::PngStart;
using test::TemporaryFolder;
using test::TiffBuilder;
using test::TiffForm;
using test::TiffImage;
using test::WriteFileBytes;

constexpr int kWidth = 5;
constexpr int kHeight = 4;

// The whole image; empty where the reader says that it cannot be read.
cv::Mat ReadFile(const std::string& path) {
  try {
    RasterReader reader(path);
    return reader.ReadRows(reader.Info().height);
  } catch (const std::invalid_argument& error) {
    if (std::string(error.what()).starts_with("Unable to read input image: " + path + ". Check ")) {
      return {};
    }
    throw;
  }
}

// Writes the bytes to a file of this name and reads it. The folder is kept for the next one: tests
// of damaged files read thousands.
cv::Mat Read(const std::string& bytes, const std::string& name = "image.tif") {
  static const TemporaryFolder folder;
  WriteFileBytes(folder.Path(name), bytes);
  return ReadFile(folder.Path(name));
}

void ExpectRefused(const std::string& bytes, const std::string& message) {
  ExpectMessage<std::invalid_argument>([&bytes] { Read(bytes); }, message);
}

void ExpectSame(const cv::Mat& actual, const cv::Mat& expected) {
  ASSERT_EQ(actual.type(), expected.type());
  ASSERT_EQ(actual.size(), expected.size());
  EXPECT_EQ(cv::norm(actual, expected, cv::NORM_INF), 0.0);
}

// A seeded image of the whole sample range.
cv::Mat RandomImage(int type, int rows = kHeight, int columns = kWidth) {
  cv::Mat image(rows, columns, type);
  cv::RNG generator(20240607);
  const double white = image.depth() == CV_8U ? 256.0 : 65536.0;
  generator.fill(image, cv::RNG::UNIFORM, 0.0, white);
  return image;
}

// The samples of channel c of pixel (row, column), in RGB order, as a file stores them.
std::string SampleBytes(const cv::Mat& image, int row, int column, int c, bool isBigEndian) {
  const int channel = image.channels() == 3 ? 2 - c : c;
  if (image.depth() == CV_8U) {
    return {static_cast<char>(image.ptr(row)[column * image.channels() + channel])};
  }
  const unsigned value = image.ptr<std::uint16_t>(row)[column * image.channels() + channel];
  const char high = static_cast<char>(value >> 8U);
  const char low = static_cast<char>(value & 0xFFU);
  return isBigEndian ? std::string{high, low} : std::string{low, high};
}

std::string InterleavedBytes(const cv::Mat& image, bool isBigEndian) {
  std::string bytes;
  for (int row = 0; row < image.rows; ++row) {
    for (int column = 0; column < image.cols; ++column) {
      for (int c = 0; c < image.channels(); ++c) {
        bytes += SampleBytes(image, row, column, c, isBigEndian);
      }
    }
  }
  return bytes;
}

std::vector<std::string> PlanarBytes(const cv::Mat& image, bool isBigEndian) {
  std::vector<std::string> planes(static_cast<std::size_t>(image.channels()));
  for (int row = 0; row < image.rows; ++row) {
    for (int column = 0; column < image.cols; ++column) {
      for (int c = 0; c < image.channels(); ++c) {
        planes[static_cast<std::size_t>(c)] += SampleBytes(image, row, column, c, isBigEndian);
      }
    }
  }
  return planes;
}

TiffImage TiffOf(const cv::Mat& image) {
  return {.width = image.cols,
          .height = image.rows,
          .bitsPerSample = image.depth() == CV_8U ? 8 : 16,
          .photometric = image.channels() == 3 ? 2 : 1,
          .samplesPerPixel = image.channels()};
}

PngImage PngOf(const cv::Mat& image) {
  return {.width = image.cols,
          .height = image.rows,
          .bitDepth = image.depth() == CV_8U ? 8 : 16,
          .colour = image.channels() == 3 ? PngColour::kRgb : PngColour::kGrey};
}

// TIFF 6.0, section 9: literal runs.
std::string PackBits(const std::string& bytes) {
  constexpr std::size_t kLongestRun = 128;
  std::string packed;
  for (std::size_t start = 0; start < bytes.size(); start += kLongestRun) {
    const std::string run = bytes.substr(start, kLongestRun);
    packed += static_cast<char>(run.size() - 1) + run;
  }
  return packed;
}

// TIFF 6.0, section 13: literals only, the table cleared before codes grow beyond nine bits.
std::string Lzw(const std::string& bytes) {
  constexpr unsigned kClear = 256;
  constexpr unsigned kEndOfInformation = 257;
  constexpr std::size_t kCodesAfterClear = 200;
  std::string bits;
  const auto put = [&bits](unsigned code) {
    for (int bit = 8; bit >= 0; --bit) {
      bits += (code >> static_cast<unsigned>(bit) & 1U) != 0 ? '1' : '0';
    }
  };
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i % kCodesAfterClear == 0) {
      put(kClear);
    }
    put(static_cast<unsigned char>(bytes[i]));
  }
  put(kEndOfInformation);
  bits.resize((bits.size() + 7) / 8 * 8, '0');
  std::string packed;
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    packed += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
  }
  return packed;
}

struct Compression {
  int tag;
  std::string (*compress)(const std::string&);
};

std::string Uncompressed(const std::string& bytes) {
  return bytes;
}

const std::vector<Compression> kCompressions = {
    {1, Uncompressed}, {5, Lzw}, {8, test::StoredZlib}, {32773, PackBits}};

const std::vector<int> kTypes = {CV_8UC1, CV_8UC3, CV_16UC1, CV_16UC3};

class RasterReaderTiffTest : public testing::TestWithParam<TiffForm> {};

INSTANTIATE_TEST_SUITE_P(Forms, RasterReaderTiffTest, testing::ValuesIn(test::kTiffForms),
                         [](const auto& instance) { return NameOf(instance.param); });

TEST_P(RasterReaderTiffTest, SamplesComeAsStoredWithColoursInBgrOrder) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
    ExpectSame(Read(BuildTiffImage(TiffOf(image), {bytes}, GetParam()).Build()), image);
  }
}

TEST_P(RasterReaderTiffTest, EveryUsualCompressionIsRead) {
  for (const Compression& compression : kCompressions) {
    for (const int type : kTypes) {
      const cv::Mat image = RandomImage(type, 20, 30);
      TiffImage tiff = TiffOf(image);
      tiff.compression = compression.tag;
      const std::string bytes =
          compression.compress(InterleavedBytes(image, GetParam().isBigEndian));
      ExpectSame(Read(BuildTiffImage(tiff, {bytes}, GetParam()).Build()), image);
    }
  }
}

TEST_P(RasterReaderTiffTest, SeveralStripsMakeOneImage) {
  const cv::Mat image = RandomImage(CV_16UC3, 4, 5);
  TiffImage tiff = TiffOf(image);
  tiff.rowsPerStrip = 2;
  const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
  const std::size_t half = bytes.size() / 2;
  ExpectSame(
      Read(BuildTiffImage(tiff, {bytes.substr(0, half), bytes.substr(half)}, GetParam()).Build()),
      image);
}

// The image data lies at the end of these files, so every cut within `dataBytes` hits it.
void ExpectNoCutIsAccepted(const std::string& whole, std::size_t dataBytes) {
  ASSERT_FALSE(Read(whole).empty());
  for (std::size_t missing = 1; missing <= dataBytes; ++missing) {
    EXPECT_TRUE(Read(whole.substr(0, whole.size() - missing)).empty()) << missing;
  }
}

TEST_P(RasterReaderTiffTest, CutImageDataIsNeverAccepted) {
  for (const Compression& compression : kCompressions) {
    for (const int type : kTypes) {
      const cv::Mat image = RandomImage(type);
      TiffImage tiff = TiffOf(image);
      tiff.compression = compression.tag;
      const std::string bytes =
          compression.compress(InterleavedBytes(image, GetParam().isBigEndian));
      ExpectNoCutIsAccepted(BuildTiffImage(tiff, {bytes}, GetParam()).Build(), bytes.size());
    }
  }
}

TEST_P(RasterReaderTiffTest, ACutLastStripIsNeverAccepted) {
  const cv::Mat image = RandomImage(CV_8UC3);
  TiffImage tiff = TiffOf(image);
  tiff.rowsPerStrip = 2;
  const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
  const std::size_t half = bytes.size() / 2;
  const std::string whole =
      BuildTiffImage(tiff, {bytes.substr(0, half), bytes.substr(half)}, GetParam()).Build();
  ExpectNoCutIsAccepted(whole, half);
}

TEST_P(RasterReaderTiffTest, ACutDirectoryIsNeverAccepted) {
  const cv::Mat image = RandomImage(CV_16UC1);
  const std::string whole =
      BuildTiffImage(TiffOf(image), {InterleavedBytes(image, GetParam().isBigEndian)}, GetParam())
          .Build();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(Read(whole.substr(0, length)).empty()) << length;
  }
}

TEST_P(RasterReaderTiffTest, AnyWrongByteOfTheDirectoryEndsWithAnImageOrWithoutOne) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
  const std::string whole = BuildTiffImage(TiffOf(image), {bytes}, GetParam()).Build();
  for (std::size_t position = 0; position < whole.size() - bytes.size(); ++position) {
    for (const char value : {'\0', '\x02', '\x7F', '\xFF'}) {
      std::string damaged = whole;
      damaged[position] = value;
      try {
        const cv::Mat read = Read(damaged);
        EXPECT_LE(read.total(), std::size_t{1} << 30U);
      } catch (const std::invalid_argument& error) {
        EXPECT_TRUE(std::string(error.what()).starts_with("Unsupported image bit depth.") ||
                    std::string(error.what()).starts_with("Unsupported number of image channels: "))
            << error.what();
      }
    }
  }
}

TEST(RasterReader, TheFirstPageOfATiffIsRead) {
  const cv::Mat image = RandomImage(CV_16UC1);
  TiffBuilder first = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)});
  const std::size_t next = first.Build().size();
  first.SetNextDirectory(next);
  // A second directory of one entry.
  const std::string second = first.Number(1, 2) + first.Number(256, 2) + first.Number(3, 2) +
                             first.Number(1, 4) + first.Number(99, 4) + first.Number(0, 4);
  ExpectSame(Read(first.Build() + second), image);
}

TEST(RasterReader, ADirectoryThatIsItsOwnSuccessorIsRead) {
  const cv::Mat image = RandomImage(CV_8UC1);
  ExpectSame(Read(BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)})
                      .SetNextDirectory(8)
                      .Build()),
             image);
}

TEST(RasterReader, WhiteIsZeroTiffComesWithWhiteAtTheTop) {
  for (const int type : {CV_8UC1, CV_16UC1}) {
    const cv::Mat image = RandomImage(type);
    TiffImage tiff = TiffOf(image);
    tiff.photometric = 0;
    cv::Mat inverted;
    cv::subtract(cv::Scalar(type == CV_8UC1 ? 255 : 65535), image, inverted);
    ExpectSame(Read(BuildTiffImage(tiff, {InterleavedBytes(image, false)}).Build()), inverted);
  }
}

TEST(RasterReader, TiffOrientationIsApplied) {
  constexpr int kTopRowIsRightSide = 6;
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    TiffImage tiff = TiffOf(image);
    tiff.orientation = kTopRowIsRightSide;
    cv::Mat upright;
    cv::rotate(image, upright, cv::ROTATE_90_CLOCKWISE);
    ExpectSame(Read(BuildTiffImage(tiff, {InterleavedBytes(image, false)}).Build()), upright);
  }
}

TEST_P(RasterReaderTiffTest, SeparatePlanesAreReadWithEveryUsualCompression) {
  for (const Compression& compression : kCompressions) {
    for (const int type : kTypes) {
      const cv::Mat image = RandomImage(type, 20, 30);
      TiffImage tiff = TiffOf(image);
      tiff.compression = compression.tag;
      tiff.planarConfiguration = 2;
      std::vector<std::string> planes = PlanarBytes(image, GetParam().isBigEndian);
      for (std::string& plane : planes) {
        plane = compression.compress(plane);
      }
      ExpectSame(Read(BuildTiffImage(tiff, planes, GetParam()).Build()), image);
    }
  }
}

TEST_P(RasterReaderTiffTest, SeparatePlanesMayHaveSeveralStripsEach) {
  const cv::Mat image = RandomImage(CV_16UC3, 5, 7);
  TiffImage tiff = TiffOf(image);
  tiff.planarConfiguration = 2;
  tiff.rowsPerStrip = 2;
  std::vector<std::string> strips;
  for (const std::string& plane : PlanarBytes(image, GetParam().isBigEndian)) {
    const std::size_t stripBytes = 2 * 7 * 2;
    for (std::size_t start = 0; start < plane.size(); start += stripBytes) {
      strips.push_back(plane.substr(start, stripBytes));
    }
  }
  ExpectSame(Read(BuildTiffImage(tiff, strips, GetParam()).Build()), image);
}

// An image in tiles of 16 x 16 pixels, the rest of which is filled with a value of its own.
std::string TiledTiff(const cv::Mat& image, bool hasPlanes, const Compression& compression,
                      TiffForm form) {
  constexpr int kSide = 16;
  std::vector<std::string> tiles;
  const auto count = static_cast<std::size_t>(hasPlanes ? image.channels() : 1);
  for (std::size_t plane = 0; plane < count; ++plane) {
    for (int y = 0; y < image.rows; y += kSide) {
      for (int x = 0; x < image.cols; x += kSide) {
        cv::Mat tile(kSide, kSide, image.type(), cv::Scalar::all(99));
        const cv::Rect part(x, y, std::min(kSide, image.cols - x), std::min(kSide, image.rows - y));
        image(part).copyTo(tile(cv::Rect(0, 0, part.width, part.height)));
        const std::string bytes = hasPlanes ? PlanarBytes(tile, form.isBigEndian)[plane]
                                            : InterleavedBytes(tile, form.isBigEndian);
        tiles.push_back(compression.compress(bytes));
      }
    }
  }
  const auto number = [](int value) { return static_cast<std::uint64_t>(value); };
  TiffBuilder builder(form);
  builder.Add(256, TiffBuilder::kShort, {number(image.cols)})
      .Add(257, TiffBuilder::kShort, {number(image.rows)})
      .Add(258, TiffBuilder::kShort,
           std::vector<std::uint64_t>(number(image.channels()), 8 * image.elemSize1()))
      .Add(259, TiffBuilder::kShort, {number(compression.tag)})
      .Add(262, TiffBuilder::kShort, {number(image.channels() == 3 ? 2 : 1)})
      .Add(277, TiffBuilder::kShort, {number(image.channels())})
      .Add(284, TiffBuilder::kShort, {number(hasPlanes ? 2 : 1)})
      .Add(322, TiffBuilder::kShort, {kSide})
      .Add(323, TiffBuilder::kShort, {kSide});
  return builder.AddStrips(tiles, 324, 325).Build();
}

TEST_P(RasterReaderTiffTest, TilesMakeOneImageWithAndWithoutSeparatePlanes) {
  for (const Compression& compression : kCompressions) {
    for (const int type : kTypes) {
      for (const bool hasPlanes : {false, true}) {
        const cv::Mat image = RandomImage(type, 21, 37);
        ExpectSame(Read(TiledTiff(image, hasPlanes, compression, GetParam())), image);
      }
    }
  }
}

// TIFF 6.0, section 14: each sample but the first of a row is stored as a difference.
std::string Differences(const std::string& bytes, std::size_t rowBytes, std::size_t sampleBytes,
                        std::size_t samples, const TiffBuilder& order, bool isBigEndian) {
  std::string differences = bytes;
  const auto sample = [&](std::size_t offset) {
    unsigned value = 0;
    for (std::size_t i = 0; i < sampleBytes; ++i) {
      const std::size_t at = isBigEndian ? i : sampleBytes - 1 - i;
      value = value << 8U | static_cast<unsigned char>(bytes[offset + at]);
    }
    return value;
  };
  for (std::size_t row = 0; row < bytes.size(); row += rowBytes) {
    for (std::size_t i = samples * sampleBytes; i < rowBytes; i += sampleBytes) {
      const unsigned difference = sample(row + i) - sample(row + i - samples * sampleBytes);
      differences.replace(row + i, sampleBytes, order.Number(difference, sampleBytes));
    }
  }
  return differences;
}

TEST_P(RasterReaderTiffTest, DeflatedDifferencesAreAddedUp) {
  for (const int type : kTypes) {
    for (const bool hasPlanes : {false, true}) {
      const cv::Mat image = RandomImage(type, 6, 9);
      TiffImage tiff = TiffOf(image);
      tiff.compression = 8;
      tiff.planarConfiguration = hasPlanes ? 2 : 1;
      const std::size_t samples = hasPlanes ? 1 : static_cast<std::size_t>(image.channels());
      std::vector<std::string> strips =
          hasPlanes ? PlanarBytes(image, GetParam().isBigEndian)
                    : std::vector{InterleavedBytes(image, GetParam().isBigEndian)};
      for (std::string& strip : strips) {
        strip =
            test::StoredZlib(Differences(strip, 9 * samples * image.elemSize1(), image.elemSize1(),
                                         samples, TiffBuilder(GetParam()), GetParam().isBigEndian));
      }
      tiff.predictor = 2;
      ExpectSame(Read(BuildTiffImage(tiff, strips, GetParam()).Build()), image);
    }
  }
}

TEST_P(RasterReaderTiffTest, RowsComeInAnyNumberAtATime) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  const cv::Mat image = RandomImage(CV_16UC3, 23, 37);
  TiffImage inStrips = TiffOf(image);
  inStrips.rowsPerStrip = 23;
  TiffImage onItsSide = TiffOf(image);
  onItsSide.orientation = 6;
  const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
  for (const std::string& file : {BuildTiffImage(inStrips, {bytes}, GetParam()).Build(),
                                  BuildTiffImage(onItsSide, {bytes}, GetParam()).Build(),
                                  TiledTiff(image, true, kCompressions[2], GetParam())}) {
    const cv::Mat whole = Read(file);
    WriteFileBytes(path, file);
    for (const int count : {1, 5, 16, 17, 22, 100}) {
      RasterReader reader(path);
      cv::Mat joined(0, reader.Info().width, reader.Info().type);
      for (cv::Mat rows = reader.ReadRows(count); !rows.empty(); rows = reader.ReadRows(count)) {
        EXPECT_LE(rows.rows, count);
        joined.push_back(rows);
      }
      ExpectSame(joined, whole);
      EXPECT_EQ(reader.Info().height, whole.rows);
      EXPECT_TRUE(reader.ReadRows(1).empty());
    }
  }
}

TEST(RasterReader, RowsOfOtherFormatsComeInAnyNumberAtATime) {
  const TemporaryFolder folder;
  const cv::Mat image = RandomImage(CV_16UC3);
  WriteFileBytes(folder.Path("a.png"), BuildPng(PngOf(image), InterleavedBytes(image, true)));
  RasterReader reader(folder.Path("a.png"));
  ExpectSame(reader.ReadRows(1), image.rowRange(0, 1));
  ExpectSame(reader.ReadRows(100), image.rowRange(1, kHeight));
  EXPECT_TRUE(reader.ReadRows(1).empty());
}

struct BadTag {
  std::string name;
  int tag;
  int type;
  std::uint64_t count;
  std::string bytes;  // little endian
};

std::string Short(std::uint64_t value) {
  return TiffBuilder().Number(value, 2);
}

class BadTagTest : public testing::TestWithParam<BadTag> {};

INSTANTIATE_TEST_SUITE_P(
    Tags, BadTagTest,
    testing::Values(BadTag{"ResolutionUnit0", 296, 3, 1, Short(0)},
                    BadTag{"ResolutionUnit4", 296, 3, 1, Short(4)},
                    BadTag{"ResolutionUnit5", 296, 3, 1, Short(5)},
                    BadTag{"FillOrder0", 266, 3, 1, Short(0)},
                    BadTag{"FillOrder3", 266, 3, 1, Short(3)},
                    BadTag{"NegativeResolution", 282, 10, 1, "\xD4\xFE\xFF\xFF\x01\0\0\0"s},
                    BadTag{"UnknownWithoutValues", 40000, 3, 0, ""},
                    BadTag{"PrivateOfType0", 65000, 0, 1, Short(7)},
                    BadTag{"PrivateOfType14", 65000, 14, 1, Short(7)},
                    BadTag{"PrivateOfType16", 65000, 16, 1, "\x07\0\0\0\0\0\0\0"s},
                    BadTag{"PrivateOfType99", 65000, 99, 1, Short(7)},
                    BadTag{"PrivateOfType129", 65000, 129, 1, Short(7)}),
    [](const auto& instance) { return instance.param.name; });

TEST_P(BadTagTest, AnImageWithSoundPixelsIsRead) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    TiffBuilder builder = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)});
    builder.Insert(GetParam().tag, GetParam().type, GetParam().count, GetParam().bytes);
    ExpectSame(Read(builder.Build()), image);
  }
}

TEST(RasterReader, AnOrientationThatDoesNotExistIsUpright) {
  for (const int orientation : {0, 9, 65535}) {
    for (const int type : kTypes) {
      const cv::Mat image = RandomImage(type);
      TiffImage tiff = TiffOf(image);
      tiff.orientation = orientation;
      ExpectSame(Read(BuildTiffImage(tiff, {InterleavedBytes(image, false)}).Build()), image);
    }
  }
}

void ExpectAdvice(const TiffImage& tiff, const std::string& advice) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("image.tif");
  WriteFileBytes(path, BuildTiffImage(tiff, {std::string(1000, 'x')}).Build());
  ExpectMessage<std::invalid_argument>(
      [&path] { RasterReader reader(path); },
      "Unable to read input image: " + path +
          ". Check that the file is a readable TIFF/TIF, PNG, or supported FITS image. " + advice);
}

TEST(RasterReader, ColoursThatAreNotReadAreNamed) {
  const std::string save = " Save it as grey or RGB with 8 or 16 bits a sample.";
  for (const int bits : {8, 16}) {
    for (const int lab : {8, 9, 10}) {
      ExpectAdvice({.width = 4,
                    .height = 4,
                    .bitsPerSample = bits,
                    .photometric = lab,
                    .samplesPerPixel = 3},
                   "It holds CIE L*a*b* colours." + save);
    }
    ExpectAdvice({.width = 4, .height = 4, .bitsPerSample = bits, .photometric = 32803},
                 "It holds neither grey nor RGB (PhotometricInterpretation 32803)." + save);
  }
}

TEST(RasterReader, ACompressionThatIsNotReadIsNamed) {
  ExpectAdvice({.width = 4, .height = 4, .compression = 60'000},
               "It is compressed in a way that is not read (Compression 60000). Save it with LZW, "
               "Deflate or no compression.");
}

TEST(RasterReader, ATiffThatIsTooLargeIsNamed) {
  ExpectAdvice({.width = 2'000'000, .height = 1},
               "It claims 2000000 x 1 pixels; at most 1048576 a side and 1073741824 in all are "
               "read.");
}

// The information about a file of these bytes.
RasterInfo InfoOf(const std::string& bytes, const std::string& name = "image.tif") {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path(name), bytes);
  return RasterReader(folder.Path(name)).Info();
}

TEST(RasterReader, GreyTiffWithExtraSamplesIsNeitherGreyNorRgb) {
  for (const int samples : {2, 3, 4, 5}) {
    for (const int bits : {8, 16}) {
      const TiffImage tiff{
          .width = kWidth, .height = kHeight, .bitsPerSample = bits, .samplesPerPixel = samples};
      const auto size = static_cast<std::size_t>(kWidth * kHeight * samples * bits / 8);
      const std::string bytes = BuildTiffImage(tiff, {std::string(size, 'x')}).Build();
      EXPECT_FALSE(InfoOf(bytes).isGreyOrRgb);
      EXPECT_EQ(Read(bytes).channels(), samples);
    }
  }
}

TEST(RasterReader, APaletteWithExtraSamplesHasTooManyChannels) {
  const TiffImage tiff{.width = 4, .height = 1, .photometric = 3, .samplesPerPixel = 2};
  TiffBuilder builder = BuildTiffImage(tiff, {"abcdefgh"});
  builder.Insert(320, TiffBuilder::kShort, 768, std::string(2 * 768, 'x'));
  ExpectRefused(builder.Build(), "Unsupported number of image channels: 2");
}

TEST(RasterReader, InksAreNeitherGreyNorRgb) {
  for (const int samples : {3, 4, 5}) {
    const TiffImage tiff{.width = 2, .height = 1, .photometric = 5, .samplesPerPixel = samples};
    const std::string bytes = BuildTiffImage(tiff, {std::string(10, 'x')}).Build();
    EXPECT_FALSE(InfoOf(bytes).isGreyOrRgb);
    EXPECT_EQ(Read(bytes).channels(), samples);
  }
}

TEST(RasterReader, SamplesInUsualNumbersAreGreyOrRgb) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    EXPECT_TRUE(InfoOf(BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)}).Build())
                    .isGreyOrRgb);
  }
}

TEST(RasterReader, ColourTiffWithAlphaComesWithFourChannels) {
  for (const int bits : {8, 16}) {
    const TiffImage tiff{.width = kWidth,
                         .height = kHeight,
                         .bitsPerSample = bits,
                         .photometric = 2,
                         .samplesPerPixel = 4};
    const std::string bytes(static_cast<std::size_t>(kWidth * kHeight * 4 * bits / 8), 'x');
    EXPECT_EQ(Read(BuildTiffImage(tiff, {bytes}).Build()).channels(), 4);
  }
}

struct StoredTypeCase {
  int bits;
  int sampleFormat;
  std::string name;
  int type;
};

TEST(RasterReader, TypesOfOpenCvComeAsTheyAre) {
  for (const StoredTypeCase& stored :
       {StoredTypeCase{8, 1, "uint8", CV_8UC1}, StoredTypeCase{16, 1, "uint16", CV_16UC1},
        StoredTypeCase{8, 2, "int8", CV_8SC1}, StoredTypeCase{16, 2, "int16", CV_16SC1},
        StoredTypeCase{32, 2, "int32", CV_32SC1}, StoredTypeCase{32, 3, "float32", CV_32FC1},
        StoredTypeCase{64, 3, "float64", CV_64FC1}}) {
    const TiffImage tiff{.width = kWidth,
                         .height = kHeight,
                         .bitsPerSample = stored.bits,
                         .sampleFormat = stored.sampleFormat};
    const std::string samples(static_cast<std::size_t>(kWidth * kHeight * stored.bits / 8), '\x3F');
    const std::string bytes = BuildTiffImage(tiff, {samples}).Build();
    EXPECT_EQ(Read(bytes).type(), stored.type);
    EXPECT_EQ(InfoOf(bytes).storedType, stored.name);
  }
}

struct WidenedCase {
  int bits;
  int sampleFormat;
  std::string name;
  std::string littleEndian;
  std::string bigEndian;
  std::vector<double> values;
};

// The values by hand; below 16 bits the byte order does not matter.
const std::vector<WidenedCase> kWidened = {
    {10, 1, "uint10", "\xFF\xC0\x00\x00"s, "\xFF\xC0\x00\x00"s, {1023, 0}},
    {12, 1, "uint12", "\x12\x3F\xFE"s, "\x12\x3F\xFE"s, {0x123, 0xFFE}},
    {14, 1, "uint14", "\xFF\xFC\x00\x10"s, "\xFF\xFC\x00\x10"s, {16383, 1}},
    {32,
     1,
     "uint32",
     "\x01\0\0\0\xFF\xFF\xFF\xFF"s,
     "\0\0\0\x01\xFF\xFF\xFF\xFF"s,
     {1, 4294967295}},
    {16, 3, "float16", "\0\x3C\0\xC0"s, "\x3C\0\xC0\0"s, {1, -2}},
    {64,
     1,
     "uint64",
     "\x02"s + std::string(14, '\0') + "\x80",
     std::string(7, '\0') + "\x02\x80" + std::string(7, '\0'),
     {2, 9223372036854775808.0}},
    {64,
     2,
     "int64",
     "\x02"s + std::string(7, '\0') + std::string(8, '\xFF'),
     std::string(7, '\0') + "\x02" + std::string(8, '\xFF'),
     {2, -1}},
};

TEST(RasterReader, TypesThatOpenCvLacksComeAsDoubles) {
  for (const WidenedCase& stored : kWidened) {
    for (const bool isBigEndian : {false, true}) {
      for (const int planes : {1, 2}) {
        const TiffImage tiff{.width = 2,
                             .height = 1,
                             .bitsPerSample = stored.bits,
                             .planarConfiguration = planes,
                             .sampleFormat = stored.sampleFormat};
        const std::string bytes =
            BuildTiffImage(tiff, {isBigEndian ? stored.bigEndian : stored.littleEndian},
                           {isBigEndian, false})
                .Build();
        EXPECT_EQ(InfoOf(bytes).storedType, stored.name);
        ExpectSame(Read(bytes), cv::Mat(stored.values, true).reshape(1, 1));
      }
    }
  }
}

TEST(RasterReader, SamplesOfUnusualSizesHaveAnUnsupportedDepth) {
  for (const auto& [bits, sampleFormat] : {std::pair(24, 1), {24, 3}, {12, 2}, {32, 5}, {64, 6}}) {
    const TiffImage tiff{
        .width = 2, .height = 1, .bitsPerSample = bits, .sampleFormat = sampleFormat};
    ExpectRefused(
        BuildTiffImage(tiff, {std::string(16, 'x')}).Build(),
        "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  }
}

TEST(RasterReader, TiffPaletteIsExpanded) {
  TiffBuilder builder;
  constexpr std::size_t kColours = 256;
  std::vector<std::uint64_t> map(3 * kColours);
  for (std::size_t i = 0; i < kColours; ++i) {
    map[i] = i * 257;
    map[kColours + i] = (255 - i) * 257;
    map[2 * kColours + i] = std::uint64_t{7} * 257;
  }
  builder.Add(256, TiffBuilder::kShort, {2})
      .Add(257, TiffBuilder::kShort, {1})
      .Add(258, TiffBuilder::kShort, {8})
      .Add(262, TiffBuilder::kShort, {3})
      .AddStrips({"\x10\xF0"s})
      .Add(320, TiffBuilder::kShort, map);
  ExpectSame(Read(builder.Build()),
             (cv::Mat_<cv::Vec3b>(1, 2) << cv::Vec3b(7, 239, 16), cv::Vec3b(7, 15, 240)));
}

TEST(RasterReader, ATiffThatClaimsMoreThanItsFileCanHoldIsRefused) {
  for (const int compression : {1, 5, 8, 32773, 32946}) {
    const TiffImage tiff{.width = 30'000,
                         .height = 30'000,
                         .bitsPerSample = 16,
                         .compression = compression,
                         .photometric = 2,
                         .samplesPerPixel = 3};
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {std::string(2000, 'x')}).Build()).empty());
  }
}

TEST(RasterReader, ATiffWithMorePixelsThanOpenCvAllowsIsRefused) {
  const TiffImage tiff{.width = 40'000, .height = 40'000, .compression = 50'000};
  EXPECT_TRUE(Read(BuildTiffImage(tiff, {std::string(2000, 'x')}).Build()).empty());
}

struct CompressedStrip {
  int compression;
  std::string sound;
  std::string damaged;
};

// Strips of the eight samples "abcdefgh".
const CompressedStrip kCompressedStrips[] = {
    // The last literal is cut off.
    {32773, "\x07"s + "abcdefgh", "\x07"s + "abcd"},
    // A block of the type that does not exist.
    {8, test::StoredZlib("abcdefgh"), "\x78\x01\x07"s + "abcdefghijkl"},
    {32946, test::StoredZlib("abcdefgh"), "\x78\x01\x07"s + "abcdefghijkl"},
    // Codes of nine bits: clear, the eight letters, end. The damaged one begins with a code that
    // nothing has defined.
    {5, "\x80\x18\x4C\x46\x33\x21\x94\xCC\x67\x34\x40\x40"s,
     "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s},
};

TEST(RasterReader, SoundStripsOfEachCompressionAreRead) {
  cv::Mat expected(2, 8, CV_8UC1);
  for (const CompressedStrip& strip : kCompressedStrips) {
    const TiffImage tiff{
        .width = 8, .height = 2, .compression = strip.compression, .rowsPerStrip = 1};
    for (int column = 0; column < 8; ++column) {
      expected.col(column).setTo('a' + column);
    }
    ExpectSame(Read(BuildTiffImage(tiff, {strip.sound, strip.sound}).Build()), expected);
  }
}

TEST(RasterReader, ADamagedStripOfAnyCompressionIsNotTakenForAPicture) {
  for (const CompressedStrip& strip : kCompressedStrips) {
    const TiffImage tiff{
        .width = 8, .height = 2, .compression = strip.compression, .rowsPerStrip = 1};
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {strip.damaged, strip.sound}).Build()).empty());
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {strip.sound, strip.damaged}).Build()).empty());
  }
}

std::string LosslessWebp(int width, int height, const cv::Scalar& bgr) {
  std::vector<unsigned char> bytes;
  const cv::Mat image(height, width, CV_8UC3, bgr);
  cv::imencode(".webp", image, bytes, {cv::IMWRITE_WEBP_QUALITY, 101});  // above 100: lossless
  return {bytes.begin(), bytes.end()};
}

TEST(RasterReader, AWebpStripHasTheSizeOfItsStrip) {
  const TiffImage tiff{.width = 16,
                       .height = 12,
                       .compression = 50001,
                       .photometric = 2,
                       .samplesPerPixel = 3,
                       .rowsPerStrip = 8};
  const cv::Scalar bgr(20, 90, 200);
  const std::string last = LosslessWebp(16, 4, bgr);
  ExpectSame(Read(BuildTiffImage(tiff, {LosslessWebp(16, 8, bgr), last}).Build()),
             cv::Mat(12, 16, CV_8UC3, bgr));
  for (const auto& [width, height] : {std::pair(6, 8), {17, 8}, {16, 7}, {16, 9}, {8, 16}}) {
    EXPECT_TRUE(
        Read(BuildTiffImage(tiff, {LosslessWebp(width, height, bgr), last}).Build()).empty())
        << width << " x " << height;
  }
}

TEST(RasterReader, AWrongByteInADeflatedStripIsNoticed) {
  for (const int type : {CV_8UC1, CV_16UC3}) {
    const cv::Mat image = RandomImage(type);
    TiffImage tiff = TiffOf(image);
    tiff.compression = 8;
    const std::string whole =
        BuildTiffImage(tiff, {test::StoredZlib(InterleavedBytes(image, false))}).Build();
    ExpectSame(Read(whole), image);
    for (std::size_t fromEnd = 1; fromEnd <= image.total() * image.elemSize() + 4; ++fromEnd) {
      std::string damaged = whole;
      damaged[damaged.size() - fromEnd] ^= '\x04';
      EXPECT_TRUE(Read(damaged).empty()) << fromEnd;
    }
  }
}

TEST(RasterReader, AStripMayClaimMoreRowsThanItsImageHas) {
  for (const int rows : {500, 30'000}) {
    const TiffImage tiff{.width = 30'000, .height = 1, .rowsPerStrip = rows};
    EXPECT_EQ(Read(BuildTiffImage(tiff, {std::string(30'000, 'x')}).Build()).rows, 1);
  }
}

TEST(RasterReader, ATileMuchLargerThanItsFileExplainsIsRefused) {
  const auto tiled = [](std::uint64_t side, const std::string& samples) {
    TiffBuilder builder;
    builder.Add(256, TiffBuilder::kShort, {16})
        .Add(257, TiffBuilder::kShort, {16})
        .Add(258, TiffBuilder::kShort, {8})
        .Add(259, TiffBuilder::kShort, {1})
        .Add(262, TiffBuilder::kShort, {1})
        .Add(277, TiffBuilder::kShort, {1})
        .Add(322, TiffBuilder::kShort, {side})
        .Add(323, TiffBuilder::kShort, {side});
    return builder.AddStrips({samples}, 324, 325).Build();
  };
  EXPECT_EQ(Read(tiled(16, std::string(256, 'x'))).size(), cv::Size(16, 16));
  EXPECT_TRUE(Read(tiled(30'000, std::string(2000, 'x'))).empty());
}

TEST(RasterReader, PngSamplesComeAsStoredWithColoursInBgrOrder) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    ExpectSame(Read(BuildPng(PngOf(image), InterleavedBytes(image, true)), "a.png"), image);
  }
}

TEST(RasterReader, NoPngColourChunkChangesSamples) {
  const std::string gamma = PngChunk("gAMA", test::BigEndian(45455, 4));
  const std::string standard = PngChunk("sRGB", std::string(1, '\0'));
  const std::string white = test::BigEndian(31270, 4) + test::BigEndian(32900, 4);
  const std::string primaries = PngChunk("cHRM", white + white + white + white);
  const std::string rotated =
      PngChunk("eXIf", "MM\0\x2A\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0"s);
  for (const std::string& chunk : {gamma, standard, primaries, gamma + primaries, rotated}) {
    for (const int type : kTypes) {
      const cv::Mat image = RandomImage(type);
      ExpectSame(Read(BuildPng(PngOf(image), InterleavedBytes(image, true), chunk), "a.png"),
                 image);
    }
  }
}

TEST(RasterReader, PngOfOneBitIsExpandedToTheWholeRange) {
  const PngImage png{.width = 8, .height = 1, .bitDepth = 1};
  ExpectSame(Read(BuildPng(png, "\xA1"), "a.png"),
             (cv::Mat_<std::uint8_t>(1, 8) << 255, 0, 255, 0, 0, 0, 0, 255));
}

TEST(RasterReader, PngPaletteIsExpanded) {
  const PngImage png{.width = 2, .height = 1, .colour = PngColour::kPalette};
  const std::string palette = PngChunk("PLTE", "\x01\x02\x03\xF1\xF2\xF3");
  ExpectSame(Read(BuildPng(png, "\0\x01"s, palette), "a.png"),
             (cv::Mat_<cv::Vec3b>(1, 2) << cv::Vec3b(3, 2, 1), cv::Vec3b(0xF3, 0xF2, 0xF1)));
}

TEST(RasterReader, PngTransparencyAndAlphaComeAsAFourthChannel) {
  const std::string transparency = PngChunk("tRNS", "\0\x01\0\x02\0\x03"s);
  const PngImage rgb{.width = 1, .height = 1, .colour = PngColour::kRgb};
  const PngImage rgba{.width = 1, .height = 1, .colour = PngColour::kRgbAlpha};
  const PngImage greyAlpha{
      .width = 1, .height = 1, .bitDepth = 16, .colour = PngColour::kGreyAlpha};
  EXPECT_EQ(Read(BuildPng(rgb, "abc", transparency), "a.png").channels(), 4);
  EXPECT_EQ(Read(BuildPng(rgba, "abcd"), "a.png").channels(), 4);
  EXPECT_EQ(Read(BuildPng(greyAlpha, "abcd"), "a.png").channels(), 4);
}

TEST(RasterReader, GreyPngWithATransparentLevelKeepsOneChannel) {
  const cv::Mat image = RandomImage(CV_16UC1);
  ExpectSame(
      Read(BuildPng(PngOf(image), InterleavedBytes(image, true), PngChunk("tRNS", "\0\x01"s)),
           "a.png"),
      image);
}

TEST(RasterReader, ACutPngIsNeverAccepted) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    const std::string whole = BuildPng(PngOf(image), InterleavedBytes(image, true));
    for (std::size_t length = 0; length < whole.size(); ++length) {
      EXPECT_TRUE(Read(whole.substr(0, length), "a.png").empty()) << length;
    }
  }
}

TEST(RasterReader, APngWithAnyWrongByteIsNeverAccepted) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string whole = BuildPng(PngOf(image), InterleavedBytes(image, true));
  constexpr std::size_t kEndChunk = 12;
  for (std::size_t position = 0; position < whole.size() - kEndChunk; ++position) {
    std::string damaged = whole;
    damaged[position] = static_cast<char>(damaged[position] ^ 0x40);
    EXPECT_TRUE(Read(damaged, "a.png").empty()) << position;
  }
}

TEST(RasterReader, APngWithTooFewRowsIsNotAccepted) {
  const PngImage png{.width = kWidth, .height = kHeight};
  const std::string data = test::StoredZlib(std::string(kWidth + 1, '\0'));
  EXPECT_TRUE(Read(PngStart(png) + PngChunk("IDAT", data) + PngChunk("IEND", ""), "a.png").empty());
}

TEST(RasterReader, APngThatClaimsTooMuchIsRefused) {
  const std::string data = PngChunk("IDAT", test::StoredZlib("x")) + PngChunk("IEND", "");
  const std::string padding = PngChunk("tEXt", std::string(2'000'000, 'x'));
  // More than the file can hold, more than OpenCV allows, and wider than OpenCV allows.
  EXPECT_TRUE(Read(PngStart({.width = 30'000, .height = 30'000}) + data, "a.png").empty());
  EXPECT_TRUE(
      Read(PngStart({.width = 40'000, .height = 40'000}) + padding + data, "a.png").empty());
  EXPECT_TRUE(Read(PngStart({.width = 1'048'577, .height = 1}) + padding + data, "a.png").empty());
  EXPECT_TRUE(Read(PngStart({.width = -1, .height = -1}) + padding + data, "a.png").empty());
}

std::string Jpeg(int type) {
  std::vector<unsigned char> bytes;
  cv::imencode(".jpg", RandomImage(type, 40, 60), bytes);
  return {bytes.begin(), bytes.end()};
}

TEST(RasterReader, JpegIsDecoded) {
  EXPECT_EQ(Read(Jpeg(CV_8UC3), "a.jpg").type(), CV_8UC3);
  EXPECT_EQ(Read(Jpeg(CV_8UC1), "a.jpg").type(), CV_8UC1);
}

TEST(RasterReader, ACutJpegIsNeverAccepted) {
  const std::string whole = Jpeg(CV_8UC3);
  for (std::size_t missing = 1; missing <= whole.size(); missing += 7) {
    EXPECT_TRUE(Read(whole.substr(0, whole.size() - missing), "a.jpg").empty()) << missing;
  }
}

TEST(RasterReader, JpegOrientationIsNotApplied) {
  const std::string exif =
      "Exif\0\0MM\0\x2A\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0"s;
  const std::string plain = Jpeg(CV_8UC1);
  const std::string rotated = plain.substr(0, 2) + "\xFF\xE1" +
                              test::BigEndian(exif.size() + 2, 2) + exif + plain.substr(2);
  ExpectSame(Read(rotated, "a.jpg"), Read(plain, "a.jpg"));
}

TEST(RasterReader, TheContentDecidesNotTheExtension) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string tiff = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)}).Build();
  const std::string png = BuildPng(PngOf(image), InterleavedBytes(image, true));
  ExpectSame(Read(tiff, "a.png"), image);
  ExpectSame(Read(png, "a.tif"), image);
  ExpectSame(Read(png, "a"), image);
}

TEST(RasterReader, NamesAreJustNames) {
  const cv::Mat image = RandomImage(CV_8UC1);
  const std::string png = BuildPng(PngOf(image), InterleavedBytes(image, true));
  for (const char* name : {"m31[1].png", "a b.png", "-a.png", "\xF0\x9F\x90\xBE.png", "%03d.png"}) {
    ExpectSame(Read(png, name), image);
  }
}

TEST(RasterReader, WhatIsNoImageIsRefused) {
  EXPECT_TRUE(Read("").empty());
  EXPECT_TRUE(Read("x").empty());
  EXPECT_TRUE(Read("SIMPLE  =                    T").empty());
  EXPECT_TRUE(Read("<VRTDataset rasterXSize=\"9\" rasterYSize=\"9\"></VRTDataset>").empty());
  const TemporaryFolder folder;
  EXPECT_TRUE(ReadFile(folder.Folder()).empty());
  EXPECT_TRUE(ReadFile(folder.Path("missing.tif")).empty());
}

TEST(RasterReader, DicomIsNotDecoded) {
  const std::string preamble(128, '\0');
  // A group length whose own length is four bytes and its value missing, and a broken element.
  const std::string metaInformation = "\x02\0\0\0UL\x04\0\xFF\xFF\xFF\xFF"s;
  EXPECT_TRUE(Read(preamble + "DICM").empty());
  EXPECT_TRUE(Read(preamble + "DICM" + metaInformation + "\x02\0\x10\0??\xFF\xFF"s).empty());
  EXPECT_TRUE(Read("\x89PNG" + preamble.substr(4) + "DICM" + metaInformation).empty());
}

TEST(RasterReader, Jpeg2000IsNotDecoded) {
  if (!cv::haveImageWriter("a.jp2")) {
    GTEST_SKIP() << "This OpenCV knows nothing of JPEG 2000.";
  }
  std::vector<unsigned char> bytes;
  cv::imencode(".jp2", RandomImage(CV_8UC3, 64, 64), bytes);
  const std::string file(bytes.begin(), bytes.end());
  EXPECT_TRUE(Read(file).empty());
  EXPECT_TRUE(Read(file.substr(file.find("\xFF\x4F\xFF\x51"))).empty());
}

TEST(RasterReader, FloatingPointFormatsHaveAnUnsupportedDepthAndAreNotDecoded) {
  // An attribute of unknown type that claims 2 GiB, and two images that claim as much.
  for (const std::string& bytes :
       {"v/1\x01\x02\0\0\0name\0type\0\xFF\xFF\xFF\x7F"s, "PF\n30000 30000\n-1.0\n"s,
        "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 30000 +X 30000\n"s}) {
    ExpectRefused(
        bytes, "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  }
}

// A BMP of 8 bits whose run-length code is nothing but the end of the bitmap.
std::string BlankBmp(std::uint32_t width, std::uint32_t height) {
  constexpr std::uint32_t kHeaders = 14 + 40;
  constexpr std::uint32_t kPalette = 256 * 4;
  const TiffBuilder little;
  return "BM" + little.Number(kHeaders + kPalette + 2, 4) + little.Number(0, 4) +
         little.Number(kHeaders + kPalette, 4) + little.Number(40, 4) + little.Number(width, 4) +
         little.Number(height, 4) + little.Number(1, 2) + little.Number(8, 2) +
         little.Number(1, 4) + std::string(20, '\0') + std::string(kPalette, '\x7F') + "\0\x01"s;
}

TEST(RasterReader, NoPictureIsMuchLargerThanItsFileExplains) {
  EXPECT_EQ(Read(BlankBmp(300, 200), "a.bmp").size(), cv::Size(300, 200));
  EXPECT_TRUE(Read(BlankBmp(10'000, 7'000), "a.bmp").empty());
}

TEST(RasterReader, NothingOfATiffReachesStandardError) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string tiff = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)}).Build();
  const test::StandardErrorFile standardError;
  for (std::size_t length = 0; length < tiff.size(); ++length) {
    Read(tiff.substr(0, length));
  }
  EXPECT_EQ(standardError.Text(), "");
}

TEST(RasterReader, OtherFormatsOfOpenCvAreDecoded) {
  for (const char* extension : {".webp", ".ppm", ".pgm", ".pbm", ".pam", ".sr"}) {
    if (!cv::haveImageWriter(extension)) {
      continue;
    }
    const std::string name = std::string("a") + extension;
    const bool isGrey = name == "a.pgm" || name == "a.pbm";
    const cv::Mat image = RandomImage(isGrey ? CV_8UC1 : CV_8UC3, 40, 60);
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(cv::imencode(extension, image, bytes)) << extension;
    EXPECT_EQ(Read({bytes.begin(), bytes.end()}, name).size(), image.size()) << extension;
  }
}

// GDAL, which OpenCV may have been built with, takes this for one of its virtual datasets.
TEST(RasterReader, AFileThatRefersToAnotherIsRefused) {
  const TemporaryFolder folder;
  ASSERT_TRUE(cv::imwrite(folder.Path("other.png"), RandomImage(CV_8UC1, 40, 60)));
  std::string bands;
  for (const char* colour : {"Red", "Green", "Blue"}) {
    bands += std::string("<VRTRasterBand dataType=\"Byte\"><ColorInterp>") + colour +
             "</ColorInterp><SimpleSource><SourceFilename>" + folder.Path("other.png") +
             "</SourceFilename><SourceBand>1</SourceBand></SimpleSource></VRTRasterBand>";
  }
  WriteFileBytes(
      folder.Path("a.img"),
      "NITF --><VRTDataset rasterXSize=\"60\" rasterYSize=\"40\">" + bands + "</VRTDataset>");
  EXPECT_TRUE(ReadFile(folder.Path("a.img")).empty());
}

}  // namespace
}  // namespace project_lumen::io
