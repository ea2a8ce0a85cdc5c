#include "io/files/DecodedSize.h"

#include <algorithm>
#include <limits>

namespace project_lumen::io {

std::uint64_t LargestDecodedSize(std::uint64_t fileSize) {
  constexpr std::uint64_t kLargestRatio = 4096;
  constexpr std::uint64_t kAlwaysAllowed = std::uint64_t{64} << 20U;
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
  return fileSize > kLargest / kLargestRatio ? kLargest
                                             : std::max(fileSize * kLargestRatio, kAlwaysAllowed);
}

bool IsReadableSize(std::uint64_t width, std::uint64_t height) {
  constexpr std::uint64_t kLongestSide = std::uint64_t{1} << 20U;
  constexpr std::uint64_t kMostPixels = std::uint64_t{1} << 30U;
  return width != 0 && height != 0 && width <= kLongestSide && height <= kLongestSide &&
         width * height <= kMostPixels;
}

}  // namespace project_lumen::io
