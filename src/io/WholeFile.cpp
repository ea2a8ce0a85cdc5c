#include "io/WholeFile.h"

#include <fstream>

namespace project_lumen::io {

std::optional<WholeFile> ReadWholeFile(const std::string& path, std::size_t largest) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : 0;
  if (size <= 0 || static_cast<std::size_t>(size) > largest) {
    return std::nullopt;
  }
  WholeFile whole;
  whole.size = static_cast<std::size_t>(size);
  whole.bytes = std::make_unique_for_overwrite<unsigned char[]>(whole.size);
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(whole.bytes.get()), size)) {
    return std::nullopt;
  }
  return whole;
}

}  // namespace project_lumen::io
