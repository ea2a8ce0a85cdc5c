// The part of the protobuf wire encoding that the model pre-scan needs: a bounds-checked reader
// over bytes in memory, and the size and bytes of a varint.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace project_lumen::backend {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Wire types with a meaning here; 3, 4, 6 and 7 are refused.
enum class WireType : std::uint8_t {
  kVarint = 0,
  kFixed64 = 1,
  kLengthDelimited = 2,
  kFixed32 = 5
};

// A field's number (up to 61 bits; more than protobuf allows, but such a field is only skipped) and
// wire type.
struct FieldKey {
  std::uint64_t number;
  WireType type;

  bool operator==(const FieldKey&) const = default;
};

// Half-open range of positions in the bytes that are read.
struct ByteRange {
  std::size_t begin;
  std::size_t end;

  [[nodiscard]] std::size_t Size() const { return end - begin; }
};

// The value of a length-delimited field: where its length stands and where its payload.
struct DelimitedValue {
  ByteRange length;
  ByteRange payload;
};

// Reads the fields of one message in order. All positions count from the start of `bytes`, so those
// of nested messages agree. Every failure is a std::runtime_error with the whole text.
class ProtobufReader {
 public:
  ProtobufReader(ByteView bytes, ByteRange message)
      : bytes_(bytes), position_(message.begin), end_(message.end) {}

  [[nodiscard]] bool AtEnd() const { return position_ == end_; }

  // "Truncated ONNX protobuf varint." when the bytes run out, "Invalid ONNX protobuf varint." when
  // the number goes on beyond 64 bits.
  std::uint64_t ReadVarint();

  // As ReadVarint; "Unsupported ONNX protobuf wire type." for groups and unknown types.
  FieldKey ReadKey();

  // Reads a length and steps over that many bytes; `tooLong` is the error for a length beyond the
  // message.
  DelimitedValue ReadDelimited(const char* tooLong);

  // Steps over a field's value. "Truncated ONNX protobuf fixed64 field.", "… fixed32 field." or
  // "… length-delimited field." when its bytes run out.
  void SkipValue(WireType type);

 private:
  void SkipFixed(std::size_t size, const char* truncated);

  ByteView bytes_;
  std::size_t position_;
  std::size_t end_;
};

// Bytes that the value takes as a varint, 1 to 10.
std::size_t VarintSize(std::uint64_t value);

// 7 bits a byte, least significant group first, top bit set on every byte but the last.
void AppendVarint(Bytes& bytes, std::uint64_t value);

}  // namespace project_lumen::backend
