#include "io/files/BufferedFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

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
  return error_ == 0;
}

bool BufferedFile::Flush() {
  WriteNow(start_, collected_);
  start_ += collected_.size();
  collected_.clear();
  return error_ == 0;
}

void BufferedFile::WriteNow(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  while (error_ == 0 && !bytes.empty()) {
    const ssize_t written =
        pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
      offset += static_cast<std::uint64_t>(written);
    } else if (written == 0 || errno != EINTR) {
      error_ = written == 0 ? ENOSPC : errno;
    }
  }
}

}  // namespace project_lumen::io
