#include "lib/SampleLayout.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <opencv2/core.hpp>

namespace project_lumen::lib {
namespace {

constexpr std::int64_t kWidth = 10;
constexpr std::int64_t kHeight = 6;

nebulex_view View(std::int64_t row, std::int64_t pixel, std::int64_t channel) {
  static const float memory[1]{};
  return {memory, kWidth, kHeight, 3, NEBULEX_F32, row, pixel, channel};
}

TEST(SampleLayout, ZeroStridesArePacked) {
  const SampleLayout layout = LayoutOf(View(0, 0, 0), "image");
  EXPECT_EQ(layout.size, cv::Size(10, 6));
  EXPECT_EQ(layout.depth, CV_32F);
  EXPECT_EQ(layout.channelStride, 4);
  EXPECT_EQ(layout.pixelStride, 12);
  EXPECT_EQ(layout.rowStride, 120);
  EXPECT_TRUE(layout.HasPackedRows());
  EXPECT_EQ(layout.end - layout.lowest, 720U);
}

TEST(SampleLayout, PackedRowsFollowFromThePixelStride) {
  const SampleLayout layout = LayoutOf(View(0, 16, 0), "image");
  EXPECT_EQ(layout.rowStride, 160);
  EXPECT_FALSE(layout.HasPackedRows());
  // The last pixel has no fourth channel behind it.
  EXPECT_EQ(layout.end - layout.lowest, 6U * 160 - 4);
}

TEST(SampleLayout, NegativeStridesReachBackwards) {
  const nebulex_view view = View(-120, 12, 4);
  const SampleLayout layout = LayoutOf(view, "image");
  const auto first = reinterpret_cast<std::uintptr_t>(view.data);
  EXPECT_EQ(first - layout.lowest, 5U * 120);
  EXPECT_EQ(layout.end - first, 120U);
}

TEST(SampleLayout, LayoutsOverlapWhereTheirRangesShareAByte) {
  nebulex_view view = View(0, 0, 0);
  const SampleLayout one = LayoutOf(view, "image");
  view.data = static_cast<const char*>(view.data) + 720;
  EXPECT_FALSE(Overlap(one, LayoutOf(view, "image")));
  EXPECT_FALSE(Overlap(LayoutOf(view, "image"), one));
  view.data = static_cast<const char*>(view.data) - 1;
  EXPECT_TRUE(Overlap(one, LayoutOf(view, "image")));
  EXPECT_TRUE(Overlap(LayoutOf(view, "image"), one));
}

TEST(SampleLayout, APackedBufferHasTheSizeOfItsSamples) {
  const nebulex_buffer buffer = PackedBufferFor(View(0, 100, 0));
  EXPECT_EQ(buffer.row_stride, 120);
  EXPECT_EQ(PackedSize(buffer), 720U);
}

}  // namespace
}  // namespace project_lumen::lib
