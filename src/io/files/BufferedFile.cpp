#include "io/files/BufferedFile.h"

#include <algorithm>

#include "common/PlatformFiles.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{1} << 20U;

}  // namespace

BufferedFile::BufferedFile(int descriptor) : descriptor_(descriptor) {
  collected_.reserve(kPieceBytes);
}

bool BufferedFile::Write(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  const bool follows = offset == start_ + collected_.size();
  if (!follows || collected_.size() + bytes.size() > kPieceBytes) {
    Flush();
    start_ = offset;
  }
  if (bytes.size() > kPieceBytes) {
    WriteNow(offset, bytes);
    start_ += bytes.size();
  } else {
    collected_.insert(collected_.end(), bytes.begin(), bytes.end());
  }
  size_ = std::max(size_, offset + bytes.size());
  return !error_;
}

bool BufferedFile::Flush() {
  WriteNow(start_, collected_);
  start_ += collected_.size();
  collected_.clear();
  return !error_;
}

void BufferedFile::WriteNow(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  if (!error_) {
    error_ = WriteAt(descriptor_, offset, bytes);
  }
}

}  // namespace project_lumen::io
