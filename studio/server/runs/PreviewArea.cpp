#include "studio/runs/PreviewArea.h"

#include <algorithm>
#include <cmath>

namespace project_lumen::studio {
namespace {

struct Span {
  int begin;
  int length;
};

Span FitSpan(double begin, double length, int whole) {
  const double wanted = std::clamp(std::round(length), static_cast<double>(kSmallestPreview),
                                   static_cast<double>(kLargestPreview));
  const int taken = std::min(static_cast<int>(wanted), whole);
  const double first = std::round(begin + (length - taken) / 2.0);
  return {static_cast<int>(std::clamp(first, 0.0, static_cast<double>(whole - taken))), taken};
}

}  // namespace

cv::Rect PreviewArea(const cv::Rect2d& visible, cv::Size image) {
  const Span columns = FitSpan(visible.x, visible.width, image.width);
  const Span rows = FitSpan(visible.y, visible.height, image.height);
  return {columns.begin, rows.begin, columns.length, rows.length};
}

}  // namespace project_lumen::studio
