#include "studio/images/SkyCoordinates.h"

#include <gtest/gtest.h>

#include <cmath>

namespace project_lumen::studio {
namespace {

std::string Card(const std::string& keyword, const std::string& value) {
  std::string card = keyword;
  card.resize(8, ' ');
  card += "= " + value;
  card.resize(80, ' ');
  return card;
}

std::vector<std::string> Tangent(const std::string& end = "TAN") {
  return {Card("CTYPE1", "'RA---" + end + "'"),
          Card("CTYPE2", "'DEC--" + end + "'"),
          Card("CRPIX1", "100.0"),
          Card("CRPIX2", "200.0"),
          Card("CRVAL1", "10.0"),
          Card("CRVAL2", "0.0"),
          Card("CDELT1", "-0.01"),
          Card("CDELT2", "0.01")};
}

TEST(SkyCoordinates, TheReferencePixelLiesAtItsPosition) {
  const auto sky = SkyCoordinates::FromCards(Tangent());
  ASSERT_TRUE(sky);
  EXPECT_NEAR(sky->At(100, 200).rightAscension, 10.0, 1e-12);
  EXPECT_NEAR(sky->At(100, 200).declination, 0.0, 1e-12);
  EXPECT_EQ(sky->Frame(), "ICRS");
}

TEST(SkyCoordinates, AnglesAreThoseOfTheTangent) {
  // On the equator a tangent of 1 degree along the axis is an angle of atan(1 degree).
  const auto sky = SkyCoordinates::FromCards(Tangent());
  const double degree = std::acos(-1.0) / 180.0;
  const double angle = std::atan(degree) / degree;
  EXPECT_NEAR(sky->At(0, 200).rightAscension, 10.0 + angle, 1e-12);
  EXPECT_NEAR(sky->At(100, 300).declination, angle, 1e-12);
}

TEST(SkyCoordinates, OtherProjectionsAreNotGuessed) {
  EXPECT_FALSE(SkyCoordinates::FromCards({}));
  EXPECT_FALSE(SkyCoordinates::FromCards(Tangent("SIN")));
  EXPECT_FALSE(SkyCoordinates::FromCards(Tangent("TAN-SIP")));  // without its polynomials
  auto cards = Tangent();
  cards.push_back(Card("PV1_1", "1.0"));
  EXPECT_FALSE(SkyCoordinates::FromCards(cards));
  cards = Tangent();
  cards.erase(cards.begin() + 2);
  EXPECT_FALSE(SkyCoordinates::FromCards(cards));
}

TEST(SkyCoordinates, SexagesimalTextsCarry) {
  EXPECT_EQ(FormatRightAscension(10.684708), "00:42:44.33");
  EXPECT_EQ(FormatRightAscension(359.9999999), "00:00:00.00");
  EXPECT_EQ(FormatDeclination(41.26875), "+41:16:07.5");
  EXPECT_EQ(FormatDeclination(-0.0001), "-00:00:00.4");
  EXPECT_EQ(FormatDeclination(-1e-9), "+00:00:00.0");
  EXPECT_EQ(FormatDeclination(29.99999999), "+30:00:00.0");
}

TEST(CardTexts, AreUnquoted) {
  EXPECT_EQ(CardText(Card("BUNIT", "'ADU     '           / unit")), "ADU");
  EXPECT_EQ(CardText(Card("OBJECT", "'it''s'")), "it's");
  EXPECT_EQ(CardText(Card("NAXIS", "2")), std::nullopt);
  EXPECT_EQ(CardText("BUNIT   = 'ADU"), std::nullopt);
  EXPECT_EQ(CardText("BUNIT"), std::nullopt);
}

}  // namespace
}  // namespace project_lumen::studio
