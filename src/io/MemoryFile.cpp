#include "io/MemoryFile.h"

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace project_lumen::io {

#ifdef __linux__

namespace {

bool WriteAll(int descriptor, const WholeFile& file) {
  std::size_t done = 0;
  while (done < file.size) {
    const ssize_t written = write(descriptor, file.bytes.get() + done, file.size - done);
    if (written <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

MemoryFile::MemoryFile(const WholeFile& file) : descriptor_(memfd_create("nebulex2", MFD_CLOEXEC)) {
  if (descriptor_ >= 0 && !WriteAll(descriptor_, file)) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

MemoryFile::~MemoryFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

std::string MemoryFile::Path() const {
  return descriptor_ >= 0 ? "/proc/self/fd/" + std::to_string(descriptor_) : "";
}

#else

MemoryFile::MemoryFile(const WholeFile&) {}

MemoryFile::~MemoryFile() = default;

std::string MemoryFile::Path() const {
  return "";
}

#endif

}  // namespace project_lumen::io
