#include "studio/images/SkyCoordinates.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "io/fits/FitsKeywords.h"

namespace project_lumen::studio {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

std::optional<double> FindNumber(const std::vector<std::string>& cards,
                                 const std::string& keyword) {
  const std::string* card = io::FindCard(cards, keyword);
  return card != nullptr ? io::CardNumber(*card) : std::nullopt;
}

std::optional<std::string> FindText(const std::vector<std::string>& cards,
                                    const std::string& keyword) {
  const std::string* card = io::FindCard(cards, keyword);
  return card != nullptr ? CardText(*card) : std::nullopt;
}

// What the types of both axes say: which of them is the longitude, and how it is projected.
struct AxisTypes {
  int longitude = 0;
  bool isDistorted = false;
};

std::optional<AxisTypes> ReadAxisTypes(const std::vector<std::string>& cards) {
  const std::string first = FindText(cards, "ctype1").value_or("");
  const std::string second = FindText(cards, "ctype2").value_or("");
  for (const bool isDistorted : {false, true}) {
    const std::string end = isDistorted ? "TAN-SIP" : "TAN";
    if (first == "RA---" + end && second == "DEC--" + end) {
      return AxisTypes{0, isDistorted};
    }
    if (first == "DEC--" + end && second == "RA---" + end) {
      return AxisTypes{1, isDistorted};
    }
  }
  return std::nullopt;
}

bool HasDegrees(const std::vector<std::string>& cards) {
  return FindText(cards, "cunit1").value_or("deg") == "deg" &&
         FindText(cards, "cunit2").value_or("deg") == "deg";
}

// Parameters of the projection under its name mean another one.
bool HasProjectionParameters(const std::vector<std::string>& cards) {
  return std::any_of(cards.begin(), cards.end(), [](const std::string& card) {
    const std::string keyword = io::KeywordOf(card);
    return keyword.starts_with("pv1_") || keyword.starts_with("pv2_");
  });
}

using Matrix = std::array<std::array<double, 2>, 2>;

// From CDi_j; else from CDELTi with PCi_j or the older CROTA2.
std::optional<Matrix> ReadMatrix(const std::vector<std::string>& cards) {
  const auto number = [&](const char* letters, std::size_t row, std::size_t column) {
    return FindNumber(cards, letters + std::to_string(row + 1) + "_" + std::to_string(column + 1));
  };
  Matrix matrix{};
  bool hasCd = false;
  bool hasPc = false;
  for (std::size_t row = 0; row < 2; ++row) {
    for (std::size_t column = 0; column < 2; ++column) {
      const auto cd = number("cd", row, column);
      hasCd = hasCd || cd.has_value();
      matrix[row][column] = cd.value_or(0.0);
      hasPc = hasPc || number("pc", row, column).has_value();
    }
  }
  if (hasCd) {
    return matrix;
  }
  const auto first = FindNumber(cards, "cdelt1");
  const auto second = FindNumber(cards, "cdelt2");
  if (!first || !second) {
    return std::nullopt;
  }
  const std::array<double, 2> scale{*first, *second};
  const double rotation = FindNumber(cards, "crota2").value_or(0.0) * kDegree;
  if (!hasPc && rotation != 0.0) {
    return Matrix{{{scale[0] * std::cos(rotation), -scale[1] * std::sin(rotation)},
                   {scale[0] * std::sin(rotation), scale[1] * std::cos(rotation)}}};
  }
  for (std::size_t row = 0; row < 2; ++row) {
    for (std::size_t column = 0; column < 2; ++column) {
      matrix[row][column] =
          scale[row] * number("pc", row, column).value_or(row == column ? 1.0 : 0.0);
    }
  }
  return matrix;
}

std::string ReadFrame(const std::vector<std::string>& cards) {
  const auto system = FindText(cards, "radesys");
  if (system && !system->empty()) {
    return *system;
  }
  const auto equinox = FindNumber(cards, "equinox");
  if (!equinox) {
    return "ICRS";
  }
  return *equinox < 1984.0 ? "FK4" : "FK5";
}

std::string FormatSexagesimal(std::int64_t units, std::int64_t unitsPerSecond, int digits) {
  const std::int64_t seconds = units / unitsPerSecond;
  char text[48];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%0*d", static_cast<int>(seconds / 3600),
                static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60), digits,
                static_cast<int>(units % unitsPerSecond));
  return text;
}

}  // namespace

std::string FormatRightAscension(double degrees) {
  constexpr std::int64_t kPerSecond = 100;
  constexpr std::int64_t kDay = 86400 * kPerSecond;
  const auto units = std::llround(degrees / 360.0 * static_cast<double>(kDay)) % kDay;
  return FormatSexagesimal(units, kPerSecond, 2);
}

std::string FormatDeclination(double degrees) {
  constexpr std::int64_t kPerSecond = 10;
  const auto units = std::llround(std::abs(degrees) * 3600.0 * static_cast<double>(kPerSecond));
  return (degrees < 0.0 && units > 0 ? "-" : "+") + FormatSexagesimal(units, kPerSecond, 1);
}

std::optional<std::string> CardText(std::string_view card) {
  constexpr std::size_t kValueField = 10;
  if (card.size() <= kValueField || card.substr(8, 2) != "= ") {
    return std::nullopt;
  }
  std::size_t next = card.find_first_not_of(' ', kValueField);
  if (next == std::string_view::npos || card[next] != '\'') {
    return std::nullopt;
  }
  std::string text;
  for (++next; next < card.size(); ++next) {
    if (card[next] == '\'') {
      ++next;  // a doubled quote stands for one, a single one ends the text
      if (next >= card.size() || card[next] != '\'') {
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
      }
    }
    text += card[next];
  }
  return std::nullopt;
}

bool SkyCoordinates::ReadPolynomial(const std::vector<std::string>& cards,
                                    const std::string& letter, Polynomial& polynomial) {
  const auto order = FindNumber(cards, letter + "_order");
  if (!order || !(*order >= 0.0 && *order <= kHighestOrder)) {
    return false;
  }
  for (int p = 0; p <= static_cast<int>(*order); ++p) {
    for (int q = 0; p + q <= static_cast<int>(*order); ++q) {
      polynomial[static_cast<std::size_t>(p)][static_cast<std::size_t>(q)] =
          FindNumber(cards, letter + "_" + std::to_string(p) + "_" + std::to_string(q))
              .value_or(0.0);
    }
  }
  return true;
}

double SkyCoordinates::Evaluate(const Polynomial& polynomial, double u, double v) {
  double sum = 0.0;
  for (std::size_t p = polynomial.size(); p-- > 0;) {
    double inner = 0.0;
    for (std::size_t q = polynomial.size(); q-- > 0;) {
      inner = inner * v + polynomial[p][q];
    }
    sum = sum * u + inner;
  }
  return sum;
}

std::optional<SkyCoordinates> SkyCoordinates::FromCards(const std::vector<std::string>& cards) {
  const auto types = ReadAxisTypes(cards);
  const auto matrix = ReadMatrix(cards);
  const auto x = FindNumber(cards, "crpix1");
  const auto y = FindNumber(cards, "crpix2");
  const auto first = FindNumber(cards, "crval1");
  const auto second = FindNumber(cards, "crval2");
  if (!types || !matrix || !x || !y || !first || !second || !HasDegrees(cards) ||
      HasProjectionParameters(cards)) {
    return std::nullopt;
  }
  const auto longitude = static_cast<std::size_t>(types->longitude);
  SkyCoordinates sky;
  sky.reference_ = {*x, *y};
  sky.matrix_ = {(*matrix)[longitude], (*matrix)[1 - longitude]};
  sky.longitude_ = longitude == 0 ? *first : *second;
  sky.latitude_ = longitude == 0 ? *second : *first;
  sky.nativePole_ = FindNumber(cards, "lonpole").value_or(sky.latitude_ >= 90.0 ? 0.0 : 180.0);
  sky.frame_ = ReadFrame(cards);
  if (types->isDistorted) {
    std::array<Polynomial, 2> distortion{};
    if (!ReadPolynomial(cards, "a", distortion[0]) || !ReadPolynomial(cards, "b", distortion[1])) {
      return std::nullopt;
    }
    sky.distortion_ = distortion;
  }
  return sky;
}

SkyPosition SkyCoordinates::At(double x, double y) const {
  double u = x - reference_[0];
  double v = y - reference_[1];
  if (distortion_) {
    const double moreU = Evaluate((*distortion_)[0], u, v);
    const double moreV = Evaluate((*distortion_)[1], u, v);
    u += moreU;
    v += moreV;
  }
  // Projection plane coordinates in radians, then native and celestial angles.
  const double east = (matrix_[0][0] * u + matrix_[0][1] * v) * kDegree;
  const double north = (matrix_[1][0] * u + matrix_[1][1] * v) * kDegree;
  const double phi = std::atan2(east, -north) - nativePole_ * kDegree;
  const double theta = std::atan2(1.0, std::hypot(east, north));
  const double pole = latitude_ * kDegree;
  const double sine =
      std::sin(theta) * std::sin(pole) + std::cos(theta) * std::cos(pole) * std::cos(phi);
  const double right = std::atan2(
      -std::cos(theta) * std::sin(phi),
      std::sin(theta) * std::cos(pole) - std::cos(theta) * std::sin(pole) * std::cos(phi));
  double rightAscension = std::fmod(longitude_ + right / kDegree, 360.0);
  if (rightAscension < 0.0) {
    rightAscension += 360.0;
  }
  return {rightAscension, std::asin(std::clamp(sine, -1.0, 1.0)) / kDegree};
}

}  // namespace project_lumen::studio
