// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace project_lumen::io {

class FileDescriptor {
 public:
  // Takes the descriptor over; a negative one is none.
  explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~FileDescriptor() { Close(); }
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  [[nodiscard]] int Get() const { return descriptor_; }
  // Gives the descriptor away.
  int Release() { return std::exchange(descriptor_, -1); }

  // Some file systems report a failed write only here: 0, or -1 with errno. Closed is closed.
  int Close() { return descriptor_ < 0 ? 0 : close(std::exchange(descriptor_, -1)); }

 private:
  int descriptor_;
};

}  // namespace project_lumen::io
