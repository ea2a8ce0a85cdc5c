#include "io/files/GzipFile.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"
#include "io/files/FileDescriptor.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kChunkBytes = std::size_t{1} << 20U;
// deflate's best case: 258 bytes from two bits (zlib's technical notes).
constexpr std::uint64_t kLargestRatio = 1032;

struct CloseGzip {
  void operator()(gzFile file) const { gzclose(file); }
};
using GzipHandle = std::unique_ptr<gzFile_s, CloseGzip>;

[[noreturn]] void ThrowSystemError(int code) {
  throw std::system_error(code != 0 ? code : EIO, std::generic_category());
}

void WriteAll(gzFile file, const char* bytes, std::size_t count) {
  errno = 0;
  if (count != 0 && gzwrite(file, bytes, static_cast<unsigned>(count)) != static_cast<int>(count)) {
    ThrowSystemError(errno);
  }
}

// The stream closes a descriptor of its own; the two share one position in the file.
GzipHandle OpenForWriting(int descriptor) {
  FileDescriptor own(dup(descriptor));
  if (own.Get() < 0 || lseek(own.Get(), 0, SEEK_SET) != 0) {
    ThrowSystemError(errno);
  }
  GzipHandle stream(gzdopen(own.Get(), "wb"));
  if (stream == nullptr) {
    ThrowSystemError(ENOMEM);
  }
  own.Release();
  return stream;
}

}  // namespace

bool IsGzipFile(const std::string& path) {
  std::ifstream file(FromUtf8(OpenablePath(path)), std::ios::binary);
  return file.get() == 0x1F && file.get() == 0x8B;
}

struct GzipContent::Stream {
  GzipHandle file;
};

GzipContent::GzipContent(const std::string& path) : stream_(std::make_unique<Stream>()) {
  stream_->file.reset(gzopen(OpenablePath(path).c_str(), "rb"));
  std::error_code error;
  const std::uint64_t size = FileSize(path, error);
  largestContent_ = error ? 0 : size * kLargestRatio;
}

GzipContent::~GzipContent() = default;

std::size_t GzipContent::Append(std::uint64_t count) {
  const std::size_t before = content_.size();
  for (std::uint64_t left = count; left != 0 && stream_->file != nullptr;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kChunkBytes));
    const std::size_t end = content_.size();
    content_.resize(end + wanted);
    const int got =
        gzread(stream_->file.get(), content_.data() + end, static_cast<unsigned>(wanted));
    content_.resize(end + static_cast<std::size_t>(std::max(got, 0)));
    left -= static_cast<std::uint64_t>(std::max(got, 0));
    if (got < static_cast<int>(wanted)) {
      break;
    }
  }
  return content_.size() - before;
}

std::size_t GzipContent::Read(char* target, std::size_t count) {
  const std::size_t got = Append(count);
  std::copy(content_.end() - static_cast<std::ptrdiff_t>(got), content_.end(), target);
  return got;
}

std::uint64_t GzipContent::Skip(std::uint64_t count) {
  if (count > largestContent_) {
    return 0;
  }
  content_.reserve(content_.size() + static_cast<std::size_t>(count));
  return Append(count);
}

bool GzipContent::IsIntact() {
  if (stream_->file == nullptr) {
    return false;
  }
  std::vector<char> scratch(kChunkBytes);
  while (gzread(stream_->file.get(), scratch.data(), static_cast<unsigned>(scratch.size())) > 0) {
  }
  int code = Z_OK;
  gzerror(stream_->file.get(), &code);
  return code == Z_OK || code == Z_STREAM_END;
}

std::vector<char> GzipContent::Take() {
  return std::move(content_);
}

void CompressFile(int source, int target) {
  errno = 0;
  // Outlives the stream, which still reads from it when it is closed after an error.
  std::vector<char> chunk(kChunkBytes);
  GzipHandle stream = OpenForWriting(target);
  std::uint64_t position = 0;
  std::size_t count = 0;
  do {
    std::error_code error;
    count = ReadAt(source, position, chunk, error);
    if (error) {
      throw std::system_error(error);
    }
    WriteAll(stream.get(), chunk.data(), count);
    position += count;
  } while (count != 0);
  errno = 0;
  if (gzclose(stream.release()) != Z_OK) {
    ThrowSystemError(errno);
  }
}

}  // namespace project_lumen::io
