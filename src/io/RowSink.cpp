#include "io/RowSink.h"

#include <opencv2/core.hpp>
#include <utility>

#include "common/Assertion.h"

namespace project_lumen::io {

void WholeImage::Begin(cv::Size size, int type) {
  size_ = size;
  type_ = type;
  rowsTaken_ = 0;
  image_.release();
}

void WholeImage::Take(const cv::Mat& rows) {
  NEBULEX_ASSERT("project_lumen::io::WholeImage::Take", rows.type() == type_ &&
                                                            rows.cols == size_.width &&
                                                            rows.rows <= size_.height - rowsTaken_);
  if (rows.rows == size_.height) {
    image_ = rows;
  } else {
    image_.create(size_, type_);
    rows.copyTo(image_.rowRange(rowsTaken_, rowsTaken_ + rows.rows));
  }
  rowsTaken_ += rows.rows;
}

cv::Mat WholeImage::Release() {
  NEBULEX_ASSERT("project_lumen::io::WholeImage::Release", rowsTaken_ == size_.height);
  return std::exchange(image_, {});
}

}  // namespace project_lumen::io
