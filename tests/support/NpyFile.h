// The arrays that make_models.py writes beside its models.
#pragma once

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace project_lumen::test {

// The elements of a little-endian float32 array in C order, format version 1.0 of
// https://numpy.org/doc/stable/reference/generated/numpy.lib.format.html. The test knows the shape.
inline std::vector<float> ReadNpyFloats(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  constexpr std::size_t kPreamble = 10;
  if (content.size() < kPreamble || content.substr(0, 8) != std::string("\x93NUMPY\x01\x00", 8)) {
    throw std::runtime_error("not an array file: " + path);
  }
  const std::size_t headerSize = static_cast<std::uint8_t>(content[8]) +
                                 std::size_t{256} * static_cast<std::uint8_t>(content[9]);
  const std::string header = content.substr(kPreamble, headerSize);
  if (header.find("'<f4'") == std::string::npos ||
      header.find("'fortran_order': False") == std::string::npos) {
    throw std::runtime_error("not a float32 array in C order: " + path);
  }
  const std::string data = content.substr(kPreamble + headerSize);
  std::vector<float> elements(data.size() / sizeof(float));
  data.copy(reinterpret_cast<char*>(elements.data()), elements.size() * sizeof(float));
  return elements;
}

}  // namespace project_lumen::test
