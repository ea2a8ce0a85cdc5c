// Stands in for a disk that fills up.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstdint>

namespace project_lumen::test {

// While it lives no file of the process grows beyond `bytes`: a write that would fails with "File
// too large".
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::uint64_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &original_);
    rlimit lowered = original_;
    lowered.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &lowered);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &original_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*handler_)(int);
  rlimit original_{};
};

}  // namespace project_lumen::test
