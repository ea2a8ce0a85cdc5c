#include "io/tiff/TiffSampleType.h"

#include <cstring>
#include <opencv2/core.hpp>

namespace project_lumen::io {
namespace {

using Kind = TiffSampleType::Kind;

bool IsPacked(const TiffSampleType& type) {
  return type.kind == Kind::kUnsigned && type.bits > 0 && type.bits < 16 && type.bits != 8;
}

int UnsignedDepth(int bits) {
  return bits == 8 ? CV_8U : bits == 16 ? CV_16U : bits == 32 || bits == 64 ? CV_64F : -1;
}

int SignedDepth(int bits) {
  return bits == 8 ? CV_8S : bits == 16 ? CV_16S : bits == 32 ? CV_32S : bits == 64 ? CV_64F : -1;
}

int FloatDepth(int bits) {
  return bits == 32 ? CV_32F : bits == 16 || bits == 64 ? CV_64F : -1;
}

void Unpack(const std::uint8_t* row, int bits, std::span<double> values) {
  const auto size = static_cast<unsigned>(bits);
  std::size_t position = 0;
  for (double& value : values) {
    unsigned sample = 0;
    for (unsigned i = 0; i < size; ++i, ++position) {
      sample = sample << 1U | (row[position / 8] >> (7 - position % 8) & 1U);
    }
    value = sample;
  }
}

template <class Stored>
void Widen(const std::uint8_t* row, std::span<double> values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    Stored sample{};
    std::memcpy(&sample, row + i * sizeof(Stored), sizeof(Stored));
    values[i] = static_cast<double>(sample);
  }
}

void WidenHalfFloats(const std::uint8_t* row, std::span<double> values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    cv::float16_t sample;
    std::memcpy(&sample, row + i * sizeof(sample), sizeof(sample));
    values[i] = static_cast<float>(sample);
  }
}

}  // namespace

std::string TiffSampleType::Name() const {
  const char* const name = kind == Kind::kUnsigned ? "uint"
                           : kind == Kind::kSigned ? "int"
                                                   : "float";
  return name + std::to_string(bits);
}

int TiffSampleType::Depth() const {
  if (IsPacked(*this)) {
    return CV_64F;
  }
  switch (kind) {
    case Kind::kUnsigned:
      return UnsignedDepth(bits);
    case Kind::kSigned:
      return SignedDepth(bits);
    default:
      return FloatDepth(bits);
  }
}

bool TiffSampleType::IsWidened() const {
  return Depth() == CV_64F && !(kind == Kind::kFloat && bits == 64);
}

void WidenTiffSamples(const TiffSampleType& type, const std::uint8_t* row,
                      std::span<double> values) {
  if (IsPacked(type)) {
    Unpack(row, type.bits, values);
  } else if (type.kind == Kind::kFloat) {
    WidenHalfFloats(row, values);
  } else if (type.kind == Kind::kSigned) {
    Widen<std::int64_t>(row, values);
  } else if (type.bits == 32) {
    Widen<std::uint32_t>(row, values);
  } else {
    Widen<std::uint64_t>(row, values);
  }
}

}  // namespace project_lumen::io
