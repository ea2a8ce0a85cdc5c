#include "io/files/WholeFile.h"

#include <istream>

namespace project_lumen::io {

std::optional<WholeFile> ReadWholeFile(std::istream& file, std::size_t largest) {
  file.clear();
  file.seekg(0, std::ios::end);
  const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : 0;
  if (size <= 0 || static_cast<std::size_t>(size) > largest) {
    return std::nullopt;
  }
  WholeFile whole;
  whole.size = static_cast<std::size_t>(size);
  whole.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(whole.size);
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(whole.bytes.get()), size)) {
    return std::nullopt;
  }
  return whole;
}

}  // namespace project_lumen::io
