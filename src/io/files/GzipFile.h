// gzip-compressed files: read as a stream that stays in memory, written from another file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "io/fits/guards/FitsStructure.h"

namespace project_lumen::io {

// Whether the file begins with the two bytes of gzip (RFC 1952, section 2.3.1).
bool IsGzipFile(const std::string& path);

// The inflated content of a gzip file, kept as far as it was asked for.
class GzipContent : public SequentialBytes {
 public:
  // The file must exist; one that cannot be opened is empty and not intact.
  explicit GzipContent(const std::string& path);
  ~GzipContent() override;

  std::size_t Read(char* target, std::size_t count) override;
  // Inflates nothing when the file is too small to hold that many bytes.
  std::uint64_t Skip(std::uint64_t count) override;

  // Inflates what is left without keeping it; false for a broken or truncated file.
  bool IsIntact();
  // What was read and skipped.
  std::vector<char> Take();

 private:
  struct Stream;
  std::size_t Append(std::uint64_t count);

  std::unique_ptr<Stream> stream_;
  std::vector<char> content_;
  std::uint64_t largestContent_ = 0;
};

// Writes the gzip-compressed form of one open file to another, from the start of both. Throws
// std::system_error with the system's reason.
void CompressFile(int source, int target);

}  // namespace project_lumen::io
