// The samples of an image on disk, whole and in ever smaller halves.
//
// Levels are counted as viewers of tiled images do: the highest is the image itself, each below has
// half the columns and rows, rounded up, and level 0 is one pixel.
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "io/RowSink.h"
#include "io/files/FileDescriptor.h"
#include "studio/files/SessionFolder.h"

namespace project_lumen::studio {

// The highest level of an image of this size: the smallest n with 2^n >= both sides.
int HighestLevel(cv::Size size);

// The size of a level.
cv::Size LevelSize(cv::Size size, int level);

// Normalised samples in float32, one channel or three in R, G, B order, in a file without a name.
// Constant once built, so any thread may read.
class PixelPyramid {
 public:
  [[nodiscard]] cv::Size Size() const { return size_; }
  [[nodiscard]] int Channels() const { return channels_; }
  [[nodiscard]] int MaxLevel() const { return static_cast<int>(offsets_.size()) - 1; }

  // The samples of a part of a level, which has to lie within it. Throws std::runtime_error where
  // the file cannot be read.
  [[nodiscard]] cv::Mat Read(int level, const cv::Rect& part) const;

 private:
  friend class PyramidBuilder;

  cv::Size size_;
  int channels_ = 1;
  std::vector<std::int64_t> offsets_;  // of each level in the file, in bytes
  io::FileDescriptor file_;
};

// Takes an image's rows and makes its pyramid: a sample of a smaller level is the mean of the two
// by two samples above it, or of those of them that there are at an odd edge.
class PyramidBuilder : public io::RowSink {
 public:
  explicit PyramidBuilder(const SessionFolder& session) : session_(session) {}

  // Of three channels only the first is kept: the image is grey.
  void KeepFirstChannel() { keepsFirstChannel_ = true; }

  // Throws ApiError 507 where the disk has no room.
  void Begin(cv::Size size, int type) override;
  void Take(const cv::Mat& rows) override;

  // The pyramid, after the last row.
  [[nodiscard]] std::shared_ptr<const PixelPyramid> Finish();

 private:
  struct Level {
    cv::Size size;
    std::vector<float> waiting;  // a row whose partner has not come yet
    bool hasWaiting = false;
    int rowsWritten = 0;
  };

  void AppendRow(int level, const float* row);
  void AppendMean(int level, const float* upper, const float* lower);

  const SessionFolder& session_;
  bool keepsFirstChannel_ = false;
  std::shared_ptr<PixelPyramid> pyramid_;
  std::vector<Level> levels_;
};

}  // namespace project_lumen::studio
