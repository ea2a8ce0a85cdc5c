// Builds PNG files byte by byte, right ones and wrong ones. Independent of any PNG library.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace project_lumen::test {

inline std::string BigEndian(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = size; i-- > 0;) {
    bytes += static_cast<char>(value >> (8 * i) & 0xFFU);
  }
  return bytes;
}

// PNG specification, annex D.
inline std::uint32_t Crc32(const std::string& bytes) {
  std::uint32_t crc = 0xFFFFFFFFU;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1U) != 0 ? 0xEDB88320U ^ crc >> 1U : crc >> 1U;
    }
  }
  return ~crc;
}

// A zlib stream (RFC 1950) of stored blocks (RFC 1951, section 3.2.4).
inline std::string StoredZlib(const std::string& bytes) {
  constexpr std::size_t kLargestBlock = 65535;
  std::string stream = "\x78\x01";
  std::uint32_t a = 1;
  std::uint32_t b = 0;
  std::size_t position = 0;
  do {
    const std::string block = bytes.substr(position, kLargestBlock);
    position += block.size();
    const std::string length = BigEndian(block.size(), 2);
    const std::string inverse = BigEndian(~block.size() & 0xFFFFU, 2);
    stream += position == bytes.size() ? '\x01' : '\0';
    stream += std::string{length[1], length[0], inverse[1], inverse[0]} + block;
  } while (position < bytes.size());
  for (const char byte : bytes) {
    a = (a + static_cast<unsigned char>(byte)) % 65521;
    b = (b + a) % 65521;
  }
  return stream + BigEndian(b << 16U | a, 4);
}

inline std::string PngChunk(const std::string& type, const std::string& data) {
  return BigEndian(data.size(), 4) + type + data + BigEndian(Crc32(type + data), 4);
}

// PNG specification, section 11.2.2.
enum class PngColour { kGrey = 0, kRgb = 2, kPalette = 3, kGreyAlpha = 4, kRgbAlpha = 6 };

struct PngImage {
  int width = 0;
  int height = 0;
  int bitDepth = 8;
  PngColour colour = PngColour::kGrey;
};

inline std::string PngStart(const PngImage& image) {
  return "\x89PNG\r\n\x1A\n" +
         PngChunk("IHDR", BigEndian(static_cast<std::uint64_t>(image.width), 4) +
                              BigEndian(static_cast<std::uint64_t>(image.height), 4) +
                              static_cast<char>(image.bitDepth) + static_cast<char>(image.colour) +
                              std::string(3, '\0'));
}

// `samples` are the rows' bytes without filter types; `chunks` stand before the image data.
inline std::string BuildPng(const PngImage& image, const std::string& samples,
                            const std::string& chunks = "") {
  const std::size_t rowBytes = samples.size() / static_cast<std::size_t>(image.height);
  std::string filtered;
  for (std::size_t start = 0; start < samples.size(); start += rowBytes) {
    filtered += '\0' + samples.substr(start, rowBytes);
  }
  return PngStart(image) + chunks + PngChunk("IDAT", StoredZlib(filtered)) + PngChunk("IEND", "");
}

}  // namespace project_lumen::test
