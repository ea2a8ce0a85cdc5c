#include "io/FitsStorageType.h"

#include <algorithm>
#include <array>

namespace project_lumen::io {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

struct StorageType {
  int code;
  const char* name;
  double divisor;
  std::optional<ValueRange> limits;
};

constexpr std::array<StorageType, 10> kStorageTypes{{
    {-64, "float64", 1.0, std::nullopt},
    {-32, "float32", 1.0, std::nullopt},
    {8, "uint8", 255.0, ValueRange{0.0, 255.0}},
    {10, "int8", 127.0, ValueRange{-128.0, 127.0}},
    {16, "int16", 32767.0, ValueRange{-32768.0, 32767.0}},
    {20, "uint16", 65535.0, ValueRange{0.0, 65535.0}},
    {32, "int32", 2147483647.0, ValueRange{-2147483648.0, 2147483647.0}},
    {40, "uint32", 4294967295.0, ValueRange{0.0, 4294967295.0}},
    {64, "int64", kTwoTo63, std::nullopt},
    {80, "uint64", kTwoTo63, std::nullopt},
}};

const StorageType* FindStorageType(int code) {
  const auto* found = std::find_if(kStorageTypes.begin(), kStorageTypes.end(),
                                   [code](const StorageType& type) { return type.code == code; });
  return found == kStorageTypes.end() ? nullptr : found;
}

}  // namespace

const char* FitsTypeName(int code) {
  const StorageType* type = FindStorageType(code);
  return type == nullptr ? "unknown" : type->name;
}

double FitsFixedDivisor(int bitpix, int equivalentType) {
  const StorageType* type = FindStorageType(equivalentType);
  return bitpix < 0 || type == nullptr ? 1.0 : type->divisor;
}

std::optional<ValueRange> PhysicalLimits(int equivalentType) {
  const StorageType* type = FindStorageType(equivalentType);
  return type == nullptr ? std::nullopt : type->limits;
}

ValueRange StorageLimits(int bitpix) {
  switch (bitpix) {
    case 8:
      return {0.0, 255.0};
    case 16:
      return {-32768.0, 32767.0};
    case 32:
      return {-2147483648.0, 2147483647.0};
    default:
      return {-kTwoTo63, kTwoTo63};
  }
}

}  // namespace project_lumen::io
