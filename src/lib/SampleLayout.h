// Where the samples of a caller's image lie in memory.
#pragma once

#include <nebulex/nebulex.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include <opencv2/core/types.hpp>

namespace project_lumen::lib {

// Sample (r, c, k) lies `r * rowStride + c * pixelStride + k * channelStride` bytes behind `first`.
struct SampleLayout {
  std::byte* first = nullptr;
  cv::Size size;
  int channels = 1;
  int depth = 0;  // CV_8U, CV_16U, CV_32F or CV_64F
  std::ptrdiff_t rowStride = 0;
  std::ptrdiff_t pixelStride = 0;
  std::ptrdiff_t channelStride = 0;
  std::uintptr_t lowest = 0;  // the addresses that it reaches, from `lowest` to before `end`
  std::uintptr_t end = 0;

  [[nodiscard]] std::size_t SampleSize() const;
  // Whether the samples of a row follow each other without gaps, channel by channel.
  [[nodiscard]] bool HasPackedRows() const;
};

// The layout of an image, whose strides may be 0 for packed. `name` is for the messages.
//
// Throws BadArgument for no data, an unknown sample type, negative sizes, and strides that let
// samples share bytes or reach beyond the address space; BadImage for an image without pixels or
// with more than core::ProcessingSettings can be applied to, and "Unsupported number of image
// channels: N".
SampleLayout LayoutOf(const nebulex_view& view, const std::string& name);

// The same for room that the caller gives to a result of `image`. BadArgument also where the two
// differ in size, channels or sample type.
SampleLayout LayoutOf(const nebulex_buffer& buffer, const nebulex_view& image,
                      const std::string& name);

// A packed buffer for a result of `image`, without data; and its size in bytes.
nebulex_buffer PackedBufferFor(const nebulex_view& image);
std::size_t PackedSize(const nebulex_buffer& buffer);

// Whether the ranges of addresses that two layouts reach have a byte in common.
bool Overlap(const SampleLayout& one, const SampleLayout& other);

}  // namespace project_lumen::lib
