#include "io/tiff/Inflater.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <new>

namespace project_lumen::io {
namespace {

// zlib counts in unsigned int.
uInt NextPart(std::size_t size) {
  return static_cast<uInt>(std::min<std::size_t>(size, std::numeric_limits<uInt>::max()));
}

}  // namespace

Inflater::Inflater() : stream_(std::make_unique<z_stream>()) {
  if (inflateInit(stream_.get()) != Z_OK) {
    throw std::bad_alloc();
  }
}

Inflater::~Inflater() {
  inflateEnd(stream_.get());
}

bool Inflater::Inflate(std::span<const std::uint8_t> input, std::span<std::uint8_t> output) {
  inflateReset(stream_.get());
  // Whatever follows the content: at the stream's end zlib compares the checksum.
  std::array<std::uint8_t, 1> behind{};
  bool isComplete = false;
  for (;;) {
    isComplete = output.empty();
    stream_->next_in = const_cast<Bytef*>(input.data());
    stream_->avail_in = NextPart(input.size());
    stream_->next_out = isComplete ? behind.data() : output.data();
    stream_->avail_out = isComplete ? NextPart(behind.size()) : NextPart(output.size());
    const int result = inflate(stream_.get(), Z_NO_FLUSH);
    input = input.subspan(static_cast<std::size_t>(stream_->next_in - input.data()));
    if (result == Z_MEM_ERROR) {
      throw std::bad_alloc();
    }
    if (result != Z_OK && result != Z_BUF_ERROR && result != Z_STREAM_END) {
      return false;
    }
    if (isComplete) {
      return true;
    }
    const bool isAtEnd = result == Z_STREAM_END || (result == Z_BUF_ERROR && input.empty());
    output = output.subspan(static_cast<std::size_t>(stream_->next_out - output.data()));
    if (isAtEnd) {
      return output.empty();
    }
  }
}

}  // namespace project_lumen::io
