#include "common/StandardErrorDiversion.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

namespace project_lumen {
namespace {

// The standard descriptors stay free for those who expect them.
constexpr int kLowestPrivateDescriptor = STDERR_FILENO + 1;

void FlushErrorStreams() {
  std::cerr.flush();
  std::clog.flush();
  static_cast<void>(std::fflush(stderr));
}

bool PutAtStandardError(int descriptor) {
  int result = -1;
  do {
    result = dup2(descriptor, STDERR_FILENO);
  } while (result < 0 && (errno == EINTR || errno == EBUSY));
  return result >= 0;
}

bool PutNullDeviceAtStandardError() {
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0) {
    return false;
  }
  if (null == STDERR_FILENO) {
    return true;
  }
  const bool diverted = PutAtStandardError(null);
  close(null);
  return diverted;
}

}  // namespace

StandardErrorDiversion::StandardErrorDiversion() {
  FlushErrorStreams();
  savedFlags_ = fcntl(STDERR_FILENO, F_GETFD);
  const bool isClosed = savedFlags_ < 0;
  if (!isClosed) {
    saved_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kLowestPrivateDescriptor);
    if (saved_ < 0) {
      return;
    }
  }
  if (PutNullDeviceAtStandardError()) {
    original_ = isClosed ? Original::kClosed : Original::kOpen;
  }
}

StandardErrorDiversion::~StandardErrorDiversion() {
  if (original_ != Original::kUntouched) {
    FlushErrorStreams();
  }
  if (original_ == Original::kOpen) {
    PutAtStandardError(saved_);
    fcntl(STDERR_FILENO, F_SETFD, savedFlags_);
  } else if (original_ == Original::kClosed) {
    close(STDERR_FILENO);
  }
  if (saved_ >= 0) {
    close(saved_);
  }
}

}  // namespace project_lumen
