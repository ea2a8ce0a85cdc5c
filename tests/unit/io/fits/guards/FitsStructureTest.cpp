#include "io/fits/guards/FitsStructure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/FitsBytes.h"

namespace project_lumen::io {
namespace {

using test::ArrayCards;
using test::FitsCard;
using test::FitsHdu;
using test::FitsImageHdu;
using test::FitsTableHdu;
using test::RawCard;

// CFITSIO's status codes, as its documentation lists them.
constexpr int kBadNaxis = 212;
constexpr int kBadNaxes = 213;
constexpr int kBadPcount = 214;
constexpr int kBadGcount = 215;
constexpr int kBadTfields = 216;
constexpr int kDecompressionError = 414;

class StringBytes : public SequentialBytes {
 public:
  explicit StringBytes(std::string text) : text_(std::move(text)) {}
  std::size_t Read(char* target, std::size_t count) override {
    const std::size_t got = text_.copy(target, count, position_);
    position_ += got;
    return got;
  }
  std::uint64_t Skip(std::uint64_t count) override {
    const std::uint64_t there = std::min<std::uint64_t>(count, text_.size() - position_);
    position_ += there;
    return there;
  }

 private:
  std::string text_;
  std::size_t position_ = 0;
};

FitsStructure Inspect(const std::string& bytes) {
  StringBytes source(bytes);
  return InspectFitsStructure(source);
}

const std::string kEmptyPrimary = FitsHdu(ArrayCards(8, {}, {FitsCard("EXTEND", "T")}), "");
const std::string kImageExtension = FitsImageHdu<std::int16_t>(16, {2, 2}, {1, 2, 3, 4}, {}, true);

// The cards of a tile-compressed image of 100 x 50 pixels, without its columns.
std::vector<std::string> TiledCards() {
  return {FitsCard("XTENSION", "'BINTABLE'"),
          FitsCard("BITPIX", 8),
          FitsCard("NAXIS", 2),
          FitsCard("NAXIS1", 8),
          FitsCard("NAXIS2", 50),
          FitsCard("PCOUNT", 0),
          FitsCard("GCOUNT", 1),
          FitsCard("TFIELDS", 1),
          FitsCard("ZIMAGE", "T"),
          FitsCard("ZNAXIS", 2),
          FitsCard("ZNAXIS1", 100),
          FitsCard("ZNAXIS2", 50),
          FitsCard("ZTILE1", 100),
          FitsCard("ZTILE2", 1)};
}

TEST(InspectFitsStructure, KnowsWhetherTheLastBlockIsWhole) {
  const std::string image = FitsImageHdu<std::int16_t>(16, {2, 2}, {1, 2, 3, 4});
  const auto lacksPadding = [&image](std::size_t size) {
    return Inspect(image.substr(0, size)).lacksPadding;
  };
  EXPECT_FALSE(lacksPadding(2 * test::kFitsBlock));
  EXPECT_TRUE(lacksPadding(2 * test::kFitsBlock - 1));
  EXPECT_TRUE(lacksPadding(test::kFitsBlock + 8));
  EXPECT_FALSE(lacksPadding(test::kFitsBlock + 7));
  EXPECT_FALSE(Inspect(image + "more").lacksPadding);
  EXPECT_FALSE(Inspect(kEmptyPrimary + kImageExtension).lacksPadding);
}

TEST(InspectFitsStructure, EndsAtTheFirstImage) {
  const FitsStructure structure =
      Inspect(kEmptyPrimary + FitsTableHdu() + kImageExtension + kImageExtension);
  EXPECT_EQ(structure.hduCount, 3);
  EXPECT_EQ(structure.refusalStatus, 0);
}

TEST(InspectFitsStructure, PassesOverImagesOfOneOrFourAxes) {
  const std::string line = FitsImageHdu<std::uint8_t>(8, {3}, {1, 2, 3});
  const std::string fourAxes = FitsImageHdu<std::uint8_t>(8, {1, 1, 1, 2}, {1, 2}, {}, true);
  EXPECT_EQ(Inspect(line + fourAxes + kImageExtension).hduCount, 3);
}

TEST(InspectFitsStructure, CountsTheHeaderThatIsCutShort) {
  EXPECT_EQ(Inspect(kEmptyPrimary + kImageExtension.substr(0, 800)).hduCount, 2);
  EXPECT_EQ(Inspect("").hduCount, 1);
  EXPECT_EQ(Inspect("not a FITS file").hduCount, 1);
}

TEST(InspectFitsStructure, EndsWhereDataIsMissing) {
  const std::string table = FitsTableHdu();
  EXPECT_EQ(Inspect(kEmptyPrimary + table.substr(0, table.size() - 1)).hduCount, 2);
}

TEST(InspectFitsStructure, RandomGroupsHaveParametersBeforeEachArray) {
  // 3 groups of 2 parameters and 10 values of two bytes: 72 bytes, one block.
  const std::string groups =
      FitsHdu(ArrayCards(16, {0, 10},
                         {FitsCard("GROUPS", "T"), FitsCard("PCOUNT", 2), FitsCard("GCOUNT", 3)}),
              std::string(72, '\0'));
  EXPECT_EQ(Inspect(groups + kImageExtension).hduCount, 2);
}

TEST(InspectFitsStructure, MoreThan99AxesStayUnread) {
  const FitsStructure structure =
      Inspect(FitsHdu(ArrayCards(8, std::vector<std::int64_t>(100, 1), {}), "x"));
  EXPECT_EQ(structure.hduCount, 0);
  EXPECT_EQ(structure.refusalStatus, kBadNaxis);
  EXPECT_EQ(
      Inspect(FitsHdu(ArrayCards(8, std::vector<std::int64_t>(99, 1), {}), "x")).refusalStatus, 0);
}

TEST(InspectFitsStructure, NegativeSizesStayUnread) {
  const auto statusWith = [](const std::string& card) {
    return Inspect(FitsHdu(ArrayCards(8, {1}, {card}), "x")).refusalStatus;
  };
  EXPECT_EQ(Inspect(FitsHdu(ArrayCards(8, {-5}, {}), "x")).refusalStatus, kBadNaxes);
  EXPECT_EQ(statusWith(FitsCard("PCOUNT", -2880)), kBadPcount);
  EXPECT_EQ(statusWith(FitsCard("GCOUNT", -1)), kBadGcount);
  EXPECT_EQ(statusWith(FitsCard("PCOUNT", 0)), 0);
}

TEST(InspectFitsStructure, WhatComesBeforeABadHduIsCounted) {
  const std::string bad = FitsHdu(ArrayCards(8, {1}, {FitsCard("PCOUNT", -2880)}, true), "x");
  const FitsStructure structure = Inspect(kEmptyPrimary + bad);
  EXPECT_EQ(structure.hduCount, 1);
  EXPECT_EQ(structure.refusalStatus, kBadPcount);
}

TEST(InspectFitsStructure, ABadHduBehindTheImageDoesNotMatter) {
  const std::string bad = FitsHdu(ArrayCards(8, {1}, {FitsCard("PCOUNT", -2880)}, true), "x");
  const FitsStructure structure = Inspect(kEmptyPrimary + kImageExtension + bad);
  EXPECT_EQ(structure.hduCount, 2);
  EXPECT_EQ(structure.refusalStatus, 0);
}

TEST(InspectFitsStructure, SizesBeyond63BitsLeadNoFurther) {
  constexpr std::int64_t kLarge = std::int64_t{1} << 40;
  const FitsStructure structure =
      Inspect(FitsHdu(ArrayCards(16, {kLarge, kLarge, kLarge, kLarge}, {}), "") + kImageExtension);
  EXPECT_EQ(structure.hduCount, 1);
  EXPECT_EQ(structure.refusalStatus, 0);
}

TEST(InspectFitsStructure, TablesHaveAtMost999Fields) {
  std::vector<std::string> cards = TiledCards();
  cards[7] = FitsCard("TFIELDS", 1000);
  EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, kBadTfields);
}

TEST(InspectFitsStructure, TablesBeginWithTheirMandatoryKeywords) {
  constexpr int kBadBitpix = 211;
  const auto statusWith = [](std::size_t index, const std::string& card) {
    std::vector<std::string> cards = TiledCards();
    cards[index] = card;
    return Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus;
  };
  EXPECT_EQ(statusWith(1, RawCard("BITPIX  =                    (")), kBadBitpix);
  EXPECT_EQ(statusWith(2, FitsCard("NAXIS", 1)), kBadNaxis);
  EXPECT_EQ(statusWith(3, FitsCard("NAXIS2", 8)), kBadNaxes);
  EXPECT_EQ(statusWith(5, FitsCard("OBJECT", 8)), kBadPcount);
  EXPECT_EQ(statusWith(6, FitsCard("GCOUNT", 2)), kBadGcount);
  EXPECT_EQ(statusWith(7, FitsCard("TFIELDS", "'1'")), kBadTfields);
  EXPECT_EQ(statusWith(3, RawCard("NAXIS1  =                   '8")), kBadNaxes);
  EXPECT_EQ(statusWith(3, FitsCard("NAXIS1", "8.")), kBadNaxes);
  EXPECT_EQ(statusWith(4, FitsCard("NAXIS2", "1E1")), kBadNaxes);
  EXPECT_EQ(statusWith(7, FitsCard("TFIELDS", "1.0")), kBadTfields);
}

TEST(InspectFitsStructure, ColumnNamesLongerThanAStringCanBeStayUnread) {
  constexpr int kNoQuote = 205;
  const auto statusWith = [](const std::string& card, std::size_t cardsBefore = 0) {
    std::vector<std::string> cards = TiledCards();
    cards.insert(cards.end(), cardsBefore, FitsCard("OBJECT", 1));
    cards.push_back(RawCard(card));
    return Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus;
  };
  EXPECT_EQ(statusWith("TTYPE1  =" + std::string(71, '>')), kNoQuote);
  EXPECT_EQ(statusWith("TTYPE1  =" + std::string(71, '>'), 200), kNoQuote);
  EXPECT_EQ(statusWith("TTYPE1  = '" + std::string(68, 'x') + "'"), 0);
}

TEST(InspectFitsStructure, SaneTilesAreShown) {
  const FitsStructure structure =
      Inspect(kEmptyPrimary + FitsHdu(TiledCards(), std::string(400, 0)));
  EXPECT_EQ(structure.hduCount, 2);
  EXPECT_EQ(structure.refusalStatus, 0);
}

TEST(InspectFitsStructure, TilesWithoutASizeStayUnread) {
  for (const auto& [index, card] : std::vector<std::pair<std::size_t, std::string>>{
           {12, FitsCard("ZTILE1", 0)},
           {13, FitsCard("ZTILE2", -1)},
           {13, FitsCard("ZTILE2", "0.5")},
           {13, FitsCard("ZTILE2", "'x'")},
           {12, FitsCard("ZTILE1", std::int64_t{1} << 40)},
           {10, FitsCard("ZNAXIS1", 0)},
           {9, FitsCard("ZNAXIS", 7)},
           {11, FitsCard("ZNAXIS2", std::int64_t{1} << 62)},
           {13, RawCard("HIERARCH ZTILE2 = 0")}}) {
    std::vector<std::string> cards = TiledCards();
    cards[index] = card;
    EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, kDecompressionError)
        << card;
  }
}

TEST(InspectFitsStructure, AWordThatBeginsLikeTrueMakesATiledImageToo) {
  std::vector<std::string> cards = TiledCards();
  cards[8] = FitsCard("ZIMAGE", "TA");
  cards[12] = FitsCard("ZTILE1", 0);
  EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, kDecompressionError);
}

TEST(InspectFitsStructure, TextInPlaceOfAnIntegerOfTheTilesIsShort) {
  for (const std::string name : {"ZBITPIX", "ZDITHER0", "ZVAL1", "ZVAL2", "ZBLANK", "BLANK"}) {
    const auto statusWith = [&name](const std::string& value) {
      std::vector<std::string> cards = TiledCards();
      cards.push_back(FitsCard(name, value));
      return Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus;
    };
    EXPECT_EQ(statusWith("'" + std::string(26, 'x') + "'"), 0) << name;
    EXPECT_EQ(statusWith("'" + std::string(30, 'x') + "'"), kDecompressionError) << name;
    EXPECT_EQ(statusWith("1." + std::string(40, '0')), 0) << name;
  }
}

TEST(InspectFitsStructure, RiceBlocksWithoutPixelsStayUnread) {
  std::vector<std::string> cards = TiledCards();
  cards.push_back(FitsCard("ZCMPTYPE", "'RICE_1  '"));
  cards.push_back(FitsCard("ZVAL1", 32));
  EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, 0);
  cards.back() = FitsCard("ZVAL1", 0);
  EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, kDecompressionError);
}

TEST(InspectFitsStructure, TilesWhoseKeywordsRepeatStayUnread) {
  for (const std::string& card :
       {FitsCard("ZTILE2", 1), FitsCard("ZNAXIS1", 100), FitsCard("ZNAXIS", 2),
        FitsCard("ZBITPIX", 16), FitsCard("ZIMAGE", "T")}) {
    std::vector<std::string> cards = TiledCards();
    cards.push_back(card);
    const std::string name = card.substr(0, 8);
    const auto isSame = [&](const std::string& other) { return other.substr(0, 8) == name; };
    if (std::count_if(cards.begin(), cards.end(), isSame) == 1) {
      cards.push_back(card);
    }
    EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, kDecompressionError)
        << card;
  }
  // Remarks and keywords of other programs may.
  std::vector<std::string> cards = TiledCards();
  for (const char* name : {"HISTORY", "ZENITH", "HISTORY", "ZENITH"}) {
    cards.push_back(FitsCard(name, 1));
  }
  EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, std::string(400, 0))).refusalStatus, 0);
}

TEST(InspectFitsStructure, EveryCardOfARepeatedTileSizeCounts) {
  std::vector<std::string> cards = TiledCards();
  cards.insert(cards.begin() + 12, FitsCard("ZTILE2", 0));
  EXPECT_EQ(Inspect(kEmptyPrimary + FitsHdu(cards, "")).refusalStatus, kDecompressionError);
}

}  // namespace
}  // namespace project_lumen::io
