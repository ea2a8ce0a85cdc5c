#include "io/tiff/TiffBlocks.h"

#include <tiffio.h>

#include <algorithm>
#include <optional>

#include "io/tiff/WebpSize.h"

namespace project_lumen::io {
namespace {

std::uint16_t Field(TIFF* tif, std::uint32_t tag) {
  std::uint16_t value = 0;
  TIFFGetFieldDefaulted(tif, tag, &value);
  return value;
}

bool IsDeflated(TIFF* tif) {
  const std::uint16_t compression = Field(tif, TIFFTAG_COMPRESSION);
  return compression == COMPRESSION_ADOBE_DEFLATE || compression == COMPRESSION_DEFLATE;
}

// What follows inflating is done here only for samples of whole bytes without a predictor or with
// horizontal differences (TIFF 6.0, section 14).
bool CanInflate(TIFF* tif) {
  const std::uint16_t bits = Field(tif, TIFFTAG_BITSPERSAMPLE);
  const std::uint16_t predictor = Field(tif, TIFFTAG_PREDICTOR);
  return Field(tif, TIFFTAG_FILLORDER) == FILLORDER_MSB2LSB &&
         (bits == 8 || bits == 16 || bits == 32 || bits == 64) &&
         (predictor == PREDICTOR_NONE || predictor == PREDICTOR_HORIZONTAL);
}

template <class Sample>
void AddDifferences(std::span<std::uint8_t> block, const TiffBlockLayout& layout) {
  const std::size_t count = layout.rowBytes / sizeof(Sample);
  for (std::size_t start = 0; start < block.size(); start += layout.rowBytes) {
    auto* const row = reinterpret_cast<Sample*>(block.data() + start);
    for (std::size_t i = layout.samples; i < count; ++i) {
      row[i] = static_cast<Sample>(row[i] + row[i - layout.samples]);
    }
  }
}

void SwapBytes(std::span<std::uint8_t> block, unsigned bits) {
  const auto count = static_cast<tmsize_t>(block.size() * 8 / bits);
  if (bits == 16) {
    TIFFSwabArrayOfShort(reinterpret_cast<std::uint16_t*>(block.data()), count);
  } else if (bits == 32) {
    TIFFSwabArrayOfLong(reinterpret_cast<std::uint32_t*>(block.data()), count);
  } else if (bits == 64) {
    TIFFSwabArrayOfLong8(reinterpret_cast<std::uint64_t*>(block.data()), count);
  }
}

}  // namespace

std::uint32_t TiffBlockLayout::RowsAt(std::uint32_t firstRow) const {
  return isTiled ? height : std::min(height, imageHeight - firstRow);
}

TiffBlockLayout ReadTiffBlockLayout(TiffHandle& file) {
  TIFF* const tif = file.Get();
  TiffBlockLayout layout;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &layout.imageWidth);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &layout.imageHeight);
  layout.isTiled = TIFFIsTiled(tif) != 0;
  if (layout.isTiled) {
    TIFFGetField(tif, TIFFTAG_TILEWIDTH, &layout.width);
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &layout.height);
    layout.rowBytes = TIFFTileRowSize64(tif);
  } else {
    layout.width = layout.imageWidth;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &layout.height);
    layout.height = std::min(layout.height, layout.imageHeight);
    layout.rowBytes = TIFFScanlineSize64(tif);
  }
  const std::uint16_t samples = Field(tif, TIFFTAG_SAMPLESPERPIXEL);
  const bool isSeparate = Field(tif, TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE;
  layout.planes = isSeparate ? samples : 1;
  layout.samples = isSeparate ? 1 : samples;
  return layout;
}

TiffBlockDecoder::TiffBlockDecoder(TiffHandle& file)
    : file_(file),
      layout_(ReadTiffBlockLayout(file)),
      isInflatedHere_(IsDeflated(file.Get()) && CanInflate(file.Get())),
      isWebp_(Field(file.Get(), TIFFTAG_COMPRESSION) == COMPRESSION_WEBP) {}

bool TiffBlockDecoder::ReadEncoded(std::uint32_t block, std::uint64_t decodedSize) {
  // As in libtiff: no coding needs more, and blocks that share their bytes would be read for hours.
  const std::uint64_t largest = decodedSize * 10 + 4096;
  int error = 0;
  const std::uint64_t offset = TIFFGetStrileOffsetWithErr(file_.Get(), block, &error);
  const std::uint64_t size =
      std::min(largest, TIFFGetStrileByteCountWithErr(file_.Get(), block, &error));
  if (error != 0 || size > file_.FileSize()) {
    return false;
  }
  encoded_.resize(static_cast<std::size_t>(size));
  return file_.ReadBytes(offset, encoded_.data(), size);
}

// libtiff 4.5 leaves what a smaller image does not reach as the memory was.
bool TiffBlockDecoder::IsWebpOfSize(std::uint32_t block, std::span<const std::uint8_t> decoded) {
  if (!ReadEncoded(block, decoded.size())) {
    return false;
  }
  const std::optional<WebpSize> size = ReadWebpSize(encoded_);
  return size && size->width == layout_.width && size->height * layout_.rowBytes == decoded.size();
}

void TiffBlockDecoder::Finish(std::span<std::uint8_t> block) {
  const unsigned bits = Field(file_.Get(), TIFFTAG_BITSPERSAMPLE);
  if (TIFFIsByteSwapped(file_.Get()) != 0) {
    SwapBytes(block, bits);
  }
  if (Field(file_.Get(), TIFFTAG_PREDICTOR) != PREDICTOR_HORIZONTAL) {
    return;
  }
  if (bits == 8) {
    AddDifferences<std::uint8_t>(block, layout_);
  } else if (bits == 16) {
    AddDifferences<std::uint16_t>(block, layout_);
  } else if (bits == 32) {
    AddDifferences<std::uint32_t>(block, layout_);
  } else {
    AddDifferences<std::uint64_t>(block, layout_);
  }
}

bool TiffBlockDecoder::Inflate(std::uint32_t block, std::span<std::uint8_t> into) {
  if (!ReadEncoded(block, into.size()) || !inflater_.Inflate(encoded_, into)) {
    return false;
  }
  Finish(into);
  return true;
}

bool TiffBlockDecoder::Decode(std::uint32_t column, std::uint32_t row, std::uint32_t plane,
                              std::span<std::uint8_t> into) {
  TIFF* const tif = file_.Get();
  const auto sample = static_cast<std::uint16_t>(plane);
  const std::uint32_t block = layout_.isTiled ? TIFFComputeTile(tif, column, row, 0, sample)
                                              : TIFFComputeStrip(tif, row, sample);
  if (isInflatedHere_) {
    return Inflate(block, into);
  }
  if (isWebp_ && !IsWebpOfSize(block, into)) {
    return false;
  }
  const auto size = static_cast<tmsize_t>(into.size());
  const tmsize_t read = layout_.isTiled ? TIFFReadEncodedTile(tif, block, into.data(), size)
                                        : TIFFReadEncodedStrip(tif, block, into.data(), size);
  return read == size && !file_.HasFailed();
}

bool TiffBlockDecoder::AreStreamsSound() {
  TIFF* const tif = file_.Get();
  if (!IsDeflated(tif) || Field(tif, TIFFTAG_FILLORDER) != FILLORDER_MSB2LSB) {
    return true;
  }
  std::vector<std::uint8_t> content;
  const std::uint32_t count = layout_.isTiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
  const std::uint32_t stripsOfPlane = std::max(1U, count / layout_.planes);
  for (std::uint32_t block = 0; block < count; ++block) {
    const std::uint32_t firstRow = block % stripsOfPlane * layout_.height;
    const std::uint64_t size =
        layout_.isTiled ? TIFFTileSize64(tif) : TIFFVStripSize64(tif, layout_.RowsAt(firstRow));
    content.resize(static_cast<std::size_t>(size));
    if (!ReadEncoded(block, size) || !inflater_.Inflate(encoded_, content)) {
      return false;
    }
  }
  return true;
}

}  // namespace project_lumen::io
