// Writing to a descriptor at any place, in large pieces.
#pragma once

#include <cstdint>
#include <span>
#include <system_error>
#include <vector>

namespace project_lumen::io {

// Bytes that follow each other are collected, since encoders hand on a few thousand at a time. An
// error is kept, and whatever follows it is dropped, so that C callbacks can report it later.
class BufferedFile {
 public:
  // The descriptor stays the caller's. The file is empty. Throws std::bad_alloc; nothing else does.
  explicit BufferedFile(int descriptor);

  // False once something could not be written.
  bool Write(std::uint64_t offset, std::span<const std::uint8_t> bytes);
  bool Flush();

  [[nodiscard]] std::uint64_t Size() const { return size_; }
  // None while everything could be written.
  [[nodiscard]] const std::error_code& Error() const { return error_; }

 private:
  void WriteNow(std::uint64_t offset, std::span<const std::uint8_t> bytes);

  int descriptor_;
  std::uint64_t start_ = 0;  // where the collected bytes belong
  std::vector<std::uint8_t> collected_;
  std::uint64_t size_ = 0;
  std::error_code error_;
};

}  // namespace project_lumen::io
