// A file in memory, for decoders that take nothing but paths.
#pragma once

#include <string>

#include "io/WholeFile.h"

namespace project_lumen::io {

class MemoryFile {
 public:
  explicit MemoryFile(const WholeFile& file);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Where the bytes can be read while this lives; empty where the system has no such files, or no
  // memory for one.
  [[nodiscard]] std::string Path() const;

 private:
  int descriptor_ = -1;
};

}  // namespace project_lumen::io
