#include "backend/ProtobufWire.h"

#include <stdexcept>

namespace project_lumen::backend {
namespace {

constexpr unsigned kBitsPerByte = 7;
constexpr std::uint8_t kPayloadBits = 0x7F;
constexpr std::uint8_t kContinuationBit = 0x80;

}  // namespace

std::uint64_t ProtobufReader::ReadVarint() {
  std::uint64_t value = 0;
  for (unsigned shift = 0; shift < 64; shift += kBitsPerByte) {
    if (AtEnd()) {
      throw std::runtime_error("Truncated ONNX protobuf varint.");
    }
    const std::uint8_t byte = bytes_[position_++];
    value |= static_cast<std::uint64_t>(byte & kPayloadBits) << shift;
    if ((byte & kContinuationBit) == 0) {
      return value;
    }
  }
  throw std::runtime_error("Invalid ONNX protobuf varint.");
}

FieldKey ProtobufReader::ReadKey() {
  const std::uint64_t key = ReadVarint();
  const auto type = static_cast<WireType>(key & 7U);
  switch (type) {
    case WireType::kVarint:
    case WireType::kFixed64:
    case WireType::kLengthDelimited:
    case WireType::kFixed32:
      return {key >> 3U, type};
  }
  throw std::runtime_error("Unsupported ONNX protobuf wire type.");
}

DelimitedValue ProtobufReader::ReadDelimited(const char* tooLong) {
  const std::size_t lengthBegin = position_;
  const std::uint64_t length = ReadVarint();
  if (length > end_ - position_) {
    throw std::runtime_error(tooLong);
  }
  const std::size_t begin = position_;
  position_ += static_cast<std::size_t>(length);
  return {{lengthBegin, begin}, {begin, position_}};
}

void ProtobufReader::SkipValue(WireType type) {
  switch (type) {
    case WireType::kVarint:
      ReadVarint();
      break;
    case WireType::kFixed64:
      SkipFixed(8, "Truncated ONNX protobuf fixed64 field.");
      break;
    case WireType::kLengthDelimited:
      ReadDelimited("Truncated ONNX protobuf length-delimited field.");
      break;
    case WireType::kFixed32:
      SkipFixed(4, "Truncated ONNX protobuf fixed32 field.");
      break;
  }
}

void ProtobufReader::SkipFixed(std::size_t size, const char* truncated) {
  if (size > end_ - position_) {
    throw std::runtime_error(truncated);
  }
  position_ += size;
}

std::size_t VarintSize(std::uint64_t value) {
  std::size_t size = 1;
  while ((value >>= kBitsPerByte) != 0) {
    ++size;
  }
  return size;
}

void AppendVarint(Bytes& bytes, std::uint64_t value) {
  for (; value > kPayloadBits; value >>= kBitsPerByte) {
    bytes.push_back(static_cast<std::uint8_t>(value & kPayloadBits) | kContinuationBit);
  }
  bytes.push_back(static_cast<std::uint8_t>(value));
}

}  // namespace project_lumen::backend
