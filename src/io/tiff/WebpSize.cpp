#include "io/tiff/WebpSize.h"

#include <cstddef>
#include <string_view>

#include "io/files/ByteOrder.h"

namespace project_lumen::io {
std::optional<WebpSize> ReadWebpSize(std::span<const std::uint8_t> stream) {
  constexpr std::size_t kChunk = 12;
  constexpr std::size_t kLongestHeader = 30;
  if (stream.size() < kLongestHeader) {
    return std::nullopt;
  }
  const std::string_view chunk(reinterpret_cast<const char*>(stream.data()) + kChunk, 4);
  if (chunk == "VP8X") {
    return WebpSize{LittleEndian(stream, 24, 3) + 1, LittleEndian(stream, 27, 3) + 1};
  }
  if (chunk == "VP8L") {
    const std::uint64_t bits = LittleEndian(stream, 21, 4);
    return WebpSize{(bits & 0x3FFFU) + 1, (bits >> 14U & 0x3FFFU) + 1};
  }
  return WebpSize{LittleEndian(stream, 26, 2) & 0x3FFFU, LittleEndian(stream, 28, 2) & 0x3FFFU};
}

}  // namespace project_lumen::io
