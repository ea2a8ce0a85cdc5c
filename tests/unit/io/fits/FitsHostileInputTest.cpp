// Damaged and lying FITS files: each ends with the right image or with a message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/fits/FitsReader.h"
#include "support/FitsBytes.h"
#include "support/ReadFits.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::ArrayCards;
using test::FitsCard;
using test::FitsHdu;
using test::FitsImageHdu;
using test::FitsTableHdu;

template <typename T>
std::vector<T> Ramp(std::size_t count, T step) {
  std::vector<T> values(count);
  for (std::size_t i = 1; i < count; ++i) {
    values[i] = static_cast<T>(values[i - 1] + step);
  }
  return values;
}

std::string Deflate(const std::string& bytes) {
  z_stream stream{};
  deflateInit2(&stream, 9, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY);  // with a gzip header
  std::string result(bytes.size() + 200, '\0');
  std::string input = bytes;
  stream.next_in = reinterpret_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = reinterpret_cast<Bytef*>(result.data());
  stream.avail_out = static_cast<uInt>(result.size());
  deflate(&stream, Z_FINISH);
  result.resize(stream.total_out);
  deflateEnd(&stream);
  return result;
}

// A tile-compressed image with one tile a row (FITS standard 4.0, chapter 10): the table has one
// descriptor a row, which is the length of a tile and its place in the heap.
std::string TiledHduOf(const std::string& method, std::int64_t width,
                       const std::vector<std::int32_t>& descriptors, const std::string& heap,
                       const std::vector<std::string>& extra, int bitpix = 32) {
  const auto rows = static_cast<std::int64_t>(descriptors.size() / 2);
  std::vector<std::string> cards{FitsCard("XTENSION", "'BINTABLE'"),
                                 FitsCard("BITPIX", 8),
                                 FitsCard("NAXIS", 2),
                                 FitsCard("NAXIS1", 8),
                                 FitsCard("NAXIS2", rows),
                                 FitsCard("PCOUNT", static_cast<std::int64_t>(heap.size())),
                                 FitsCard("GCOUNT", 1),
                                 FitsCard("TFIELDS", 1),
                                 FitsCard("TTYPE1", "'COMPRESSED_DATA'"),
                                 FitsCard("TFORM1", "'1PB     '"),
                                 FitsCard("ZIMAGE", "T"),
                                 FitsCard("ZBITPIX", bitpix),
                                 FitsCard("ZNAXIS", 2),
                                 FitsCard("ZNAXIS1", width),
                                 FitsCard("ZNAXIS2", rows),
                                 FitsCard("ZTILE1", width),
                                 FitsCard("ZTILE2", 1),
                                 FitsCard("ZCMPTYPE", "'" + method + "'")};
  cards.insert(cards.end(), extra.begin(), extra.end());
  return FitsHdu(cards, test::BigEndian(descriptors) + heap);
}

// The same with the tiles one after another in the heap.
std::string TiledHdu(const std::string& method, std::int64_t width,
                     const std::vector<std::string>& tiles, const std::vector<std::string>& extra,
                     int bitpix = 32) {
  std::vector<std::int32_t> descriptors;
  std::string heap;
  for (const std::string& tile : tiles) {
    descriptors.push_back(static_cast<std::int32_t>(tile.size()));
    descriptors.push_back(static_cast<std::int32_t>(heap.size()));
    heap += tile;
  }
  return TiledHduOf(method, width, descriptors, heap, extra, bitpix);
}

// Rice coding of a constant row of 32-bit integers: the first value, then the code 0 ("no
// difference") in five bits for each block of 32 pixels.
std::string ConstantRiceTile(std::int32_t value, std::size_t width) {
  return test::BigEndian(std::vector<std::int32_t>{value}) +
         std::string(((width + 31) / 32 * 5 + 7) / 8, '\0');
}

struct Sample {
  std::string name;
  std::string fileName;
  std::string bytes;
  std::size_t headerBytes;  // the bytes worth flipping
};

std::vector<Sample> MakeSamples() {
  const std::string emptyPrimary = FitsHdu(ArrayCards(8, {}, {FitsCard("EXTEND", "T")}), "");
  const std::string cube =
      FitsImageHdu(16, {40, 30, 3}, Ramp<std::int16_t>(3600, 7),
                   {FitsCard("BSCALE", 1), FitsCard("BZERO", 32768), FitsCard("BLANK", 32767)});
  std::vector<std::string> riceTiles;
  std::vector<std::string> gzipTiles;
  for (std::int32_t row = 0; row < 20; ++row) {
    riceTiles.push_back(ConstantRiceTile(row * 1000, 100));
    gzipTiles.push_back(Deflate(test::BigEndian(Ramp<std::int32_t>(100, row))));
  }
  const std::string rice = TiledHdu("RICE_1", 100, riceTiles,
                                    {FitsCard("ZNAME1", "'BLOCKSIZE'"), FitsCard("ZVAL1", 32),
                                     FitsCard("ZNAME2", "'BYTEPIX '"), FitsCard("ZVAL2", 4)});
  return {
      {"Bytes", "a.fits", FitsImageHdu(8, {100, 90}, Ramp<std::uint8_t>(9000, 3)), 2880},
      {"Cube", "a.fits", cube, 2880},
      {"Floats", "a.fits",
       FitsImageHdu(-32, {50, 60}, std::vector<float>(3000, 0.25F),
                    {FitsCard("DATAMIN", "0.25"), FitsCard("DATAMAX", "0.25")}),
       2880},
      {"Longs", "a.fits", FitsImageHdu(64, {30, 40}, Ramp<std::int64_t>(1200, 1LL << 50)), 2880},
      {"Interleaved", "a.fits", FitsImageHdu(-64, {3, 20, 30}, std::vector<double>(1800, 0.5)),
       2880},
      {"Extension", "a.fits",
       emptyPrimary + FitsTableHdu() +
           FitsImageHdu(32, {40, 40}, Ramp<std::int32_t>(1600, 999), {}, true),
       emptyPrimary.size() + FitsTableHdu().size() + 2880},
      {"Rice", "a.fits", emptyPrimary + rice, emptyPrimary.size() + 2880},
      {"TiledGzip", "a.fits", emptyPrimary + TiledHdu("GZIP_1", 100, gzipTiles, {}),
       emptyPrimary.size() + 2880},
      {"Gzip", "a.fits.gz", Deflate(cube), 300}};
}

class FitsHostileInputTest : public testing::TestWithParam<Sample> {
 protected:
  void SetUp() override { test::WriteFileBytes(Path(), GetParam().bytes); }

  [[nodiscard]] std::string Path() const { return folder_.Path(GetParam().fileName); }

  // Changes one byte where it lies; writing the file anew each time would take minutes.
  void Put(std::size_t position, char byte) const {
    std::fstream file(Path(), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(position));
    file.put(byte);
  }

  // The image; none when the reader threw its kind of exception with a message.
  [[nodiscard]] std::optional<cv::Mat> Read(bool linear) const {
    try {
      return test::ReadFits(Path(), linear).image;
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(std::string(error.what()), testing::HasSubstr("FITS"));
      return std::nullopt;
    }
  }

  // Reads the file with one byte exchanged.
  void ReadWith(std::size_t position, char byte, bool linear) const {
    Put(position, byte);
    const std::optional<cv::Mat> image = Read(linear);
    EXPECT_TRUE(!image || image->total() < 1000000)
        << "byte " << position << " is " << static_cast<int>(byte);
    Put(position, GetParam().bytes[position]);
  }

  test::TemporaryFolder folder_;
};

bool AreEqual(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

TEST_P(FitsHostileInputTest, TheWholeFileIsRead) {
  EXPECT_TRUE(Read(true).has_value());
  EXPECT_TRUE(Read(false).has_value());
}

TEST_P(FitsHostileInputTest, CutAtEveryBlockAndAt200PlacesItIsRightOrRefused) {
  const std::size_t size = GetParam().bytes.size();
  const cv::Mat whole = *Read(true);
  std::vector<std::size_t> lengths;
  for (std::size_t length = 0; length < size; length += test::kFitsBlock) {
    lengths.push_back(length);
  }
  std::mt19937 random(1);
  for (int i = 0; i < 200; ++i) {
    lengths.push_back(random() % size);
  }
  std::sort(lengths.begin(), lengths.end(), std::greater<>());
  for (const std::size_t length : lengths) {
    std::filesystem::resize_file(Path(), length);
    const std::optional<cv::Mat> image = Read(true);
    EXPECT_TRUE(!image || AreEqual(*image, whole)) << "cut to " << length;
    EXPECT_FALSE(image && length < GetParam().headerBytes) << "cut to " << length;
  }
}

TEST_P(FitsHostileInputTest, WithAnyByteOfTheHeaderFlippedItIsReadOrRefused) {
  const std::string& bytes = GetParam().bytes;
  for (const int mask : {0x01, 0x10, 0xFF}) {
    for (std::size_t i = 0; i < std::min(GetParam().headerBytes, bytes.size()); ++i) {
      ReadWith(i, static_cast<char>(bytes[i] ^ mask), (i & 1U) != 0);
    }
  }
}

// Printable damage reaches the parsers of values, which control characters do not.
TEST_P(FitsHostileInputTest, WithAnyCharacterOfItsCardsExchangedItIsReadOrRefused) {
  const std::string& bytes = GetParam().bytes;
  for (const char replacement : {'0', '9', '-', '\'', 'E'}) {
    for (std::size_t i = 0; i < std::min(GetParam().headerBytes, bytes.size()); ++i) {
      ReadWith(i, replacement, true);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Made, FitsHostileInputTest, testing::ValuesIn(MakeSamples()),
                         [](const auto& sample) { return sample.param.name; });

// The image of a file with this HDU behind an empty primary one.
cv::Mat ReadTiled(const std::string& hdu) {
  const test::TemporaryFolder folder;
  test::WriteFileBytes(folder.Path("a.fits"),
                       FitsHdu(ArrayCards(8, {}, {FitsCard("EXTEND", "T")}), "") + hdu);
  return test::ReadFits(folder.Path("a.fits"), true).image;
}

void ExpectRefused(const std::string& hdu, const std::string& reason) {
  try {
    ReadTiled(hdu);
    FAIL() << "was read";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr(reason));
  }
}

void ExpectPastTheEnd(const std::string& hdu) {
  ExpectRefused(hdu, "tried to move past end of file");
}

// A deflated row of these numbers.
template <typename T>
std::string GzipTile(const std::vector<T>& pixels) {
  return Deflate(test::BigEndian(pixels));
}

// Programs of 2006 deflated pixels of any width as 32-bit integers.
TEST(TiledFitsImage, DeflatedIntegersMayBeWiderThanTheImages) {
  const auto read = [](int bitpix, const std::string& tile) {
    const cv::Mat image = ReadTiled(TiledHdu("GZIP_1", 3, {tile}, {}, bitpix));
    return std::vector<double>(image.begin<double>(), image.end<double>());
  };
  const std::vector<double> bytes{0.0, 51.0 / 255.0, 1.0};
  EXPECT_EQ(read(8, GzipTile<std::uint8_t>({0, 51, 255})), bytes);
  EXPECT_EQ(read(8, GzipTile<std::int16_t>({0, 51, 255})), bytes);
  EXPECT_EQ(read(8, GzipTile<std::int32_t>({0, 51, 255})), bytes);
  const std::vector<double> shorts{-32768.0 / 32767.0, 300.0 / 32767.0, 1.0};
  EXPECT_EQ(read(16, GzipTile<std::int16_t>({-32768, 300, 32767})), shorts);
  EXPECT_EQ(read(16, GzipTile<std::int32_t>({-32768, 300, 32767})), shorts);
}

TEST(TiledFitsImage, IntegersThatAreSaidToBeFloatsAreRefused) {
  const auto hdu = [](const std::string& quantization) {
    return TiledHdu("GZIP_1", 3, {GzipTile<std::int16_t>({1, 2, 3})},
                    {FitsCard("ZQUANTIZ", quantization)}, 16);
  };
  EXPECT_EQ(ReadTiled(hdu("'NO_DITHER'")).cols, 3);
  ExpectRefused(hdu("'NONE    '"), "error uncompressing image");
}

TEST(TiledFitsImage, DeflatedTilesOfAnotherWidthAreRefused) {
  const auto refuse = [](int bitpix, const std::string& tile) {
    ExpectRefused(TiledHdu("GZIP_1", 4, {tile}, {}, bitpix), "error uncompressing image");
  };
  refuse(16, GzipTile<std::uint8_t>({1, 2, 3, 4}));
  refuse(16, GzipTile<std::uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9}));
  refuse(16, GzipTile<std::uint8_t>(std::vector<std::uint8_t>(12)));
  refuse(16, GzipTile<std::int64_t>({1, 2, 3, 4}));
  refuse(32, GzipTile<std::int16_t>({1, 2, 3, 4}));
  refuse(8, GzipTile<std::int64_t>({1, 2, 3, 4}));
}

TEST(TiledFitsImage, TilesCannotShareMoreBytesThanTheFileHas) {
  constexpr std::size_t kRows = 200;
  constexpr std::int64_t kWidth = 1000;
  const std::vector<std::string> extra{FitsCard("ZNAME1", "'BLOCKSIZE'"), FitsCard("ZVAL1", 32),
                                       FitsCard("ZNAME2", "'BYTEPIX '"), FitsCard("ZVAL2", 4)};
  const std::string tile = ConstantRiceTile(7, kWidth);
  EXPECT_EQ(ReadTiled(TiledHdu("RICE_1", kWidth, std::vector(kRows, tile), extra)).rows, 200);
  std::vector<std::int32_t> shared;
  for (std::size_t row = 0; row < kRows; ++row) {
    shared.insert(shared.end(), {static_cast<std::int32_t>(tile.size()), 0});
  }
  ASSERT_GT(kRows * tile.size(), test::kFitsBlock);
  ExpectPastTheEnd(TiledHduOf("RICE_1", kWidth, shared, tile, extra));
}

// Magic code, rows, columns, scale, sum and bit planes of an H-compressed tile, then the end of its
// bit planes, of which there are none.
std::string BlankHcompressTile(std::int32_t width) {
  return "\xDD\x99" + test::BigEndian(std::vector<std::int32_t>{1, width, 1}) +
         std::string(8 + 3 + 1, '\0');
}

TEST(TiledFitsImage, ABlankTileIsNotTakenForAnyNumberOfPixels) {
  const auto blank = [](std::int32_t width) {
    return TiledHdu("HCOMPRESS_1", width, {BlankHcompressTile(width)},
                    {FitsCard("ZNAME1", "'SCALE   '"), FitsCard("ZVAL1", 1)});
  };
  EXPECT_EQ(ReadTiled(blank(1'000'000)).cols, 1'000'000);
  ExpectPastTheEnd(blank(30'000'000));
}

}  // namespace
}  // namespace project_lumen::io
