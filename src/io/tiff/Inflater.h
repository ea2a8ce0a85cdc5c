// Inflates zlib streams (RFC 1950) that have to give a known number of bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

struct z_stream_s;

namespace project_lumen::io {

class Inflater {
 public:
  // Throws std::bad_alloc.
  Inflater();
  ~Inflater();
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  // Fills `output` with the content of the stream in `input`. False when the stream gives fewer
  // bytes, has codes that do not exist, or a checksum that is not that of its content. A stream
  // that lacks its end behind the last byte that was asked for is taken, and so is a longer one,
  // as by libtiff.
  bool Inflate(std::span<const std::uint8_t> input, std::span<std::uint8_t> output);

 private:
  std::unique_ptr<z_stream_s> stream_;
};

}  // namespace project_lumen::io
