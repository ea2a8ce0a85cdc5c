#include "io/GzipFile.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

namespace project_lumen::io {
namespace {

constexpr std::size_t kChunkBytes = std::size_t{1} << 20U;
// deflate's best case: 258 bytes from two bits (zlib's technical notes).
constexpr std::uint64_t kLargestRatio = 1032;

struct CloseGzip {
  void operator()(gzFile file) const { gzclose(file); }
};
using GzipHandle = std::unique_ptr<gzFile_s, CloseGzip>;

struct CloseFile {
  void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void ThrowSystemError(int code) {
  throw std::system_error(code != 0 ? code : EIO, std::generic_category());
}

void WriteAll(gzFile file, const char* bytes, std::size_t count) {
  errno = 0;
  if (count != 0 && gzwrite(file, bytes, static_cast<unsigned>(count)) != static_cast<int>(count)) {
    ThrowSystemError(errno);
  }
}

}  // namespace

bool IsGzipFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return file.get() == 0x1F && file.get() == 0x8B;
}

struct GzipContent::Stream {
  GzipHandle file;
};

GzipContent::GzipContent(const std::string& path) : stream_(std::make_unique<Stream>()) {
  stream_->file.reset(gzopen(path.c_str(), "rb"));
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  largestContent_ = error ? 0 : static_cast<std::uint64_t>(size) * kLargestRatio;
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

bool GzipContent::Skip(std::uint64_t count) {
  if (count > largestContent_) {
    return false;
  }
  content_.reserve(content_.size() + static_cast<std::size_t>(count));
  return Append(count) == count;
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

void CompressFileInPlace(const std::string& path) {
  // The plain file loses its name and lives on in the open handle until it has been compressed.
  const FileHandle source(std::fopen(path.c_str(), "rbe"));
  if (source == nullptr || std::remove(path.c_str()) != 0) {
    ThrowSystemError(errno);
  }
  errno = 0;
  GzipHandle target(gzopen(path.c_str(), "wbxe"));
  if (target == nullptr) {
    ThrowSystemError(errno);
  }
  std::vector<char> chunk(kChunkBytes);
  for (std::size_t count = chunk.size(); count == chunk.size();) {
    count = std::fread(chunk.data(), 1, chunk.size(), source.get());
    WriteAll(target.get(), chunk.data(), count);
  }
  if (std::ferror(source.get()) != 0) {
    ThrowSystemError(EIO);
  }
  errno = 0;
  if (gzclose(target.release()) != Z_OK) {
    ThrowSystemError(errno);
  }
}

}  // namespace project_lumen::io
