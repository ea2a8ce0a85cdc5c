#include "io/fits/guards/CompressedTile.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/FitsBytes.h"

namespace project_lumen::io {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes Gzip(const Bytes& input, int level) {
  z_stream stream{};
  deflateInit2(&stream, level, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY);
  Bytes source = input;
  Bytes result(input.size() + 200);
  stream.next_in = source.data();
  stream.avail_in = static_cast<uInt>(source.size());
  stream.next_out = result.data();
  stream.avail_out = static_cast<uInt>(result.size());
  deflate(&stream, Z_FINISH);
  result.resize(stream.total_out);
  deflateEnd(&stream);
  return result;
}

Bytes Cut(const Bytes& bytes, std::size_t length) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)};
}

// Bits given as text, most significant first, filled up with zeros.
Bytes FromBits(const std::string& text) {
  Bytes bytes;
  std::size_t count = 0;
  for (const char c : text) {
    if (c == ' ') {
      continue;
    }
    if (count % 8 == 0) {
      bytes.push_back(0);
    }
    bytes.back() = static_cast<unsigned char>(bytes.back() | ((c - '0') << (7 - count % 8)));
    ++count;
  }
  return bytes;
}

// --- gzip ---

TEST(GzipTileSize, IsThatOfTheContent) {
  const Bytes tile = Gzip(Bytes(100000, 7), 9);
  EXPECT_EQ(GzipTileSize(tile, 100000), 100000U);
  EXPECT_EQ(GzipTileSize(tile, 400000), 100000U);
  EXPECT_EQ(GzipTileSize(tile, 99999), std::nullopt);
}

TEST(GzipTileSize, NoTruncationHasOne) {
  const Bytes tile = Gzip(Bytes(1000, 7), 9);
  for (std::size_t length = 0; length < tile.size(); ++length) {
    EXPECT_EQ(GzipTileSize(Cut(tile, length), 1000), std::nullopt) << length;
  }
}

TEST(GzipTileSize, DamageHasNone) {
  Bytes tile = Gzip(Bytes(1000, 7), 0);
  tile[500] ^= 1U;
  EXPECT_EQ(GzipTileSize(tile, 1000), std::nullopt);
}

// --- Rice ---

TEST(IsRiceTile, EqualPixelsNeedOneCodeABlock) {
  // A first pixel of 32 bits; three blocks of 32 pixels, each with the 5-bit code 0.
  const std::string first(32, '1');
  EXPECT_TRUE(IsRiceTile(FromBits(first + "00000 00000 00000"), 96, 4, 32));
  EXPECT_TRUE(IsRiceTile(FromBits(first + "00000 00000 00000"), 65, 4, 32));
  EXPECT_FALSE(IsRiceTile(FromBits(first + "00000"), 96, 4, 32));
}

TEST(IsRiceTile, CodeLengthsDependOnThePixelSize) {
  // Two bytes and five 4-bit codes; one byte and two 3-bit codes
  EXPECT_TRUE(IsRiceTile(FromBits(std::string(16, '1') + "0000 0000 0000 0000 0000"), 160, 2, 32));
  EXPECT_FALSE(IsRiceTile(FromBits(std::string(16, '1') + "0000 0000"), 160, 2, 32));
  EXPECT_TRUE(IsRiceTile(FromBits("11111111 000 000"), 64, 1, 32));
  EXPECT_FALSE(IsRiceTile(FromBits("11111111"), 64, 1, 32));
}

TEST(IsRiceTile, FollowsUnaryCodesAndTheirRemainders) {
  // Code length 2 (stored as 3): "0001" and "1", each with two bits behind
  const std::string start = std::string(32, '0') + "00011";
  EXPECT_TRUE(IsRiceTile(FromBits(start + "0001 01" + "1 10"), 2, 4, 32));
  EXPECT_FALSE(IsRiceTile(FromBits(start + "0001 01" + "00000"), 2, 4, 32));
}

TEST(IsRiceTile, PlainDifferencesNeedTheirWholeWidth) {
  // The code 25, stored as 26, announces 32 bits a pixel.
  const std::string start = std::string(32, '0') + "11010";
  EXPECT_TRUE(IsRiceTile(FromBits(start + std::string(64, '1')), 2, 4, 32));
  EXPECT_FALSE(IsRiceTile(FromBits(start + std::string(56, '1')), 2, 4, 32));
}

TEST(IsRiceTile, ZerosToTheEndAreNoCode) {
  const std::string start = std::string(32, '0') + "00011";
  EXPECT_FALSE(IsRiceTile(FromBits(start + std::string(10000, '0')), 2, 4, 32));
}

TEST(IsRiceTile, NothingIsNoTile) {
  EXPECT_FALSE(IsRiceTile(Bytes{}, 1, 4, 32));
  EXPECT_FALSE(IsRiceTile(Bytes{1, 2, 3}, 1, 4, 32));
}

// --- PLIO ---

TEST(IsPlioTile, TheListMustLieWithinItsWords) {
  // Version, header length 7, -100, list length 8 (two words), two unused, one code
  const std::vector<std::int16_t> list{0, 7, -100, 8, 0, 0, 0, 0x4005};
  EXPECT_TRUE(IsPlioTile(list));
  for (std::size_t length = 0; length < list.size(); ++length) {
    EXPECT_FALSE(IsPlioTile(std::span(list).first(length))) << length;
  }
}

TEST(IsPlioTile, HeadersCannotPointBeforeTheList) {
  EXPECT_FALSE(IsPlioTile(std::vector<std::int16_t>{0, -5, -100, 8, 0, 0, 0, 0x4005}));
  EXPECT_FALSE(IsPlioTile(std::vector<std::int16_t>{0, 7, -100, 0, 1, 0, 0, 0x4005}));
}

TEST(IsPlioTile, ACodeOfTwoWordsCannotEndTheList) {
  EXPECT_FALSE(IsPlioTile(std::vector<std::int16_t>{0, 7, -100, 8, 0, 0, 0, 0x1005}));
}

TEST(IsPlioTile, OldListsHaveAShorterHeader) {
  EXPECT_TRUE(IsPlioTile(std::vector<std::int16_t>{0, 0, 4, 0x4005}));
  EXPECT_FALSE(IsPlioTile(std::vector<std::int16_t>{0, 0, 5, 0x4005}));
}

// --- H-compress ---

Bytes HcompressTile(std::int32_t rows, std::int32_t columns, const Bytes& planes,
                    const std::string& bits) {
  Bytes tile{0xDD, 0x99};
  const std::string numbers = test::BigEndian(std::vector<std::int32_t>{rows, columns, 1, 0, 0});
  tile.insert(tile.end(), numbers.begin(), numbers.end());
  tile.insert(tile.end(), planes.begin(), planes.end());
  const Bytes coded = FromBits(bits);
  tile.insert(tile.end(), coded.begin(), coded.end());
  return tile;
}

TEST(IsHcompressTile, ABlankTileOfAnySizeIsOneNybble) {
  const Bytes tile = HcompressTile(16, 1000, {0, 0, 0}, "0000");
  EXPECT_TRUE(IsHcompressTile(tile, 16000, 32));
  EXPECT_FALSE(IsHcompressTile(Cut(tile, tile.size() - 1), 16000, 32));
}

TEST(IsHcompressTile, TheSizeMustBeThatOfTheTile) {
  const Bytes tile = HcompressTile(4, 4, {0, 0, 0}, "0000");
  EXPECT_TRUE(IsHcompressTile(tile, 16, 32));
  EXPECT_FALSE(IsHcompressTile(tile, 15, 32));
  EXPECT_FALSE(IsHcompressTile(HcompressTile(-4, -4, {0, 0, 0}, "0000"), 16, 32));
  EXPECT_FALSE(IsHcompressTile(HcompressTile(0, 4, {0, 0, 0}, "0000"), 0, 32));
}

TEST(IsHcompressTile, DirectPlanesHaveANybbleABlockAndSigns) {
  // The first quadrant of 4 x 4 pixels is one block of 2 x 2: form 0, the nybble 1111, the end
  // mark; then the signs of its four coefficients, byte-aligned.
  EXPECT_TRUE(IsHcompressTile(HcompressTile(4, 4, {1, 0, 0}, "0000 1111 0000 0000 1010"), 16, 32));
  EXPECT_FALSE(IsHcompressTile(HcompressTile(4, 4, {1, 0, 0}, "0000 1111 0000"), 16, 32));
}

TEST(IsHcompressTile, QuadtreesAreFollowedDownToTheirBlocks) {
  // The first quadrant of 8 x 8 pixels has 2 x 2 blocks: form 15, the root "011" (only the first
  // block), that block's code "000" (only its last pixel), the end mark, one sign.
  const std::string tree = "1111 011 000 0000";
  EXPECT_TRUE(IsHcompressTile(HcompressTile(8, 8, {1, 0, 0}, tree + "00 1"), 64, 32));
  EXPECT_FALSE(IsHcompressTile(HcompressTile(8, 8, {1, 0, 0}, tree), 64, 32));
}

TEST(IsHcompressTile, PlanesHaveOneOfTwoForms) {
  EXPECT_FALSE(IsHcompressTile(HcompressTile(4, 4, {1, 0, 0}, "0001 1111 0000 0000 1010"), 16, 32));
}

TEST(IsHcompressTile, PlanesEndWithAnEmptyNybble) {
  EXPECT_FALSE(IsHcompressTile(HcompressTile(4, 4, {1, 0, 0}, "0000 1111 0001 0000 1010"), 16, 32));
}

TEST(IsHcompressTile, MorePlanesThanBitsAreRefused) {
  const std::string zeros(10000, '0');
  EXPECT_TRUE(IsHcompressTile(HcompressTile(4, 4, {40, 0, 0}, zeros), 16, 64));
  EXPECT_FALSE(IsHcompressTile(HcompressTile(4, 4, {40, 0, 0}, zeros), 16, 32));
}

TEST(IsHcompressTile, TheMagicCodeMustBeThere) {
  Bytes tile = HcompressTile(4, 4, {0, 0, 0}, "0000");
  tile[1] = 0;
  EXPECT_FALSE(IsHcompressTile(tile, 16, 32));
}

}  // namespace
}  // namespace project_lumen::io
