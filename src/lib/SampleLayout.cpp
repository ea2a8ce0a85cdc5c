#include "lib/SampleLayout.h"

#include <algorithm>
#include <array>
#include <limits>

#include <opencv2/core.hpp>

#include "lib/Errors.h"

namespace project_lumen::lib {
namespace {

// Beyond it, OpenCV cannot count the samples of a row.
constexpr std::int64_t kLongestSide = std::numeric_limits<std::int32_t>::max() / 8;

int DepthOf(std::int32_t sampleType, const std::string& name) {
  switch (sampleType) {
    case NEBULEX_U8:
      return CV_8U;
    case NEBULEX_U16:
      return CV_16U;
    case NEBULEX_F32:
      return CV_32F;
    case NEBULEX_F64:
      return CV_64F;
    default:
      throw BadArgument(name +
                        ".sample_type must be NEBULEX_U8, NEBULEX_U16, NEBULEX_F32 or NEBULEX_F64. "
                        "It is " +
                        std::to_string(sampleType) + ".");
  }
}

void CheckExtents(const nebulex_view& view, const std::string& name) {
  const std::string size =
      std::to_string(view.width) + " x " + std::to_string(view.height) + " pixels.";
  if (view.width < 0 || view.height < 0) {
    throw BadArgument(name + " has " + size);
  }
  if (view.width == 0 || view.height == 0) {
    throw BadImage("The image is empty: it has " + size);
  }
  if (view.channels != 1 && view.channels != 3) {
    throw BadImage("Unsupported number of image channels: " + std::to_string(view.channels));
  }
  if (view.width > kLongestSide || view.height > kLongestSide) {
    throw BadImage("Image dimensions exceed supported tiling limits. It has " + size);
  }
}

[[noreturn]] void RefuseReach(const std::string& name) {
  throw BadArgument("The strides of " + name + " reach beyond the address space.");
}

std::int64_t Multiply(std::int64_t a, std::int64_t b, const std::string& name) {
  std::int64_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) {
    RefuseReach(name);
  }
  return product;
}

std::int64_t Add(std::int64_t a, std::int64_t b, const std::string& name) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) {
    RefuseReach(name);
  }
  return sum;
}

struct Axis {
  std::int64_t count;
  std::int64_t stride;

  // From the first place to the last, in bytes.
  [[nodiscard]] std::int64_t Span(const std::string& name) const {
    return Multiply(count - 1, stride, name);
  }
};

using Axes = std::array<Axis, 3>;

Axes AxesOf(const nebulex_view& view, std::int64_t sampleSize, const std::string& name) {
  const auto orPacked = [](std::int64_t stride, std::int64_t packed) {
    return stride == 0 ? packed : stride;
  };
  const std::int64_t channelStride = orPacked(view.channel_stride, sampleSize);
  const std::int64_t pixelStride = orPacked(view.pixel_stride, view.channels * sampleSize);
  const std::int64_t rowStride =
      view.row_stride == 0 ? Multiply(view.width, pixelStride, name) : view.row_stride;
  return {{{view.height, rowStride}, {view.width, pixelStride}, {view.channels, channelStride}}};
}

// Along the axis with the longer steps, each step has to lead over all that lies along the shorter
// ones.
void RequireDistinctSamples(Axes axes, std::int64_t sampleSize, const std::string& name) {
  for (Axis& axis : axes) {
    axis.stride = axis.stride < 0 ? Multiply(axis.stride, -1, name) : axis.stride;
  }
  std::sort(axes.begin(), axes.end(),
            [](const Axis& a, const Axis& b) { return a.stride < b.stride; });
  std::int64_t reach = sampleSize;
  for (const Axis& axis : axes) {
    if (axis.count > 1 && axis.stride < reach) {
      throw BadArgument("The strides of " + name + " let samples overlap.");
    }
    reach = Add(reach, axis.Span(name), name);
  }
}

void SetReach(const Axes& axes, std::int64_t sampleSize, const std::string& name,
              SampleLayout& layout) {
  std::int64_t before = 0;
  std::int64_t behind = sampleSize;
  for (const Axis& axis : axes) {
    const std::int64_t span = axis.Span(name);
    before = Add(before, std::min<std::int64_t>(span, 0), name);
    behind = Add(behind, std::max<std::int64_t>(span, 0), name);
  }
  const auto first = reinterpret_cast<std::uintptr_t>(layout.first);
  const auto below = static_cast<std::uintptr_t>(-before);
  const auto above = static_cast<std::uintptr_t>(behind);
  if (first < below || above > std::numeric_limits<std::uintptr_t>::max() - first) {
    RefuseReach(name);
  }
  layout.lowest = first - below;
  layout.end = first + above;
}

nebulex_view AsView(const nebulex_buffer& buffer) {
  return {buffer.data,        buffer.width,      buffer.height,       buffer.channels,
          buffer.sample_type, buffer.row_stride, buffer.pixel_stride, buffer.channel_stride};
}

std::string DescribeKind(std::int64_t width, std::int64_t height, std::int32_t channels,
                         std::int32_t sampleType) {
  return std::to_string(width) + " x " + std::to_string(height) + " pixels, " +
         std::to_string(channels) + " channel(s) and sample type " + std::to_string(sampleType);
}

}  // namespace

std::size_t SampleLayout::SampleSize() const {
  return CV_ELEM_SIZE1(depth);
}

bool SampleLayout::HasPackedRows() const {
  const auto sampleSize = static_cast<std::ptrdiff_t>(SampleSize());
  return pixelStride == channels * sampleSize && (channels == 1 || channelStride == sampleSize);
}

SampleLayout LayoutOf(const nebulex_view& view, const std::string& name) {
  const int depth = DepthOf(view.sample_type, name);
  CheckExtents(view, name);
  if (view.data == nullptr) {
    throw BadArgument(name + ".data is NULL.");
  }
  const std::int64_t sampleSize = CV_ELEM_SIZE1(depth);
  const Axes axes = AxesOf(view, sampleSize, name);
  RequireDistinctSamples(axes, sampleSize, name);
  SampleLayout layout;
  // Layouts of images are only read.
  layout.first = const_cast<std::byte*>(static_cast<const std::byte*>(view.data));
  layout.size = cv::Size(static_cast<int>(view.width), static_cast<int>(view.height));
  layout.channels = view.channels;
  layout.depth = depth;
  layout.rowStride = axes[0].stride;
  layout.pixelStride = axes[1].stride;
  layout.channelStride = axes[2].stride;
  SetReach(axes, sampleSize, name, layout);
  return layout;
}

SampleLayout LayoutOf(const nebulex_buffer& buffer, const nebulex_view& image,
                      const std::string& name) {
  if (buffer.width != image.width || buffer.height != image.height ||
      buffer.channels != image.channels || buffer.sample_type != image.sample_type) {
    throw BadArgument(
        name + " has " +
        DescribeKind(buffer.width, buffer.height, buffer.channels, buffer.sample_type) +
        "; the image has " +
        DescribeKind(image.width, image.height, image.channels, image.sample_type) + ".");
  }
  return LayoutOf(AsView(buffer), name);
}

nebulex_buffer PackedBufferFor(const nebulex_view& image) {
  const std::int64_t sampleSize = CV_ELEM_SIZE1(DepthOf(image.sample_type, "image"));
  const std::int64_t pixelSize = image.channels * sampleSize;
  return {nullptr,        image.width,       image.height,
          image.channels, image.sample_type, image.width * pixelSize,
          pixelSize,      sampleSize};
}

std::size_t PackedSize(const nebulex_buffer& buffer) {
  return static_cast<std::size_t>(buffer.height) * static_cast<std::size_t>(buffer.row_stride);
}

bool Overlap(const SampleLayout& one, const SampleLayout& other) {
  return one.lowest < other.end && other.lowest < one.end;
}

}  // namespace project_lumen::lib
