// Whole numbers in the bytes of a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace project_lumen::io {

// The number in `count` bytes (at most 8) from `offset` on, the lowest byte first. The bytes have
// to be there.
inline std::uint64_t LittleEndian(std::span<const std::uint8_t> bytes, std::size_t offset,
                                  std::size_t count) {
  std::uint64_t value = 0;
  for (std::size_t i = count; i-- > 0;) {
    value = value << 8U | bytes[offset + i];
  }
  return value;
}

// The same with the highest byte first.
inline std::uint64_t BigEndian(std::span<const std::uint8_t> bytes, std::size_t offset,
                               std::size_t count) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    value = value << 8U | bytes[offset + i];
  }
  return value;
}

}  // namespace project_lumen::io
