// The strips or tiles of a TIFF image, and their decoding.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "io/tiff/Inflater.h"
#include "io/tiff/TiffHandle.h"

namespace project_lumen::io {

// Strips are blocks as wide as the image. Sizes in pixels.
struct TiffBlockLayout {
  bool isTiled = false;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t imageWidth = 0;
  std::uint32_t imageHeight = 0;
  std::uint32_t planes = 1;   // 1 for interleaved samples
  std::uint32_t samples = 1;  // of a pixel in one block
  std::uint64_t rowBytes = 0;

  // The rows of a block whose first row this is: the last strip may have fewer, a tile has all.
  [[nodiscard]] std::uint32_t RowsAt(std::uint32_t firstRow) const;
};

TiffBlockLayout ReadTiffBlockLayout(TiffHandle& file);

// Decodes the blocks of one image, one after another.
class TiffBlockDecoder {
 public:
  // `file` has to be open and to outlive this.
  explicit TiffBlockDecoder(TiffHandle& file);

  [[nodiscard]] const TiffBlockLayout& Layout() const { return layout_; }

  // Decodes the block that holds this pixel of this plane into RowsAt * rowBytes bytes: samples in
  // the processor's byte order. False when it is damaged or not there. What libtiff leaves out is
  // looked at here: the checksum of a Deflate stream, and whether a WebP stream has the block's
  // size.
  bool Decode(std::uint32_t column, std::uint32_t row, std::uint32_t plane,
              std::span<std::uint8_t> into);

  // Whether Decode compares the checksums of Deflate streams. It does not with the predictor for
  // floating-point samples and with reversed bits, which are left to libtiff.
  [[nodiscard]] bool ChecksStreams() const { return isInflatedHere_; }

  // Whether no block contradicts itself as a zlib stream; true for files without Deflate, or with
  // reversed bits. For images that libtiff inflates.
  bool AreStreamsSound();

 private:
  bool ReadEncoded(std::uint32_t block, std::uint64_t decodedSize);
  bool IsWebpOfSize(std::uint32_t block, std::span<const std::uint8_t> decoded);
  bool Inflate(std::uint32_t block, std::span<std::uint8_t> into);
  void Finish(std::span<std::uint8_t> block);

  TiffHandle& file_;
  TiffBlockLayout layout_;
  Inflater inflater_;
  std::vector<std::uint8_t> encoded_;
  bool isInflatedHere_ = false;
  bool isWebp_ = false;
};

}  // namespace project_lumen::io
