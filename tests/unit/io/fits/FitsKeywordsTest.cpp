#include "io/fits/FitsKeywords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/FitsBytes.h"

namespace project_lumen::io {
namespace {

using test::FitsCard;
using test::RawCard;
using testing::ElementsAre;
using testing::IsEmpty;

FitsImageInfo Source(const std::vector<std::string>& cards, int naxis = 2,
                     bool planarCube = false) {
  FitsImageInfo info;
  info.naxis = naxis;
  info.planarCube = planarCube;
  info.headerCards = cards;
  return info;
}

TEST(KeywordOf, IsLowerCaseWithoutTrailingBlanks) {
  EXPECT_EQ(KeywordOf(FitsCard("BSCALE", 1)), "bscale");
  EXPECT_EQ(KeywordOf(FitsCard("DATE-OBS", "'x'")), "date-obs");
  EXPECT_EQ(KeywordOf(RawCard("")), "");
  EXPECT_EQ(KeywordOf("END"), "end");
}

TEST(FindCard, GivesTheFirstOfSeveral) {
  const std::vector<std::string> cards{FitsCard("A", 1), FitsCard("B", 2), FitsCard("B", 3)};
  EXPECT_EQ(FindCard(cards, "b"), &cards[1]);
  EXPECT_EQ(FindCard(cards, "c"), nullptr);
}

TEST(CardNumber, ReadsIntegersRealsAndFortranExponents) {
  EXPECT_EQ(CardNumber(FitsCard("BZERO", 32768)), 32768.0);
  EXPECT_EQ(CardNumber(RawCard("BZERO   = 3.5 / half")), 3.5);
  EXPECT_EQ(CardNumber(RawCard("BSCALE  = +1.25D-3")), 0.00125);
  EXPECT_EQ(CardNumber(RawCard("BSCALE  =              -2.5E2/x")), -250.0);
}

TEST(CardNumber, IsNoneForOtherValues) {
  EXPECT_FALSE(CardNumber(FitsCard("BSCALE", "'1.0     '")).has_value());
  EXPECT_FALSE(CardNumber(FitsCard("SIMPLE", "T")).has_value());
  EXPECT_FALSE(CardNumber(RawCard("COMMENT 5")).has_value());
  EXPECT_FALSE(CardNumber(RawCard("BSCALE  =")).has_value());
  EXPECT_FALSE(CardNumber(RawCard("BSCALE  = 1.0 2.0")).has_value());
}

TEST(IsStructuralCard, CoversStorageScalingExtremaAndChecksums) {
  for (const char* keyword : {"SIMPLE", "XTENSION", "BITPIX", "NAXIS", "NAXIS1", "NAXIS12",
                              "EXTEND", "PCOUNT", "GCOUNT", "GROUPS", "INHERIT", "BSCALE", "BZERO",
                              "BLANK", "DATAMIN", "DATAMAX", "CHECKSUM", "DATASUM"}) {
    EXPECT_TRUE(IsStructuralCard(FitsCard(keyword, 1))) << keyword;
  }
  EXPECT_TRUE(IsStructuralCard(RawCard("END")));
}

TEST(IsStructuralCard, CoversTablesAndCompressedImages) {
  for (const char* keyword :
       {"TFIELDS", "TTYPE1",  "TFORM12", "TUNIT3",   "TNULL1",   "TSCAL1",   "TZERO1",   "TDISP1",
        "TDIM1",   "TBCOL1",  "THEAP",   "ZIMAGE",   "ZCMPTYPE", "ZBITPIX",  "ZNAXIS",   "ZNAXIS1",
        "ZTILE1",  "ZNAME1",  "ZVAL1",   "ZQUANTIZ", "ZDITHER0", "ZHECKSUM", "ZDATASUM", "ZTENSION",
        "ZSIMPLE", "ZPCOUNT", "ZGCOUNT", "ZEXTEND",  "ZSCALE",   "ZZERO",    "ZBLANK"}) {
    EXPECT_TRUE(IsStructuralCard(FitsCard(keyword, 1))) << keyword;
  }
}

TEST(IsStructuralCard, LeavesAllOthersAlone) {
  for (const char* keyword : {"OBJECT", "NAXISX", "ZENITH", "TTYPE", "DATE", "BUNIT", "CRVAL1",
                              "EXTNAME", "EXPTIME", "ZTILEX"}) {
    EXPECT_FALSE(IsStructuralCard(FitsCard(keyword, 1))) << keyword;
  }
  EXPECT_FALSE(IsStructuralCard(RawCard("")));
  EXPECT_FALSE(IsStructuralCard(RawCard("HISTORY BITPIX")));
}

TEST(IsStructuralCard, OnlyTheCompressorsOwnExtensionNameGoes) {
  EXPECT_TRUE(IsStructuralCard(FitsCard("EXTNAME", "'COMPRESSED_IMAGE'")));
  EXPECT_FALSE(IsStructuralCard(FitsCard("EXTNAME", "'SCI     '")));
}

TEST(PreservedCards, KeepTheOrderAndEveryRepetition) {
  const std::vector<std::string> others{
      FitsCard("OBJECT", "'M 31    '"), RawCard(""),
      RawCard("COMMENT one"),           RawCard("HISTORY two"),
      FitsCard("OBJECT", "'M 32    '"), RawCard("HIERARCH ESO TEL ALT = 45.0"),
      RawCard("LONGTEXT= 'begin&'"),    RawCard("CONTINUE  'end'")};
  std::vector<std::string> cards = others;
  cards.insert(cards.begin() + 2, FitsCard("BITPIX", 16));
  EXPECT_EQ(PreservedCards(Source(cards), true), others);
}

TEST(PreservedCards, ContinuationsFollowTheCardThatIsLeftOut) {
  const std::vector<std::string> cards{RawCard("ZNAME1  = 'a&'"), RawCard("CONTINUE  'b&'"),
                                       RawCard("CONTINUE  'c'"), FitsCard("A", 1)};
  EXPECT_THAT(PreservedCards(Source(cards), false), ElementsAre(FitsCard("A", 1)));
}

TEST(PreservedCards, TheThirdAxisGoesWithTheOtherPlanesOfACube) {
  std::vector<std::string> thirdAxis{FitsCard("WCSAXES", 3), FitsCard("WCSAXESA", 3)};
  for (const char* keyword : {"CTYPE3", "CUNIT3", "CRVAL3", "CDELT3", "CRPIX3", "CROTA3", "CNAME3",
                              "CD3_1", "CD2_3", "PC1_3", "PV3_1", "PS3_0", "CRVAL3A", "CD1_3B"}) {
    thirdAxis.push_back(FitsCard(keyword, 1));
  }
  EXPECT_THAT(PreservedCards(Source(thirdAxis, 3, true), true), IsEmpty());
  EXPECT_EQ(PreservedCards(Source(thirdAxis, 3, true), false), thirdAxis);
  EXPECT_EQ(PreservedCards(Source(thirdAxis, 2), true), thirdAxis);
}

TEST(PreservedCards, TheFirstTwoAxesOfACubeStay) {
  const std::vector<std::string> cards{FitsCard("CTYPE1", "'RA---TAN'"),
                                       FitsCard("CRPIX2", 5),
                                       FitsCard("CD1_2", 1),
                                       FitsCard("PV2_3", 1),
                                       FitsCard("CTYPE", 1),
                                       FitsCard("CD3", 1)};
  EXPECT_EQ(PreservedCards(Source(cards, 3, true), true), cards);
}

TEST(PreservedCards, AxesBehindALeadingColourAxisMoveUp) {
  const std::vector<std::string> cards{FitsCard("CTYPE1", "'RGB     '"),
                                       FitsCard("CTYPE2", "'RA---TAN'"),
                                       FitsCard("CRPIX3A", 7),
                                       FitsCard("CD2_3", 4),
                                       FitsCard("CD2_1", 9),
                                       FitsCard("PV3_1", 6)};
  EXPECT_THAT(PreservedCards(Source(cards, 3, false), true),
              ElementsAre(FitsCard("CTYPE1", "'RA---TAN'"), FitsCard("CRPIX2A", 7),
                          FitsCard("CD1_2", 4), FitsCard("PV2_1", 6)));
}

}  // namespace
}  // namespace project_lumen::io
