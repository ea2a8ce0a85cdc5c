// Images on their way in bands of rows, from top to bottom.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen::io {

// Where the rows of an image go. Called from one thread: Begin once, then Take until all rows have
// come.
class RowSink {
 public:
  virtual ~RowSink() = default;
  // The size in columns and rows, and the OpenCV type of every band.
  virtual void Begin(cv::Size size, int type) = 0;
  // The next rows. Whoever keeps the matrix beyond the call shares its samples, which the caller
  // does not change any more.
  virtual void Take(const cv::Mat& rows) = 0;
};

// Keeps all rows as one image. A band that is the whole image is kept as it is, without a copy.
class WholeImage : public RowSink {
 public:
  void Begin(cv::Size size, int type) override;
  void Take(const cv::Mat& rows) override;

  // The image, once its last row has come; it is let go of.
  [[nodiscard]] cv::Mat Release();

 private:
  cv::Size size_;
  int type_ = 0;
  int rowsTaken_ = 0;
  cv::Mat image_;
};

}  // namespace project_lumen::io
