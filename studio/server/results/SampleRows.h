// An image's samples at full depth on disk, for work that goes from top to bottom.
#pragma once

#include <opencv2/core/mat.hpp>

#include "io/RowSink.h"
#include "io/files/FileDescriptor.h"
#include "studio/files/SessionFolder.h"

namespace project_lumen::studio {

// Takes rows of any type and gives any of them back later, so that nothing is in memory whole.
class SampleRows : public io::RowSink {
 public:
  explicit SampleRows(const SessionFolder& session) : session_(session) {}

  // Throws ApiError 507 where the disk has no room.
  void Begin(cv::Size size, int type) override;
  void Take(const cv::Mat& rows) override;

  [[nodiscard]] cv::Size Size() const { return size_; }
  [[nodiscard]] int Type() const { return type_; }
  [[nodiscard]] cv::Mat Read(const cv::Range& rows) const;

 private:
  const SessionFolder& session_;
  cv::Size size_;
  int type_ = 0;
  int taken_ = 0;
  io::FileDescriptor file_;
};

}  // namespace project_lumen::studio
