#include "studio/results/SampleRows.h"

#include <opencv2/core.hpp>

#include "studio/files/WholeTransfer.h"

namespace project_lumen::studio {
namespace {

std::int64_t RowBytes(cv::Size size, int type) {
  return static_cast<std::int64_t>(size.width) * static_cast<std::int64_t>(CV_ELEM_SIZE(type));
}

}  // namespace

void SampleRows::Begin(cv::Size size, int type) {
  size_ = size;
  type_ = type;
  file_ = session_.MakeUnnamedFile(RowBytes(size, type) * size.height);
}

void SampleRows::Take(const cv::Mat& rows) {
  const std::int64_t rowBytes = RowBytes(size_, type_);
  for (int r = 0; r < rows.rows; ++r) {
    WriteAll(file_.Get(), rows.ptr(r), static_cast<std::size_t>(rowBytes), taken_ * rowBytes);
    ++taken_;
  }
}

cv::Mat SampleRows::Read(const cv::Range& rows) const {
  const std::int64_t rowBytes = RowBytes(size_, type_);
  cv::Mat samples(rows.size(), size_.width, type_);
  ReadAll(file_.Get(), samples.data, static_cast<std::size_t>(rowBytes * rows.size()),
          rows.start * rowBytes);
  return samples;
}

}  // namespace project_lumen::studio
