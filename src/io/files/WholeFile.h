// A file's content at one moment, to which nothing can happen any more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>

namespace project_lumen::io {

struct WholeFile {
  std::unique_ptr<std::uint8_t[]> bytes;
  std::size_t size = 0;

  [[nodiscard]] std::span<const std::uint8_t> Bytes() const { return {bytes.get(), size}; }
};

// All bytes of a seekable binary stream. None when it is empty, cannot be read to its end or has
// more than `largest` bytes. Throws std::bad_alloc.
std::optional<WholeFile> ReadWholeFile(std::istream& file, std::size_t largest);

}  // namespace project_lumen::io
