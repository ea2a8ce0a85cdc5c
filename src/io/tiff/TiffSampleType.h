// The types of samples that TIFF files store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace project_lumen::io {

// BitsPerSample and SampleFormat (TIFF 6.0, sections 8 and 19).
struct TiffSampleType {
  enum class Kind { kUnsigned, kSigned, kFloat };

  Kind kind = Kind::kUnsigned;
  int bits = 8;

  // "uint16", "float32", "uint12"
  [[nodiscard]] std::string Name() const;

  // The OpenCV depth in which samples of this type are handed on: the same type, or CV_64F where
  // OpenCV has none, which then holds their values unscaled. -1 for types that are not read.
  [[nodiscard]] int Depth() const;

  // Whether Depth is another type than the stored one.
  [[nodiscard]] bool IsWidened() const;
};

// The values of the first `values.size()` samples of a row, for a type that is widened. Samples of
// less than 16 bits follow each other without gaps, the highest bit first; larger ones are in the
// processor's byte order. 64-bit integers are rounded to the next double.
void WidenTiffSamples(const TiffSampleType& type, const std::uint8_t* row,
                      std::span<double> values);

}  // namespace project_lumen::io
