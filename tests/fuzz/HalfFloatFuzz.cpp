// Half-precision payloads: compared with the value that IEEE 754-2019, section 3.4 gives each.
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "FuzzTarget.h"
#include "backend/HalfFloat.h"

namespace project_lumen::fuzz {
namespace {

using backend::Bytes;
using backend::ConvertHalfToFloatBytes;

void RequireRefused(Input odd) {
  try {
    ConvertHalfToFloatBytes(odd);
  } catch (const std::runtime_error& error) {
    Require(std::string_view(error.what()) == "Invalid FP16 ONNX initializer byte count.");
    return;
  }
  Require(false);
}

// The value of a half that is a number.
float ValueOf(unsigned half) {
  const int exponent = static_cast<int>(half / 1024 % 32);
  const auto fraction = static_cast<float>(half % 1024);
  const float magnitude =
      exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(fraction + 1024.0F, exponent - 25);
  return half >= 0x8000 ? -magnitude : magnitude;
}

void RequireExact(unsigned half, float single) {
  constexpr unsigned kInfinity = 0x7C00;
  const unsigned magnitude = half % 0x8000;
  Require(std::signbit(single) == (half >= 0x8000));
  if (magnitude < kInfinity) {
    Require(single == ValueOf(half));
  } else if (magnitude == kInfinity) {
    Require(std::isinf(single));
  } else {
    Require(std::isnan(single));
    Require(std::bit_cast<std::uint32_t>(single) % (1U << 23U) == half % 1024 * 8192);
  }
}

void ConvertAnything(Input input) {
  if (input.size() % 2 != 0) {
    RequireRefused(input);
    return;
  }
  const Bytes singles = ConvertHalfToFloatBytes(input);
  Require(singles.size() == 2 * input.size());
  for (std::size_t i = 0; i < input.size(); i += 2) {
    std::uint32_t bits = 0;
    for (std::size_t k = 4; k > 0; --k) {
      bits = bits * 256 + singles[2 * i + k - 1];
    }
    RequireExact(input[i] + 256U * input[i + 1], std::bit_cast<float>(bits));
  }
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  project_lumen::fuzz::ConvertAnything({data, size});
  return 0;
}
