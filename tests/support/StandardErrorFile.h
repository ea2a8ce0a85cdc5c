// Shows what arrives at file descriptor 2.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/TemporaryFolder.h"

namespace project_lumen::test {

// Puts a file at descriptor 2 while it lives.
class StandardErrorFile {
 public:
  StandardErrorFile() : original_(dup(STDERR_FILENO)) {
    std::fflush(stderr);
    const int file = open(Path().c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(file, STDERR_FILENO);
    close(file);
  }
  ~StandardErrorFile() {
    std::fflush(stderr);
    dup2(original_, STDERR_FILENO);
    close(original_);
  }
  StandardErrorFile(const StandardErrorFile&) = delete;
  StandardErrorFile& operator=(const StandardErrorFile&) = delete;

  [[nodiscard]] std::string Text() const {
    std::fflush(stderr);
    return ReadFileBytes(Path());
  }

 private:
  [[nodiscard]] std::string Path() const { return folder_.Path("stderr"); }

  TemporaryFolder folder_;
  int original_;
};

}  // namespace project_lumen::test
