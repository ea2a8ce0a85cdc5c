#include "io/DisplayReader.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <random>
#include <stdexcept>
#include <string>
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

// Writes the bytes to a file of this name and reads it. The folder is kept for the next one: tests
// of damaged files read thousands.
cv::Mat Read(const std::string& bytes, const std::string& name = "image.tif") {
  static const TemporaryFolder folder;
  WriteFileBytes(folder.Path(name), bytes);
  return ReadDisplayImage(folder.Path(name));
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

class DisplayReaderTiffTest : public testing::TestWithParam<TiffForm> {};

INSTANTIATE_TEST_SUITE_P(Forms, DisplayReaderTiffTest, testing::ValuesIn(test::kTiffForms),
                         [](const auto& instance) { return NameOf(instance.param); });

TEST_P(DisplayReaderTiffTest, SamplesComeAsStoredWithColoursInBgrOrder) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
    ExpectSame(Read(BuildTiffImage(TiffOf(image), {bytes}, GetParam()).Build()), image);
  }
}

TEST_P(DisplayReaderTiffTest, EveryUsualCompressionIsRead) {
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

TEST_P(DisplayReaderTiffTest, SeveralStripsMakeOneImage) {
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

TEST_P(DisplayReaderTiffTest, CutImageDataIsNeverAccepted) {
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

TEST_P(DisplayReaderTiffTest, ACutLastStripIsNeverAccepted) {
  const cv::Mat image = RandomImage(CV_8UC3);
  TiffImage tiff = TiffOf(image);
  tiff.rowsPerStrip = 2;
  const std::string bytes = InterleavedBytes(image, GetParam().isBigEndian);
  const std::size_t half = bytes.size() / 2;
  const std::string whole =
      BuildTiffImage(tiff, {bytes.substr(0, half), bytes.substr(half)}, GetParam()).Build();
  ExpectNoCutIsAccepted(whole, half);
}

TEST_P(DisplayReaderTiffTest, ACutDirectoryIsNeverAccepted) {
  const cv::Mat image = RandomImage(CV_16UC1);
  const std::string whole =
      BuildTiffImage(TiffOf(image), {InterleavedBytes(image, GetParam().isBigEndian)}, GetParam())
          .Build();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(Read(whole.substr(0, length)).empty()) << length;
  }
}

TEST_P(DisplayReaderTiffTest, AnyWrongByteOfTheDirectoryEndsWithAnImageOrWithoutOne) {
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

TEST(ReadDisplayImage, TheFirstPageOfATiffIsRead) {
  const cv::Mat image = RandomImage(CV_16UC1);
  TiffBuilder first = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)});
  const std::size_t next = first.Build().size();
  first.SetNextDirectory(next);
  // A second directory of one entry.
  const std::string second = first.Number(1, 2) + first.Number(256, 2) + first.Number(3, 2) +
                             first.Number(1, 4) + first.Number(99, 4) + first.Number(0, 4);
  ExpectSame(Read(first.Build() + second), image);
}

TEST(ReadDisplayImage, ADirectoryThatIsItsOwnSuccessorIsRead) {
  const cv::Mat image = RandomImage(CV_8UC1);
  ExpectSame(Read(BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)})
                      .SetNextDirectory(8)
                      .Build()),
             image);
}

TEST(ReadDisplayImage, WhiteIsZeroTiffComesWithWhiteAtTheTop) {
  for (const int type : {CV_8UC1, CV_16UC1}) {
    const cv::Mat image = RandomImage(type);
    TiffImage tiff = TiffOf(image);
    tiff.photometric = 0;
    cv::Mat inverted;
    cv::subtract(cv::Scalar(type == CV_8UC1 ? 255 : 65535), image, inverted);
    ExpectSame(Read(BuildTiffImage(tiff, {InterleavedBytes(image, false)}).Build()), inverted);
  }
}

TEST(ReadDisplayImage, TiffOrientationIsApplied) {
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

TEST(ReadDisplayImage, EightBitTiffWithSeparatePlanesIsRead) {
  const cv::Mat image = RandomImage(CV_8UC3);
  TiffImage tiff = TiffOf(image);
  tiff.planarConfiguration = 2;
  ExpectSame(Read(BuildTiffImage(tiff, PlanarBytes(image, false)).Build()), image);
}

TEST(ReadDisplayImage, SixteenBitTiffWithSeparatePlanesIsRefusedBeforeItIsMisread) {
  const cv::Mat image = RandomImage(CV_16UC3);
  TiffImage tiff = TiffOf(image);
  tiff.planarConfiguration = 2;
  EXPECT_TRUE(Read(BuildTiffImage(tiff, PlanarBytes(image, false)).Build()).empty());
}

TEST(ReadDisplayImage, LabTiffIsRefusedBeforeItBecomesRgb) {
  for (const int type : {CV_8UC3, CV_16UC3}) {
    const cv::Mat image = RandomImage(type);
    TiffImage tiff = TiffOf(image);
    tiff.photometric = 8;
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {InterleavedBytes(image, false)}).Build()).empty());
  }
}

TEST(ReadDisplayImage, GreyTiffWithExtraSamplesHasTooManyChannels) {
  for (const int samples : {2, 3, 4, 5}) {
    for (const int bits : {8, 16}) {
      const TiffImage tiff{
          .width = kWidth, .height = kHeight, .bitsPerSample = bits, .samplesPerPixel = samples};
      const auto size = static_cast<std::size_t>(kWidth * kHeight * samples * bits / 8);
      ExpectRefused(BuildTiffImage(tiff, {std::string(size, 'x')}).Build(),
                    "Unsupported number of image channels: " + std::to_string(samples));
    }
  }
}

TEST(ReadDisplayImage, ColourTiffWithAlphaComesWithFourChannels) {
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

TEST(ReadDisplayImage, TiffBetweenEightAndSixteenBitsHasAnUnsupportedDepth) {
  for (const int bits : {10, 12, 14}) {
    const TiffImage tiff{.width = 8, .height = 1, .bitsPerSample = bits};
    ExpectRefused(
        BuildTiffImage(tiff, {std::string(static_cast<std::size_t>(bits), 'x')}).Build(),
        "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  }
}

TEST(ReadDisplayImage, OtherDepthsComeWithTheirOwnType) {
  struct Case {
    int bits;
    int sampleFormat;
    int type;
  };
  for (const Case& depth : {Case{8, 2, CV_8SC1}, Case{16, 2, CV_16SC1}, Case{32, 2, CV_32SC1},
                            Case{32, 3, CV_32FC1}, Case{64, 3, CV_64FC1}}) {
    const TiffImage tiff{.width = kWidth,
                         .height = kHeight,
                         .bitsPerSample = depth.bits,
                         .sampleFormat = depth.sampleFormat};
    const std::string bytes(static_cast<std::size_t>(kWidth * kHeight * depth.bits / 8), '\x3F');
    EXPECT_EQ(Read(BuildTiffImage(tiff, {bytes}).Build()).type(), depth.type);
  }
}

TEST(ReadDisplayImage, UnsignedAndHalfPrecisionTiffOfOtherDepthsCannotBeDecoded) {
  for (const auto& [bits, sampleFormat] : {std::pair(32, 1), {64, 1}, {16, 3}}) {
    const TiffImage tiff{
        .width = kWidth, .height = kHeight, .bitsPerSample = bits, .sampleFormat = sampleFormat};
    const std::string bytes(static_cast<std::size_t>(kWidth * kHeight * bits / 8), '\x3F');
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {bytes}).Build()).empty());
  }
}

TEST(ReadDisplayImage, TiffPaletteIsExpanded) {
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

TEST(ReadDisplayImage, ATiffThatClaimsMoreThanItsFileCanHoldIsRefused) {
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

TEST(ReadDisplayImage, ATiffWithMorePixelsThanOpenCvAllowsIsRefused) {
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

TEST(ReadDisplayImage, SoundStripsOfEachCompressionAreRead) {
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

TEST(ReadDisplayImage, ADamagedStripOfAnyCompressionIsNotTakenForAPicture) {
  for (const CompressedStrip& strip : kCompressedStrips) {
    const TiffImage tiff{
        .width = 8, .height = 2, .compression = strip.compression, .rowsPerStrip = 1};
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {strip.damaged, strip.sound}).Build()).empty());
    EXPECT_TRUE(Read(BuildTiffImage(tiff, {strip.sound, strip.damaged}).Build()).empty());
  }
}

TEST(ReadDisplayImage, AWrongByteInADeflatedStripIsNoticed) {
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

TEST(ReadDisplayImage, AStripMuchLargerThanItsFileExplainsIsRefused) {
  TiffImage tiff{.width = 30'000, .height = 1, .rowsPerStrip = 500};
  const std::string row(30'000, 'x');
  EXPECT_FALSE(Read(BuildTiffImage(tiff, {row}).Build()).empty());
  tiff.rowsPerStrip = 30'000;
  EXPECT_TRUE(Read(BuildTiffImage(tiff, {row}).Build()).empty());
}

TEST(ReadDisplayImage, ATileMuchLargerThanItsFileExplainsIsRefused) {
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

TEST(ReadDisplayImage, PngSamplesComeAsStoredWithColoursInBgrOrder) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    ExpectSame(Read(BuildPng(PngOf(image), InterleavedBytes(image, true)), "a.png"), image);
  }
}

TEST(ReadDisplayImage, NoPngColourChunkChangesSamples) {
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

TEST(ReadDisplayImage, PngOfOneBitIsExpandedToTheWholeRange) {
  const PngImage png{.width = 8, .height = 1, .bitDepth = 1};
  ExpectSame(Read(BuildPng(png, "\xA1"), "a.png"),
             (cv::Mat_<std::uint8_t>(1, 8) << 255, 0, 255, 0, 0, 0, 0, 255));
}

TEST(ReadDisplayImage, PngPaletteIsExpanded) {
  const PngImage png{.width = 2, .height = 1, .colour = PngColour::kPalette};
  const std::string palette = PngChunk("PLTE", "\x01\x02\x03\xF1\xF2\xF3");
  ExpectSame(Read(BuildPng(png, "\0\x01"s, palette), "a.png"),
             (cv::Mat_<cv::Vec3b>(1, 2) << cv::Vec3b(3, 2, 1), cv::Vec3b(0xF3, 0xF2, 0xF1)));
}

TEST(ReadDisplayImage, PngTransparencyAndAlphaComeAsAFourthChannel) {
  const std::string transparency = PngChunk("tRNS", "\0\x01\0\x02\0\x03"s);
  const PngImage rgb{.width = 1, .height = 1, .colour = PngColour::kRgb};
  const PngImage rgba{.width = 1, .height = 1, .colour = PngColour::kRgbAlpha};
  const PngImage greyAlpha{
      .width = 1, .height = 1, .bitDepth = 16, .colour = PngColour::kGreyAlpha};
  EXPECT_EQ(Read(BuildPng(rgb, "abc", transparency), "a.png").channels(), 4);
  EXPECT_EQ(Read(BuildPng(rgba, "abcd"), "a.png").channels(), 4);
  EXPECT_EQ(Read(BuildPng(greyAlpha, "abcd"), "a.png").channels(), 4);
}

TEST(ReadDisplayImage, GreyPngWithATransparentLevelKeepsOneChannel) {
  const cv::Mat image = RandomImage(CV_16UC1);
  ExpectSame(
      Read(BuildPng(PngOf(image), InterleavedBytes(image, true), PngChunk("tRNS", "\0\x01"s)),
           "a.png"),
      image);
}

TEST(ReadDisplayImage, ACutPngIsNeverAccepted) {
  for (const int type : kTypes) {
    const cv::Mat image = RandomImage(type);
    const std::string whole = BuildPng(PngOf(image), InterleavedBytes(image, true));
    for (std::size_t length = 0; length < whole.size(); ++length) {
      EXPECT_TRUE(Read(whole.substr(0, length), "a.png").empty()) << length;
    }
  }
}

TEST(ReadDisplayImage, APngWithAnyWrongByteIsNeverAccepted) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string whole = BuildPng(PngOf(image), InterleavedBytes(image, true));
  constexpr std::size_t kEndChunk = 12;
  for (std::size_t position = 0; position < whole.size() - kEndChunk; ++position) {
    std::string damaged = whole;
    damaged[position] = static_cast<char>(damaged[position] ^ 0x40);
    EXPECT_TRUE(Read(damaged, "a.png").empty()) << position;
  }
}

TEST(ReadDisplayImage, APngWithTooFewRowsIsNotAccepted) {
  const PngImage png{.width = kWidth, .height = kHeight};
  const std::string data = test::StoredZlib(std::string(kWidth + 1, '\0'));
  EXPECT_TRUE(Read(PngStart(png) + PngChunk("IDAT", data) + PngChunk("IEND", ""), "a.png").empty());
}

TEST(ReadDisplayImage, APngThatClaimsTooMuchIsRefused) {
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

TEST(ReadDisplayImage, JpegIsDecoded) {
  EXPECT_EQ(Read(Jpeg(CV_8UC3), "a.jpg").type(), CV_8UC3);
  EXPECT_EQ(Read(Jpeg(CV_8UC1), "a.jpg").type(), CV_8UC1);
}

TEST(ReadDisplayImage, ACutJpegIsNeverAccepted) {
  const std::string whole = Jpeg(CV_8UC3);
  for (std::size_t missing = 1; missing <= whole.size(); missing += 7) {
    EXPECT_TRUE(Read(whole.substr(0, whole.size() - missing), "a.jpg").empty()) << missing;
  }
}

TEST(ReadDisplayImage, JpegOrientationIsNotApplied) {
  const std::string exif =
      "Exif\0\0MM\0\x2A\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0"s;
  const std::string plain = Jpeg(CV_8UC1);
  const std::string rotated = plain.substr(0, 2) + "\xFF\xE1" +
                              test::BigEndian(exif.size() + 2, 2) + exif + plain.substr(2);
  ExpectSame(Read(rotated, "a.jpg"), Read(plain, "a.jpg"));
}

TEST(ReadDisplayImage, TheContentDecidesNotTheExtension) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string tiff = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)}).Build();
  const std::string png = BuildPng(PngOf(image), InterleavedBytes(image, true));
  ExpectSame(Read(tiff, "a.png"), image);
  ExpectSame(Read(png, "a.tif"), image);
  ExpectSame(Read(png, "a"), image);
}

TEST(ReadDisplayImage, NamesAreJustNames) {
  const cv::Mat image = RandomImage(CV_8UC1);
  const std::string png = BuildPng(PngOf(image), InterleavedBytes(image, true));
  for (const char* name : {"m31[1].png", "a b.png", "-a.png", "\xF0\x9F\x90\xBE.png", "%03d.png"}) {
    ExpectSame(Read(png, name), image);
  }
}

TEST(ReadDisplayImage, WhatIsNoImageIsRefused) {
  EXPECT_TRUE(Read("").empty());
  EXPECT_TRUE(Read("x").empty());
  EXPECT_TRUE(Read("SIMPLE  =                    T").empty());
  EXPECT_TRUE(Read("<VRTDataset rasterXSize=\"9\" rasterYSize=\"9\"></VRTDataset>").empty());
  const TemporaryFolder folder;
  EXPECT_TRUE(ReadDisplayImage(folder.Folder()).empty());
  EXPECT_TRUE(ReadDisplayImage(folder.Path("missing.tif")).empty());
}

TEST(ReadDisplayImage, DicomIsNotDecoded) {
  const std::string preamble(128, '\0');
  // A group length whose own length is four bytes and its value missing, and a broken element.
  const std::string metaInformation = "\x02\0\0\0UL\x04\0\xFF\xFF\xFF\xFF"s;
  EXPECT_TRUE(Read(preamble + "DICM").empty());
  EXPECT_TRUE(Read(preamble + "DICM" + metaInformation + "\x02\0\x10\0??\xFF\xFF"s).empty());
  EXPECT_TRUE(Read("\x89PNG" + preamble.substr(4) + "DICM" + metaInformation).empty());
}

TEST(ReadDisplayImage, Jpeg2000IsNotDecoded) {
  if (!cv::haveImageWriter("a.jp2")) {
    GTEST_SKIP() << "This OpenCV knows nothing of JPEG 2000.";
  }
  std::vector<unsigned char> bytes;
  cv::imencode(".jp2", RandomImage(CV_8UC3, 64, 64), bytes);
  const std::string file(bytes.begin(), bytes.end());
  EXPECT_TRUE(Read(file).empty());
  EXPECT_TRUE(Read(file.substr(file.find("\xFF\x4F\xFF\x51"))).empty());
}

TEST(ReadDisplayImage, OpenExrHasAnUnsupportedDepthAndIsNotDecoded) {
  // An attribute of unknown type that claims 2 GiB.
  ExpectRefused("v/1\x01\x02\0\0\0name\0type\0\xFF\xFF\xFF\x7F"s,
                "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
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

TEST(ReadDisplayImage, NoPictureIsMuchLargerThanItsFileExplains) {
  EXPECT_EQ(Read(BlankBmp(300, 200), "a.bmp").size(), cv::Size(300, 200));
  EXPECT_TRUE(Read(BlankBmp(10'000, 7'000), "a.bmp").empty());
}

TEST(ReadDisplayImage, NothingReachesStandardError) {
  const cv::Mat image = RandomImage(CV_16UC3);
  const std::string png = BuildPng(PngOf(image), InterleavedBytes(image, true));
  const std::string tiff = BuildTiffImage(TiffOf(image), {InterleavedBytes(image, false)}).Build();
  const test::StandardErrorFile standardError;
  Read(png.substr(0, png.size() / 2), "a.png");
  Read(tiff.substr(0, tiff.size() - 1));
  Read(Jpeg(CV_8UC3).insert(900, std::string(20, '\x11')), "a.jpg");
  Read(
      PngStart({.width = 40'000, .height = 40'000}) + PngChunk("tEXt", std::string(2'000'000, 'x')),
      "a.png");
  EXPECT_EQ(standardError.Text(), "");
}

TEST(ReadDisplayImage, OtherFormatsOfOpenCvAreDecoded) {
  for (const char* extension : {".webp", ".ppm", ".pgm", ".pbm", ".pam", ".sr", ".hdr"}) {
    if (!cv::haveImageWriter(extension)) {
      continue;
    }
    const std::string name = std::string("a") + extension;
    const bool isGrey = name == "a.pgm" || name == "a.pbm";
    const bool isFloat = name == "a.hdr";
    cv::Mat image = RandomImage(isGrey ? CV_8UC1 : CV_8UC3, 40, 60);
    if (isFloat) {
      image.convertTo(image, CV_32F);
    }
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(cv::imencode(extension, image, bytes)) << extension;
    EXPECT_EQ(Read({bytes.begin(), bytes.end()}, name).size(), image.size()) << extension;
  }
}

// GDAL, which OpenCV may have been built with, takes this for one of its virtual datasets.
TEST(ReadDisplayImage, AFileThatRefersToAnotherIsRefused) {
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
  EXPECT_TRUE(ReadDisplayImage(folder.Path("a.img")).empty());
}

}  // namespace
}  // namespace project_lumen::io
