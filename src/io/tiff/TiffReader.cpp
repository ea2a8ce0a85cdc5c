#include "io/tiff/TiffReader.h"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <limits>
#include <opencv2/core.hpp>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "io/files/DecodedSize.h"
#include "io/files/UnreadableImage.h"
#include "io/tiff/TiffBlocks.h"
#include "io/tiff/TiffColours.h"
#include "io/tiff/TiffHandle.h"
#include "io/tiff/TiffSampleType.h"

namespace project_lumen::io {
namespace {

constexpr double kBitsPerByte = 8.0;

// The fields of the directory that say what the image is.
struct Fields {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint16_t bits = 1;
  std::uint16_t samples = 1;
  std::uint16_t format = SAMPLEFORMAT_UINT;
  std::uint16_t compression = COMPRESSION_NONE;
  std::uint16_t orientation = ORIENTATION_TOPLEFT;
  std::optional<std::uint16_t> photometric;
};

Fields ReadFields(TIFF* tif) {
  Fields fields;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &fields.width);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &fields.height);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &fields.bits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &fields.samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &fields.format);
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &fields.compression);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &fields.orientation);
  std::uint16_t photometric = 0;
  if (TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric) != 0) {
    fields.photometric = photometric;
  }
  return fields;
}

// The most bytes that a byte of a compressed strip can stand for.
double LargestExpansion(std::uint16_t compression) {
  switch (compression) {
    case COMPRESSION_NONE:
      return 1.0;
    case COMPRESSION_PACKBITS:
      return 64.0;  // two bytes stand for up to 128
    case COMPRESSION_LZW:
      return 4096.0;  // a code of more than a byte stands for a string shorter than the table
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
      return 1032.0;  // zlib, "Technical details"
    default:
      return std::numeric_limits<double>::infinity();
  }
}

// The colours of YCbCr may have fewer samples than the tags say.
bool CanHoldItsClaim(const Fields& fields, std::uint64_t fileSize) {
  const double samples = fields.photometric == PHOTOMETRIC_YCBCR ? 1.0 : fields.samples;
  const double claimedBytes = static_cast<double>(fields.width) *
                              static_cast<double>(fields.height) * samples * fields.bits /
                              kBitsPerByte;
  return claimedBytes <= static_cast<double>(fileSize) * LargestExpansion(fields.compression);
}

// A whole strip or tile is allocated even where the image is smaller.
bool HasSensibleBlocks(TIFF* tif, std::uint64_t fileSize) {
  const std::uint64_t size = TIFFIsTiled(tif) != 0 ? TIFFTileSize64(tif) : TIFFStripSize64(tif);
  return size != 0 && size <= LargestDecodedSize(fileSize);
}

bool HasColours(const Fields& fields, std::uint16_t photometric) {
  return fields.photometric == photometric;
}

bool IsGrey(const Fields& fields) {
  return HasColours(fields, PHOTOMETRIC_MINISBLACK) || HasColours(fields, PHOTOMETRIC_MINISWHITE);
}

// libtiff knows how to show these, and nothing else of them is used.
bool IsShownByLibtiff(const Fields& fields) {
  return HasColours(fields, PHOTOMETRIC_PALETTE) || HasColours(fields, PHOTOMETRIC_YCBCR) ||
         (IsGrey(fields) && fields.samples == 1 && fields.bits < 8 &&
          fields.format == SAMPLEFORMAT_UINT);
}

TiffSampleType SampleTypeOf(const Fields& fields) {
  using Kind = TiffSampleType::Kind;
  switch (fields.format) {
    case SAMPLEFORMAT_INT:
      return {Kind::kSigned, fields.bits};
    case SAMPLEFORMAT_IEEEFP:
      return {Kind::kFloat, fields.bits};
    case SAMPLEFORMAT_COMPLEXINT:
    case SAMPLEFORMAT_COMPLEXIEEEFP:
      return {Kind::kUnsigned, 0};
    default:
      return {Kind::kUnsigned, fields.bits};
  }
}

void RequireKnownColours(const Fields& fields, const std::string& path) {
  constexpr std::array<std::uint16_t, 6> kKnown = {PHOTOMETRIC_MINISWHITE, PHOTOMETRIC_MINISBLACK,
                                                   PHOTOMETRIC_RGB,        PHOTOMETRIC_PALETTE,
                                                   PHOTOMETRIC_SEPARATED,  PHOTOMETRIC_YCBCR};
  const std::string advice = " Save it as grey or RGB with 8 or 16 bits a sample.";
  if (!fields.photometric) {
    FailToRead(path, "It does not say what its samples mean (PhotometricInterpretation)." + advice);
  }
  const std::uint16_t colours = *fields.photometric;
  if (colours == PHOTOMETRIC_CIELAB || colours == PHOTOMETRIC_ICCLAB ||
      colours == PHOTOMETRIC_ITULAB) {
    FailToRead(path, "It holds CIE L*a*b* colours." + advice);
  }
  if (std::find(kKnown.begin(), kKnown.end(), colours) == kKnown.end()) {
    FailToRead(path, "It holds neither grey nor RGB (PhotometricInterpretation " +
                         std::to_string(colours) + ")." + advice);
  }
}

void RequireReadable(const Fields& fields, TIFF* tif, std::uint64_t fileSize,
                     const std::string& path) {
  if (fields.width == 0 || fields.height == 0) {
    FailToRead(path);
  }
  if (!IsReadableSize(fields.width, fields.height)) {
    FailToRead(path, "It claims " + std::to_string(fields.width) + " x " +
                         std::to_string(fields.height) +
                         " pixels; at most 1048576 a side and 1073741824 in all are read.");
  }
  if (TIFFIsCODECConfigured(fields.compression) == 0) {
    FailToRead(path, "It is compressed in a way that is not read (Compression " +
                         std::to_string(fields.compression) +
                         "). Save it with LZW, Deflate or no compression.");
  }
  if (!CanHoldItsClaim(fields, fileSize) || !HasSensibleBlocks(tif, fileSize)) {
    FailToRead(path);
  }
  RequireKnownColours(fields, path);
}

// Samples as they are stored, on their way into rows of an image.
class SampleRows {
 public:
  SampleRows(const TiffSampleType& type, const TiffBlockLayout& layout)
      : type_(type), layout_(layout) {}

  // Whether decoded rows of whole pixels are the rows of the image.
  [[nodiscard]] bool AreImageRows(const cv::Mat& rows) const {
    return !type_.IsWidened() && layout_.planes == 1 && !layout_.isTiled &&
           layout_.rowBytes == static_cast<std::size_t>(rows.cols) * rows.elemSize();
  }

  // Puts a row of a block into the image, from this column on. `plane` is the channel of samples
  // that are stored apart.
  void Place(const std::uint8_t* blockRow, cv::Mat& rows, int row, int column, int plane) {
    const int pixels = std::min(static_cast<int>(layout_.width), rows.cols - column);
    const auto samples = static_cast<std::size_t>(pixels) * layout_.samples;
    const std::uint8_t* source = blockRow;
    if (type_.IsWidened()) {
      widened_.resize(samples);
      WidenTiffSamples(type_, blockRow, widened_);
      source = reinterpret_cast<const std::uint8_t*>(widened_.data());
    }
    const std::size_t size = rows.elemSize1();
    std::uint8_t* const target = rows.ptr(row) + static_cast<std::size_t>(column) * rows.elemSize();
    if (layout_.planes == 1) {
      std::copy_n(source, samples * size, target);
      return;
    }
    switch (size) {
      case 1:
        Scatter<std::uint8_t>(source, target, pixels, rows.channels(), plane);
        break;
      case 2:
        Scatter<std::uint16_t>(source, target, pixels, rows.channels(), plane);
        break;
      case 4:
        Scatter<std::uint32_t>(source, target, pixels, rows.channels(), plane);
        break;
      default:
        Scatter<std::uint64_t>(source, target, pixels, rows.channels(), plane);
    }
  }

 private:
  template <class Sample>
  static void Scatter(const std::uint8_t* source, std::uint8_t* target, int pixels, int channels,
                      int plane) {
    const auto* const from = reinterpret_cast<const Sample*>(source);
    auto* const to = reinterpret_cast<Sample*>(target) + plane;
    for (int i = 0; i < pixels; ++i) {
      to[static_cast<std::ptrdiff_t>(i) * channels] = from[i];
    }
  }

  TiffSampleType type_;
  TiffBlockLayout layout_;
  std::vector<double> widened_;
};

template <class Sample>
void SwapRedAndBlue(cv::Mat& rows) {
  const int channels = rows.channels();
  for (int y = 0; y < rows.rows; ++y) {
    auto* const row = reinterpret_cast<Sample*>(rows.ptr(y));
    for (Sample* pixel = row; pixel != row + rows.cols * channels; pixel += channels) {
      std::swap(pixel[0], pixel[2]);
    }
  }
}

void SwapRedAndBlue(cv::Mat& rows) {
  switch (rows.elemSize1()) {
    case 1:
      return SwapRedAndBlue<std::uint8_t>(rows);
    case 2:
      return SwapRedAndBlue<std::uint16_t>(rows);
    case 4:
      return SwapRedAndBlue<std::uint32_t>(rows);
    default:
      return SwapRedAndBlue<std::uint64_t>(rows);
  }
}

bool IsOnItsSide(std::uint16_t orientation) {
  return orientation >= ORIENTATION_LEFTTOP;
}

// TIFF 6.0, section 8, "Orientation": where row 0 and column 0 of the stored image lie.
cv::Mat Upright(cv::Mat image, std::uint16_t orientation) {
  constexpr int kRows = 0;
  constexpr int kColumns = 1;
  constexpr int kBoth = -1;
  if (IsOnItsSide(orientation)) {
    cv::Mat turned;
    cv::transpose(image, turned);
    image = turned;
  }
  switch (orientation) {
    case ORIENTATION_TOPRIGHT:
    case ORIENTATION_RIGHTTOP:
      cv::flip(image, image, kColumns);
      break;
    case ORIENTATION_BOTRIGHT:
    case ORIENTATION_RIGHTBOT:
      cv::flip(image, image, kBoth);
      break;
    case ORIENTATION_BOTLEFT:
    case ORIENTATION_LEFTBOT:
      cv::flip(image, image, kRows);
      break;
    default:
      break;
  }
  return image;
}

TiffHandle& RequireOpen(TiffHandle& file, const std::string& path) {
  if (file.Get() == nullptr) {
    FailToRead(path);
  }
  return file;
}

Fields ReadReadableFields(TiffHandle& file, const std::string& path) {
  const Fields fields = ReadFields(file.Get());
  RequireReadable(fields, file.Get(), file.FileSize(), path);
  return fields;
}

}  // namespace

class TiffReader::Image {
 public:
  Image(std::istream& stream, std::string path)
      : path_(std::move(path)),
        file_(stream),
        fields_(ReadReadableFields(RequireOpen(file_, path_), path_)),
        decoder_(file_),
        samples_(SampleTypeOf(fields_), decoder_.Layout()) {
    Describe();
    // What was wrong with the directory did not keep libtiff from understanding it.
    file_.ForgetErrors();
  }

  [[nodiscard]] const TiffImageInfo& Info() const { return info_; }

  cv::Mat ReadRows(int count) {
    if (fields_.orientation == ORIENTATION_TOPLEFT) {
      return ReadStoredRows(count);
    }
    if (whole_.empty()) {
      whole_ = Upright(ReadStoredRows(static_cast<int>(fields_.height)), fields_.orientation);
    }
    const int first = uprightRow_;
    uprightRow_ += std::min(count, whole_.rows - first);
    return whole_.rowRange(first, uprightRow_);
  }

 private:
  void Describe() {
    if (IsShownByLibtiff(fields_)) {
      DescribeShown();
    } else {
      DescribeStored();
    }
    info_.width = static_cast<int>(fields_.width);
    info_.height = static_cast<int>(fields_.height);
    if (IsOnItsSide(fields_.orientation)) {
      std::swap(info_.width, info_.height);
    }
  }

  void DescribeShown() {
    if (fields_.photometric == PHOTOMETRIC_PALETTE && fields_.samples != 1) {
      throw std::invalid_argument("Unsupported number of image channels: " +
                                  std::to_string(fields_.samples));
    }
    const bool isGrey = fields_.bits < 8 && fields_.photometric != PHOTOMETRIC_PALETTE &&
                        fields_.photometric != PHOTOMETRIC_YCBCR;
    colours_.emplace(file_, isGrey);
    if (!colours_->IsUsable() || !decoder_.AreStreamsSound()) {
      FailToRead(path_);
    }
    info_.type = CV_MAKETYPE(CV_8U, isGrey ? 1 : 3);
    info_.storedType = "uint8";
  }

  void DescribeStored() {
    const TiffSampleType type = SampleTypeOf(fields_);
    if (type.Depth() < 0) {
      throw std::invalid_argument(
          "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
    }
    if (fields_.samples > CV_CN_MAX || (IsRgb() && fields_.samples < 3)) {
      throw std::invalid_argument("Unsupported number of image channels: " +
                                  std::to_string(fields_.samples));
    }
    if (!decoder_.ChecksStreams() && !decoder_.AreStreamsSound()) {
      FailToRead(path_);
    }
    info_.type = CV_MAKETYPE(type.Depth(), fields_.samples);
    info_.storedType = type.Name();
    info_.isGreyOrRgb = IsRgb() ? fields_.samples == 3 : IsGrey(fields_) && fields_.samples == 1;
  }

  [[nodiscard]] bool IsRgb() const { return fields_.photometric == PHOTOMETRIC_RGB; }

  // Rows as they lie in the file.
  cv::Mat ReadStoredRows(int count) {
    const auto wanted =
        std::min(static_cast<std::uint32_t>(std::max(count, 0)), fields_.height - storedRow_);
    cv::Mat rows(static_cast<int>(wanted), static_cast<int>(fields_.width), info_.type);
    for (std::uint32_t filled = 0; filled < wanted;) {
      filled += FillFromBlock(rows, filled);
    }
    return rows;
  }

  // Fills rows from the next row of blocks and says how many. Blocks of which only a part is wanted
  // stay here for the next call.
  std::uint32_t FillFromBlock(cv::Mat& rows, std::uint32_t filled) {
    const std::uint32_t blockHeight = decoder_.Layout().height;
    const std::uint32_t first = storedRow_ / blockHeight * blockHeight;
    const std::uint32_t blockRows = std::min(blockHeight, fields_.height - first);
    const std::uint32_t left = static_cast<std::uint32_t>(rows.rows) - filled;
    const std::uint32_t count = std::min(first + blockRows - storedRow_, left);
    cv::Mat target = rows.rowRange(static_cast<int>(filled), static_cast<int>(filled + count));
    if (count == blockRows) {
      DecodeRows(first, target);
    } else {
      if (band_.empty() || bandRow_ != first) {
        band_.create(static_cast<int>(blockRows), rows.cols, rows.type());
        bandRow_ = first;
        DecodeRows(first, band_);
      }
      const auto from = static_cast<int>(storedRow_ - first);
      band_.rowRange(from, from + static_cast<int>(count)).copyTo(target);
    }
    storedRow_ += count;
    return count;
  }

  // All rows of the blocks that begin at this row of the file.
  void DecodeRows(std::uint32_t first, cv::Mat& rows) {
    if (colours_) {
      if (!colours_->Show(first, rows)) {
        FailToRead(path_);
      }
      return;
    }
    const TiffBlockLayout& layout = decoder_.Layout();
    for (std::uint32_t plane = 0; plane < layout.planes; ++plane) {
      for (std::uint32_t column = 0; column < layout.imageWidth; column += layout.width) {
        DecodeBlock(column, first, plane, rows);
      }
    }
    if (IsRgb() && layout.planes == 1) {
      SwapRedAndBlue(rows);
    }
    const bool isUnsigned = rows.depth() == CV_8U || rows.depth() == CV_16U;
    if (fields_.photometric == PHOTOMETRIC_MINISWHITE && fields_.samples == 1 && isUnsigned) {
      cv::bitwise_not(rows, rows);
    }
  }

  void DecodeBlock(std::uint32_t column, std::uint32_t first, std::uint32_t plane, cv::Mat& rows) {
    const TiffBlockLayout& layout = decoder_.Layout();
    const std::size_t size = static_cast<std::size_t>(layout.RowsAt(first)) * layout.rowBytes;
    if (samples_.AreImageRows(rows)) {
      if (!decoder_.Decode(column, first, plane, {rows.data, size})) {
        FailToRead(path_);
      }
      return;
    }
    block_.resize(size);
    if (!decoder_.Decode(column, first, plane, block_)) {
      FailToRead(path_);
    }
    const auto channel = static_cast<int>(IsRgb() && plane < 3 ? 2 - plane : plane);
    for (int row = 0; row < rows.rows; ++row) {
      samples_.Place(block_.data() + static_cast<std::size_t>(row) * layout.rowBytes, rows, row,
                     static_cast<int>(column), channel);
    }
  }

  std::string path_;
  TiffHandle file_;
  Fields fields_;
  TiffBlockDecoder decoder_;
  SampleRows samples_;
  std::optional<TiffColours> colours_;
  TiffImageInfo info_;
  std::vector<std::uint8_t> block_;
  cv::Mat band_;
  std::uint32_t bandRow_ = 0;
  std::uint32_t storedRow_ = 0;
  cv::Mat whole_;
  int uprightRow_ = 0;
};

TiffReader::TiffReader(std::istream& file, const std::string& path)
    : image_(std::make_unique<Image>(file, path)) {}

TiffReader::~TiffReader() = default;

const TiffImageInfo& TiffReader::Info() const {
  return image_->Info();
}

cv::Mat TiffReader::ReadRows(int count) {
  return image_->ReadRows(count);
}

}  // namespace project_lumen::io
