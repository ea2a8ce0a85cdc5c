// The size that a WebP stream claims: one in a file of its own, or one in a strip or tile of a TIFF
// image.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace project_lumen::io {

struct WebpSize {
  std::uint64_t width = 0;  // pixels
  std::uint64_t height = 0;
};

// What the first chunk says (RFC 9649, sections 2.5 to 2.7). Nothing for a stream that is too short
// to hold an image; whether it is WebP at all is not looked at.
std::optional<WebpSize> ReadWebpSize(std::span<const std::uint8_t> stream);

}  // namespace project_lumen::io
