// What the fuzz targets share. A target is one file with one LLVMFuzzerTestOneInput; it is fed with
// anything and says what has to hold all the same.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

namespace project_lumen::fuzz {

using Input = std::span<const std::uint8_t>;

inline std::string TextOf(Input bytes) {
  return {bytes.begin(), bytes.end()};
}

// A finding when it does not hold; the stack trace shows the line.
inline void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// A file with these bytes that lies in memory alone and can be opened by its path.
class MemoryFile {
 public:
  explicit MemoryFile(Input bytes) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    Require(descriptor_ >= 0);
    Require(write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace project_lumen::fuzz
