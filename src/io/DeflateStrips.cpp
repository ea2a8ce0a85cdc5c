#include "io/DeflateStrips.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "io/TiffLayout.h"

namespace project_lumen::io {
namespace {

// TIFF 6.0, sections 8 and 15.
constexpr std::uint16_t kStripOffsetsTag = 273;
constexpr std::uint16_t kStripByteCountsTag = 279;
constexpr std::uint16_t kTileOffsetsTag = 324;
constexpr std::uint16_t kTileByteCountsTag = 325;

constexpr std::size_t kChunkBytes = std::size_t{1} << 16U;

struct EndInflate {
  void operator()(z_stream* stream) const { inflateEnd(stream); }
};

// Reads one stream after another, each in chunks.
class StreamCheck {
 public:
  StreamCheck() : input_(kChunkBytes), output_(kChunkBytes) {
    if (inflateInit(&stream_) != Z_OK) {
      throw std::bad_alloc();
    }
    end_.reset(&stream_);
  }

  // Whether the next `size` bytes of the file may be a zlib stream.
  bool IsSound(std::istream& file, std::uint64_t size) {
    inflateReset(&stream_);
    int result = Z_OK;
    while (size != 0 && result == Z_OK) {
      const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size, kChunkBytes));
      file.read(input_.data(), static_cast<std::streamsize>(count));
      result = Inflate(static_cast<std::size_t>(file.gcount()));
      size -= count;
    }
    return result != Z_DATA_ERROR && result != Z_NEED_DICT;
  }

 private:
  int Inflate(std::size_t count) {
    stream_.next_in = reinterpret_cast<Bytef*>(input_.data());
    stream_.avail_in = static_cast<uInt>(count);
    int result = Z_OK;
    do {
      stream_.next_out = output_.data();
      stream_.avail_out = static_cast<uInt>(output_.size());
      result = inflate(&stream_, Z_NO_FLUSH);
    } while (result == Z_OK && stream_.avail_out == 0);
    return result == Z_BUF_ERROR ? Z_OK : result;
  }

  z_stream stream_{};
  std::unique_ptr<z_stream, EndInflate> end_;
  std::vector<char> input_;
  std::vector<Bytef> output_;
};

// The sum of the sizes, or the limit where that is less.
std::uint64_t Total(const std::vector<std::uint64_t>& sizes, std::uint64_t limit) {
  std::uint64_t total = 0;
  for (const std::uint64_t size : sizes) {
    total += std::min(size, limit - total);
  }
  return total;
}

bool AreSound(std::istream& file, const std::vector<std::uint64_t>& offsets,
              const std::vector<std::uint64_t>& sizes, std::uint64_t fileSize) {
  // Strips that share their bytes could cost any time.
  if (Total(sizes, fileSize) == fileSize) {
    return true;
  }
  StreamCheck check;
  for (std::size_t i = 0; i < std::min(offsets.size(), sizes.size()); ++i) {
    file.clear();
    file.seekg(static_cast<std::streamoff>(offsets[i]));
    if (file && !check.IsSound(file, sizes[i])) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool AreSoundDeflateStrips(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  try {
    const TiffDirectory directory = ReadTiffDirectory(file, path);
    const auto values = [&](std::uint16_t tag) { return TiffValues(file, directory, tag); };
    const std::uint64_t fileSize = directory.fileSize;
    return AreSound(file, values(kStripOffsetsTag), values(kStripByteCountsTag), fileSize) &&
           AreSound(file, values(kTileOffsetsTag), values(kTileByteCountsTag), fileSize);
  } catch (const std::invalid_argument&) {
    return false;
  }
}

}  // namespace project_lumen::io
