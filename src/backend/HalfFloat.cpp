#include "backend/HalfFloat.h"

#include <stdexcept>

namespace project_lumen::backend {
namespace {

// Layouts from IEEE 754-2019, 3.4: sign, exponent, significand of 1, 5, 10 and 1, 8, 23 bits.
constexpr std::uint32_t kHalfExponentMax = 31;
constexpr std::uint32_t kFloatExponentMax = 255;
constexpr std::uint32_t kBiasDifference = 127 - 15;
constexpr std::uint32_t kHiddenBit = 1U << 10U;
constexpr std::uint32_t kMantissaBits = kHiddenBit - 1;
constexpr unsigned kMantissaShift = 23 - 10;

std::uint32_t FloatBits(std::uint32_t sign, std::uint32_t exponent, std::uint32_t mantissa) {
  return (sign << 31U) | (exponent << 23U) | (mantissa << kMantissaShift);
}

std::uint32_t SubnormalBits(std::uint32_t sign, std::uint32_t mantissa) {
  std::uint32_t exponent = kBiasDifference + 1;
  while ((mantissa & kHiddenBit) == 0) {
    mantissa <<= 1U;
    --exponent;
  }
  return FloatBits(sign, exponent, mantissa & kMantissaBits);
}

std::uint32_t HalfToFloatBits(std::uint32_t half) {
  const std::uint32_t sign = half >> 15U;
  const std::uint32_t exponent = (half >> 10U) & kHalfExponentMax;
  const std::uint32_t mantissa = half & kMantissaBits;
  if (exponent == kHalfExponentMax) {
    return FloatBits(sign, kFloatExponentMax, mantissa);
  }
  if (exponent != 0) {
    return FloatBits(sign, exponent + kBiasDifference, mantissa);
  }
  return mantissa == 0 ? FloatBits(sign, 0, 0) : SubnormalBits(sign, mantissa);
}

}  // namespace

Bytes ConvertHalfToFloatBytes(ByteView bytes) {
  if (bytes.size() % 2 != 0) {
    throw std::runtime_error("Invalid FP16 ONNX initializer byte count.");
  }
  Bytes result(bytes.size() * 2);
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    const std::uint32_t half = bytes[i] | (static_cast<std::uint32_t>(bytes[i + 1]) << 8U);
    const std::uint32_t bits = HalfToFloatBits(half);
    for (unsigned k = 0; k < 4; ++k) {
      result[2 * i + k] = static_cast<std::uint8_t>(bits >> (8U * k));
    }
  }
  return result;
}

}  // namespace project_lumen::backend
