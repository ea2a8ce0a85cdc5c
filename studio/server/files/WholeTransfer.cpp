#include "studio/files/WholeTransfer.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {

void WriteAll(int file, const void* bytes, std::size_t count, std::int64_t offset) {
  const char* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = pwrite(file, next, count, offset);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      throw NoRoom("The image cannot be kept on the disk (" +
                   std::generic_category().message(written == 0 ? ENOSPC : errno) + ").");
    }
    next += written;
    offset += written;
    count -= static_cast<std::size_t>(written);
  }
}

void ReadAll(int file, void* bytes, std::size_t count, std::int64_t offset) {
  char* next = static_cast<char*>(bytes);
  while (count > 0) {
    const ssize_t got = pread(file, next, count, offset);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      throw std::runtime_error("The image's samples cannot be read back from the disk (" +
                               std::generic_category().message(got == 0 ? EIO : errno) + ").");
    }
    next += got;
    offset += got;
    count -= static_cast<std::size_t>(got);
  }
}

}  // namespace project_lumen::studio
