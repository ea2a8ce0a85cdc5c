// What a FITS image told about itself when it was read.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace project_lumen::io {

// Storage type, scaling, dimensions and header of the image that was read; the writer gives results
// the same form. Filled by ReadFitsImage. "Physical" values are stored values after BSCALE and
// BZERO: physical = stored * BSCALE + BZERO.
struct FitsImageInfo {
  int bitpix = -32;          // BITPIX of the image, of a tile-compressed one too
  int equivalentType = -32;  // the type that holds the physical values: 20 for 16 bits with BZERO
                             // 32768 (see FitsStorage.h)
  int naxis = 0;             // 2 or 3
  std::array<std::int32_t, 3> naxes{};  // NAXIS1 to NAXIS3; NAXIS3 counts only when naxis is 3
  bool planarCube = false;              // a cube of three planes (NAXIS3 is 3)
  bool isFloat = false;                 // BITPIX is -32 or -64
  double fixedDivisor = 1.0;            // K: normalised = physical / K
  double bscale = 1.0;                  // 1 when the header has none
  double bzero = 0.0;                   // 0 when the header has none
  std::optional<double> dataMin;
  std::optional<double> dataMax;
  std::vector<std::string> headerCards;  // all but END, in order, 80 characters each
  std::uint64_t upperClipped = 0;        // linear reading: samples above K, held at K

  // A cube whose first axis is the colour.
  [[nodiscard]] bool IsInterleaved() const { return naxis == 3 && !planarCube && naxes[0] == 3; }
  // Columns and rows of the image.
  [[nodiscard]] std::int32_t Width() const { return naxes[IsInterleaved() ? 1 : 0]; }
  [[nodiscard]] std::int32_t Height() const { return naxes[IsInterleaved() ? 2 : 1]; }
  // A plane, or one of the two forms of an RGB cube.
  [[nodiscard]] bool IsSupported() const { return naxis == 2 || planarCube || IsInterleaved(); }
};

}  // namespace project_lumen::io
