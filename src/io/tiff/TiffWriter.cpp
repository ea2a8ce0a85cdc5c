#include "io/tiff/TiffWriter.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "io/files/BufferedFile.h"
#include "io/tiff/TiffLayout.h"

namespace project_lumen::io {
namespace {

struct FreeOptions {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

struct CloseTiff {
  void operator()(TIFF* tif) const { TIFFClose(tif); }
};

std::uint64_t RowBytes(cv::Size size, int type) {
  return static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(CV_ELEM_SIZE(type));
}

// Strips of 8 KiB, as TIFF 6.0 recommends.
std::uint32_t RowsPerStrip(cv::Size size, int type) {
  constexpr std::uint64_t kStripBytes = std::uint64_t{1} << 13U;
  const std::uint64_t rows = kStripBytes / RowBytes(size, type);
  return static_cast<std::uint32_t>(
      std::clamp<std::uint64_t>(rows, 1, static_cast<std::uint64_t>(size.height)));
}

template <class Sample>
void CopyAsRgb(const Sample* bgr, Sample* rgb, int pixels) {
  for (int i = 0; i < pixels; ++i, bgr += 3, rgb += 3) {
    rgb[0] = bgr[2];
    rgb[1] = bgr[1];
    rgb[2] = bgr[0];
  }
}

// Where libtiff writes to.
struct Client {
  explicit Client(int file) : descriptor(file), output(file) {}

  bool Write(const void* bytes, std::size_t count) {
    const bool isWritten = output.Write(position, {static_cast<const std::uint8_t*>(bytes), count});
    position += count;
    return isWritten;
  }

  std::uint64_t Seek(std::uint64_t offset, int whence) {
    const std::uint64_t base = whence == SEEK_SET   ? 0
                               : whence == SEEK_CUR ? position
                                                    : output.Size();
    position = base + offset;
    return position;
  }

  int descriptor;
  BufferedFile output;
  std::uint64_t position = 0;
};

Client& ClientOf(thandle_t data) {
  return *static_cast<Client*>(data);
}

TIFF* Open(Client& client, bool isBig) {
  const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
  if (!options) {
    throw std::bad_alloc();
  }
  const auto keepQuiet = [](TIFF*, void*, const char*, const char*, va_list) { return 1; };
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepQuiet, nullptr);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), keepQuiet, nullptr);
  return TIFFClientOpenExt(
      "", isBig ? "w8" : "w", &client, [](thandle_t, void*, tmsize_t) { return tmsize_t{0}; },
      [](thandle_t data, void* bytes, tmsize_t count) {
        return ClientOf(data).Write(bytes, static_cast<std::size_t>(count)) ? count : tmsize_t{-1};
      },
      [](thandle_t data, toff_t offset, int whence) { return ClientOf(data).Seek(offset, whence); },
      [](thandle_t) { return 0; }, [](thandle_t data) { return ClientOf(data).output.Size(); },
      nullptr, nullptr, options.get());
}

}  // namespace

bool NeedsBigTiff(cv::Size size, int type) {
  constexpr std::uint64_t kStructure = (std::uint64_t{1} << 16U) + kLargestTiffDescription;
  constexpr std::uint64_t kStripEntry = 8;
  const auto rows = static_cast<std::uint64_t>(size.height);
  // A byte of a strip becomes 12 bits at worst, and each strip has two codes and an entry more.
  const std::uint64_t strips = rows / RowsPerStrip(size, type) + 1;
  const std::uint64_t largest =
      RowBytes(size, type) * rows / 2 * 3 + strips * (kStripEntry + 4) + kStructure;
  return largest > std::numeric_limits<std::uint32_t>::max();
}

struct TiffWriter::Output {
  Output(int descriptor, cv::Size imageSize, int imageType)
      : size(imageSize), type(imageType), client(descriptor), row(RowBytes(size, type)) {
    tif.reset(Open(client, NeedsBigTiff(size, type)));
    Check(tif != nullptr);
    const bool hasColours = CV_MAT_CN(type) == 3;
    TIFFSetField(tif.get(), TIFFTAG_IMAGEWIDTH, size.width);
    TIFFSetField(tif.get(), TIFFTAG_IMAGELENGTH, size.height);
    TIFFSetField(tif.get(), TIFFTAG_BITSPERSAMPLE, 8 * CV_ELEM_SIZE1(type));
    TIFFSetField(tif.get(), TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif.get(), TIFFTAG_PHOTOMETRIC,
                 hasColours ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif.get(), TIFFTAG_SAMPLESPERPIXEL, CV_MAT_CN(type));
    TIFFSetField(tif.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif.get(), TIFFTAG_ROWSPERSTRIP, RowsPerStrip(size, type));
    TIFFSetField(tif.get(), TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tif.get(), TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  }

  // libtiff says no more than that it failed: the file's own error, or a lack of memory.
  void Check(bool hasSucceeded) const {
    if (client.output.Error()) {
      throw std::system_error(client.output.Error());
    }
    if (!hasSucceeded) {
      throw std::bad_alloc();
    }
  }

  void WriteRow(const std::uint8_t* stored) {
    if (type == CV_8UC3) {
      CopyAsRgb(stored, row.data(), size.width);
    } else if (type == CV_16UC3) {
      CopyAsRgb(reinterpret_cast<const std::uint16_t*>(stored),
                reinterpret_cast<std::uint16_t*>(row.data()), size.width);
    } else {
      std::copy_n(stored, row.size(), row.data());
    }
    Check(TIFFWriteScanline(tif.get(), row.data(), nextRow++, 0) == 1);
  }

  cv::Size size;
  int type;
  Client client;
  std::vector<std::uint8_t> row;
  std::uint32_t nextRow = 0;
  std::unique_ptr<TIFF, CloseTiff> tif;
};

TiffWriter::TiffWriter(int descriptor, cv::Size size, int type)
    : output_(std::make_unique<Output>(descriptor, size, type)) {}

TiffWriter::~TiffWriter() = default;

void TiffWriter::Append(const cv::Mat& rows) {
  for (int y = 0; y < rows.rows; ++y) {
    output_->WriteRow(rows.ptr(y));
  }
}

void TiffWriter::Finish() {
  output_->Check(TIFFWriteDirectory(output_->tif.get()) == 1);
  output_->tif.reset();
  output_->client.output.Flush();
  output_->Check(true);
}

}  // namespace project_lumen::io
