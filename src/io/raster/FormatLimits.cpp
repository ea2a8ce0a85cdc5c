#include "io/raster/FormatLimits.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "io/files/PathSuffix.h"

namespace project_lumen::io {
namespace {

struct Limit {
  const char* extension;
  const char* name;
  int longestSide;
};

constexpr std::array kLimits = {
    Limit{".jpg", "JPEG", 65'500},     // libjpeg's JPEG_MAX_DIMENSION
    Limit{".jpeg", "JPEG", 65'500},    //
    Limit{".jpe", "JPEG", 65'500},     //
    Limit{".png", "PNG", 1'000'000},   // libpng's limit unless a program raises it
    Limit{".webp", "WebP", 16'383},    // RFC 9649, section 2.6
    Limit{".bmp", "BMP", 0x7FFFFFFF},  // sides are signed
    Limit{".dib", "BMP", 0x7FFFFFFF},
};

constexpr const char* kAdvice = "; choose TIFF or FITS";

}  // namespace

std::string FormatObstacle(const std::string& path, cv::Size size, int type) {
  const std::string name = ToLower(path);
  const auto* const limit =
      std::find_if(kLimits.begin(), kLimits.end(),
                   [&name](const Limit& candidate) { return name.ends_with(candidate.extension); });
  if (limit == kLimits.end()) {
    return "";
  }
  const std::string format = limit->name;
  if (std::max(size.width, size.height) > limit->longestSide) {
    return format + " holds at most " + std::to_string(limit->longestSide) + " pixels a side" +
           kAdvice;
  }
  const auto bytes = static_cast<std::uint64_t>(size.width) *
                     static_cast<std::uint64_t>(size.height) *
                     static_cast<std::uint64_t>(CV_ELEM_SIZE(type));
  constexpr std::uint64_t kMostBmpBytes = 2'000'000'000;
  if (format == "BMP" && bytes > kMostBmpBytes) {
    return format + " holds at most 2 GB" + kAdvice;
  }
  return "";
}

}  // namespace project_lumen::io
