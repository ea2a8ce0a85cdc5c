// Where in the sky a pixel is.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace project_lumen::studio {

struct SkyPosition {
  double rightAscension = 0.0;  // degrees within [0, 360)
  double declination = 0.0;     // degrees within [-90, 90]
};

// "00:42:44.33" hours and "+41:16:08.4" degrees, rounded to 0.01 s and 0.1".
std::string FormatRightAscension(double degrees);
std::string FormatDeclination(double degrees);

// The text that the value field of a FITS card holds, without trailing blanks; none for any other
// value.
std::optional<std::string> CardText(std::string_view card);

// The gnomonic projection of a FITS header (TAN; Calabretta and Greisen 2002, "Representations of
// celestial coordinates in FITS"), with the polynomials of the SIP convention (Shupe et al. 2005)
// where the axes' types name them.
class SkyCoordinates {
 public:
  // None where the cards, 80 characters each, describe no such projection completely.
  static std::optional<SkyCoordinates> FromCards(const std::vector<std::string>& cards);

  // The position of a pixel; x and y are FITS pixel coordinates, the first pixel's centre is 1.
  [[nodiscard]] SkyPosition At(double x, double y) const;

  // "ICRS", "FK5" or what else the header says.
  [[nodiscard]] const std::string& Frame() const { return frame_; }

 private:
  static constexpr int kHighestOrder = 9;
  using Polynomial = std::array<std::array<double, kHighestOrder + 1>, kHighestOrder + 1>;

  static bool ReadPolynomial(const std::vector<std::string>& cards, const std::string& letter,
                             Polynomial& polynomial);
  static double Evaluate(const Polynomial& polynomial, double u, double v);

  std::array<double, 2> reference_{};              // pixel
  std::array<std::array<double, 2>, 2> matrix_{};  // to degrees; rows: longitude, latitude
  double longitude_ = 0.0;                         // of the reference pixel, degrees
  double latitude_ = 0.0;
  double nativePole_ = 180.0;  // LONPOLE
  std::optional<std::array<Polynomial, 2>> distortion_;
  std::string frame_;
};

}  // namespace project_lumen::studio
