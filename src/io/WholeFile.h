// A file's content at one moment, to which nothing can happen any more.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace project_lumen::io {

struct WholeFile {
  std::unique_ptr<unsigned char[]> bytes;
  std::size_t size = 0;
};

// None when the file is empty, cannot be read to its end or has more than `largest` bytes. Throws
// std::bad_alloc.
std::optional<WholeFile> ReadWholeFile(const std::string& path, std::size_t largest);

}  // namespace project_lumen::io
