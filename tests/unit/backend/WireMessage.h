// Protobuf messages put together by hand, for tests of the pre-scan.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace project_lumen::backend::test {

inline std::string Varint(std::uint64_t value) {
  std::string bytes;
  for (; value >= 128; value /= 128) {
    bytes += static_cast<char>(value % 128 + 128);
  }
  return bytes + static_cast<char>(value);
}

inline std::string VarintField(std::uint64_t number, std::uint64_t value) {
  return Varint(number * 8) + Varint(value);
}

inline std::string Fixed64Field(std::uint64_t number, const std::string& eightBytes) {
  return Varint(number * 8 + 1) + eightBytes;
}

inline std::string Fixed32Field(std::uint64_t number, const std::string& fourBytes) {
  return Varint(number * 8 + 5) + fourBytes;
}

inline std::string DelimitedField(std::uint64_t number, const std::string& payload) {
  return Varint(number * 8 + 2) + Varint(payload.size()) + payload;
}

inline std::string Graph(const std::string& payload) {
  return DelimitedField(7, payload);
}
inline std::string Initializer(const std::string& payload) {
  return DelimitedField(5, payload);
}
inline std::string RawData(const std::string& payload) {
  return DelimitedField(9, payload);
}
inline std::string DataType(std::uint64_t type) {
  return VarintField(2, type);
}

inline std::string Dims(std::initializer_list<std::uint64_t> dims) {
  std::string bytes;
  for (const std::uint64_t dim : dims) {
    bytes += VarintField(1, dim);
  }
  return bytes;
}

inline std::string PackedDims(std::initializer_list<std::uint64_t> dims) {
  std::string run;
  for (const std::uint64_t dim : dims) {
    run += Varint(dim);
  }
  return DelimitedField(1, run);
}

inline std::vector<std::uint8_t> ToBytes(const std::string& text) {
  return {text.begin(), text.end()};
}

}  // namespace project_lumen::backend::test
