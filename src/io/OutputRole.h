// Which of the results an image is.
#pragma once

#include <cstdint>

namespace project_lumen::io {

enum class OutputRole : std::uint32_t {
  kMain = 0,        // the starless image
  kDifference = 1,  // the star mask: source minus starless
  kUnscreen = 2,    // the unscreen star layer, a fraction
};

}  // namespace project_lumen::io
