#include "core/ReflectPadding.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen::core {
namespace {

// The position in a line of `length` samples that each of `count` padded positions from `start` on
// shows; the line begins after `pad` of them.
std::vector<int> MirroredPositions(int start, int count, int pad, int length) {
  std::vector<int> positions;
  positions.reserve(static_cast<std::size_t>(count));
  for (int i = start; i < start + count; ++i) {
    positions.push_back(cv::borderInterpolate(i - pad, length, cv::BORDER_REFLECT_101));
  }
  return positions;
}

}  // namespace

void PadReflect101(const cv::Mat& image, const TileGeometry& geometry, const cv::Rect& area,
                   cv::Mat& part) {
  NEBULEX_ASSERT("project_lumen::core::PadReflect101", image.type() == CV_32FC3 &&
                                                           image.cols == geometry.width &&
                                                           image.rows == geometry.height);
  part.create(area.size(), CV_32FC3);
  const std::vector<int> rows =
      MirroredPositions(area.y, area.height, geometry.topPad, geometry.height);
  const std::vector<int> columns =
      MirroredPositions(area.x, area.width, geometry.leftPad, geometry.width);
  // Columns of the part before `first` and from `end` on lie beside the image.
  const int first = std::clamp(geometry.leftPad - area.x, 0, area.width);
  const int end = std::clamp(geometry.leftPad + geometry.width - area.x, first, area.width);
  for (int r = 0; r < area.height; ++r) {
    const auto* source = image.ptr<cv::Vec3f>(rows[static_cast<std::size_t>(r)]);
    auto* target = part.ptr<cv::Vec3f>(r);
    const auto copyMirrored = [&](int from, int to) {
      for (int c = from; c < to; ++c) {
        target[c] = source[columns[static_cast<std::size_t>(c)]];
      }
    };
    copyMirrored(0, first);
    if (first < end) {
      // As samples, which the library copies faster than pixels.
      std::copy_n(source[area.x + first - geometry.leftPad].val,
                  static_cast<std::size_t>(end - first) * 3, target[first].val);
    }
    copyMirrored(end, area.width);
  }
}

}  // namespace project_lumen::core
