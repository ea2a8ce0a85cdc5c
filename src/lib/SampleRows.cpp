#include "lib/SampleRows.h"

#include <cstddef>
#include <cstring>

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen::lib {
namespace {

// One line of samples: `count` of them, a number of bytes apart. Addresses of callers need no
// alignment, so samples are copied as bytes; for a size that the compiler knows that is one move.
template <std::size_t kSize>
void CopyLine(const std::byte* from, std::ptrdiff_t fromStride, std::byte* to,
              std::ptrdiff_t toStride, int count) {
  for (int i = 0; i < count; ++i) {
    std::memcpy(to + i * toStride, from + i * fromStride, kSize);
  }
}

void CopySamples(std::size_t size, const std::byte* from, std::ptrdiff_t fromStride, std::byte* to,
                 std::ptrdiff_t toStride, int count) {
  switch (size) {
    case 1:
      return CopyLine<1>(from, fromStride, to, toStride, count);
    case 2:
      return CopyLine<2>(from, fromStride, to, toStride, count);
    case 4:
      return CopyLine<4>(from, fromStride, to, toStride, count);
    default:
      return CopyLine<8>(from, fromStride, to, toStride, count);
  }
}

std::byte* RowOf(const SampleLayout& layout, int row) {
  return layout.first + row * layout.rowStride;
}

std::size_t RowBytes(const SampleLayout& layout) {
  return static_cast<std::size_t>(layout.size.width) * static_cast<std::size_t>(layout.channels) *
         layout.SampleSize();
}

}  // namespace

void ReadRows(const SampleLayout& layout, const cv::Range& rows, cv::Mat& packed) {
  packed.create(rows.size(), layout.size.width, CV_MAKETYPE(layout.depth, layout.channels));
  const std::size_t size = layout.SampleSize();
  for (int r = rows.start; r < rows.end; ++r) {
    const std::byte* from = RowOf(layout, r);
    auto* to = packed.ptr<std::byte>(r - rows.start);
    if (layout.HasPackedRows()) {
      std::memcpy(to, from, RowBytes(layout));
      continue;
    }
    for (int k = 0; k < layout.channels; ++k) {
      CopySamples(size, from + k * layout.channelStride, layout.pixelStride,
                  to + static_cast<std::size_t>(k) * size,
                  static_cast<std::ptrdiff_t>(packed.elemSize()), layout.size.width);
    }
  }
}

void WriteRows(const SampleLayout& layout, const cv::Mat& packed, int firstRow) {
  NEBULEX_ASSERT("project_lumen::lib::WriteRows",
                 packed.depth() == layout.depth && packed.cols == layout.size.width &&
                     (packed.channels() == layout.channels || packed.channels() == 1));
  const std::size_t size = layout.SampleSize();
  for (int r = 0; r < packed.rows; ++r) {
    const auto* from = packed.ptr<std::byte>(r);
    std::byte* to = RowOf(layout, firstRow + r);
    if (layout.HasPackedRows() && packed.channels() == layout.channels) {
      std::memcpy(to, from, RowBytes(layout));
      continue;
    }
    for (int k = 0; k < layout.channels; ++k) {
      const std::size_t channel = packed.channels() == 1 ? 0 : static_cast<std::size_t>(k);
      CopySamples(size, from + channel * size, static_cast<std::ptrdiff_t>(packed.elemSize()),
                  to + k * layout.channelStride, layout.pixelStride, layout.size.width);
    }
  }
}

}  // namespace project_lumen::lib
