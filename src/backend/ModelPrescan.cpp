#include "backend/ModelPrescan.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "backend/HalfFloat.h"
#include "backend/ModelFile.h"

namespace project_lumen::backend {
namespace {

// Field numbers of onnx.proto.
constexpr FieldKey kModelGraph{7, WireType::kLengthDelimited};
constexpr FieldKey kGraphInitializer{5, WireType::kLengthDelimited};
constexpr FieldKey kTensorDim{1, WireType::kVarint};
constexpr FieldKey kTensorPackedDims{1, WireType::kLengthDelimited};
constexpr FieldKey kTensorDataType{2, WireType::kVarint};
constexpr FieldKey kTensorRawData{9, WireType::kLengthDelimited};

constexpr std::uint64_t kDataTypeFloat = 1;

// The product of a tensor's dims, multiplied in their order.
class ElementCount {
 public:
  void Multiply(std::uint64_t dim) {
    overflow_ = overflow_ || (dim != 0 && count_ > kMaximum / dim);
    count_ *= dim;
  }

  [[nodiscard]] std::uint64_t Total() const {
    if (overflow_) {
      throw std::runtime_error("ONNX initializer dimensions overflow.");
    }
    if (count_ > kMaximum / 4) {
      throw std::runtime_error("ONNX initializer size overflows host size_t.");
    }
    return count_;
  }

 private:
  static constexpr std::uint64_t kMaximum = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t count_ = 1;
  bool overflow_ = false;
};

struct TensorFields {
  ElementCount elements;
  std::optional<std::uint64_t> dataType;
  std::optional<DelimitedValue> rawData;
};

// Bytes of the model that give way to others: to a length, or to the single-precision form of the
// half-precision payload that stands there.
struct Replacement {
  ByteRange range;
  std::optional<std::uint64_t> newLength;
};

// Finds all replacements in one pass, in the order of their positions. Each Scan returns the size
// that its message will have.
class ModelScan {
 public:
  explicit ModelScan(ByteView bytes) : bytes_(bytes) { newSize_ = ScanModel({0, bytes.size()}); }

  [[nodiscard]] const std::vector<Replacement>& Replacements() const { return replacements_; }
  [[nodiscard]] std::uint64_t NewSize() const { return newSize_; }

 private:
  using Scan = std::uint64_t (ModelScan::*)(ByteRange);

  std::uint64_t ScanModel(ByteRange message) {
    return ScanChildren(message, kModelGraph, "Invalid ONNX graph length.", &ModelScan::ScanGraph);
  }

  std::uint64_t ScanGraph(ByteRange message) {
    return ScanChildren(message, kGraphInitializer, "Invalid ONNX initializer length.",
                        &ModelScan::ScanTensor);
  }

  std::uint64_t ScanTensor(ByteRange message) {
    const TensorFields fields = ReadTensorFields(message);
    const std::uint64_t count = fields.elements.Total();
    if (fields.dataType != kDataTypeFloat || !fields.rawData || count == 0 ||
        fields.rawData->payload.Size() != count * 2) {
      return message.Size();
    }
    const auto [length, payload] = *fields.rawData;
    replacements_.push_back({length, count * 4});
    replacements_.push_back({payload, std::nullopt});
    return message.Size() - length.Size() - payload.Size() + VarintSize(count * 4) + count * 4;
  }

  std::uint64_t ScanChildren(ByteRange message, FieldKey child, const char* tooLong, Scan scan) {
    std::uint64_t newSize = message.Size();
    ProtobufReader reader(bytes_, message);
    while (!reader.AtEnd()) {
      const FieldKey key = reader.ReadKey();
      if (key == child) {
        const DelimitedValue value = reader.ReadDelimited(tooLong);
        newSize -= value.length.Size() + value.payload.Size();
        newSize += ScanChild(value, scan);
      } else {
        reader.SkipValue(key.type);
      }
    }
    return newSize;
  }

  // The child's length stands before what changes in it, but is known only afterwards.
  std::uint64_t ScanChild(const DelimitedValue& value, Scan scan) {
    const std::size_t slot = replacements_.size();
    replacements_.push_back({value.length, 0});
    const std::uint64_t newLength = (this->*scan)(value.payload);
    if (replacements_.size() == slot + 1) {
      replacements_.pop_back();
      return value.length.Size() + value.payload.Size();
    }
    replacements_[slot].newLength = newLength;
    return VarintSize(newLength) + newLength;
  }

  [[nodiscard]] TensorFields ReadTensorFields(ByteRange message) const {
    TensorFields fields;
    ProtobufReader reader(bytes_, message);
    while (!reader.AtEnd()) {
      const FieldKey key = reader.ReadKey();
      if (key == kTensorDim) {
        fields.elements.Multiply(reader.ReadVarint());
      } else if (key == kTensorPackedDims) {
        ReadPackedDims(reader, fields.elements);
      } else if (key == kTensorDataType) {
        fields.dataType = reader.ReadVarint();
      } else if (key == kTensorRawData) {
        fields.rawData = reader.ReadDelimited("Invalid ONNX raw_data length.");
      } else {
        reader.SkipValue(key.type);
      }
    }
    return fields;
  }

  void ReadPackedDims(ProtobufReader& reader, ElementCount& elements) const {
    const DelimitedValue run =
        reader.ReadDelimited("Truncated ONNX protobuf length-delimited field.");
    ProtobufReader dims(bytes_, run.payload);
    while (!dims.AtEnd()) {
      elements.Multiply(dims.ReadVarint());
    }
  }

  ByteView bytes_;
  std::vector<Replacement> replacements_;
  std::uint64_t newSize_ = 0;
};

void Append(Bytes& bytes, ByteView more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes Apply(const ModelScan& scan, ByteView model) {
  Bytes result;
  result.reserve(static_cast<std::size_t>(scan.NewSize()));
  std::size_t position = 0;
  for (const Replacement& replacement : scan.Replacements()) {
    Append(result, model.subspan(position, replacement.range.begin - position));
    if (replacement.newLength) {
      AppendVarint(result, *replacement.newLength);
    } else {
      const ByteRange payload = replacement.range;
      Append(result, ConvertHalfToFloatBytes(model.subspan(payload.begin, payload.Size())));
    }
    position = replacement.range.end;
  }
  Append(result, model.subspan(position));
  return result;
}

}  // namespace

Bytes LoadPreparedModel(const std::string& path) {
  return PrepareModel(ReadModelFile(path));
}

Bytes PrepareModel(Bytes model) {
  const ModelScan scan(model);
  if (scan.Replacements().empty()) {
    return model;
  }
  CheckModelSize(scan.NewSize());
  return Apply(scan, model);
}

}  // namespace project_lumen::backend
