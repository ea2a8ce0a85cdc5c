#include "studio/images/PixelPyramid.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <utility>

#include "studio/files/WholeTransfer.h"

namespace project_lumen::studio {
namespace {

std::int64_t RowBytes(cv::Size size, int channels) {
  return static_cast<std::int64_t>(size.width) * channels *
         static_cast<std::int64_t>(sizeof(float));
}

}  // namespace

int HighestLevel(cv::Size size) {
  const int side = std::max(size.width, size.height);
  int level = 0;
  while ((std::int64_t{1} << level) < side) {
    ++level;
  }
  return level;
}

cv::Size LevelSize(cv::Size size, int level) {
  const int halvings = HighestLevel(size) - level;
  const auto shrink = [halvings](int side) {
    const std::int64_t divisor = std::int64_t{1} << halvings;
    return static_cast<int>((side + divisor - 1) / divisor);
  };
  return {shrink(size.width), shrink(size.height)};
}

cv::Mat PixelPyramid::Read(int level, const cv::Rect& part) const {
  const cv::Size size = LevelSize(size_, level);
  CV_Assert(part.x >= 0 && part.y >= 0 && part.x + part.width <= size.width &&
            part.y + part.height <= size.height);
  cv::Mat samples(part.size(), CV_MAKETYPE(CV_32F, channels_));
  const std::int64_t rowBytes = RowBytes(size, channels_);
  const std::int64_t pixelBytes = channels_ * static_cast<std::int64_t>(sizeof(float));
  const std::int64_t base = offsets_[static_cast<std::size_t>(level)];
  for (int r = 0; r < part.height; ++r) {
    ReadAll(file_.Get(), samples.ptr(r), static_cast<std::size_t>(part.width * pixelBytes),
            base + (part.y + r) * rowBytes + part.x * pixelBytes);
  }
  return samples;
}

void PyramidBuilder::Begin(cv::Size size, int type) {
  pyramid_ = std::make_shared<PixelPyramid>();
  pyramid_->size_ = size;
  pyramid_->channels_ = keepsFirstChannel_ ? 1 : CV_MAT_CN(type);
  const int highest = HighestLevel(size);
  std::int64_t bytes = 0;
  for (int level = 0; level <= highest; ++level) {
    const cv::Size levelSize = LevelSize(size, level);
    pyramid_->offsets_.push_back(bytes);
    bytes += RowBytes(levelSize, pyramid_->channels_) * levelSize.height;
    levels_.push_back({levelSize, {}, false, 0});
  }
  pyramid_->file_ = session_.MakeUnnamedFile(bytes);
}

void PyramidBuilder::Take(const cv::Mat& rows) {
  constexpr int kRowsAtOnce = 64;
  const int highest = pyramid_->MaxLevel();
  for (int first = 0; first < rows.rows; first += kRowsAtOnce) {
    cv::Mat part = rows.rowRange(first, std::min(first + kRowsAtOnce, rows.rows));
    if (part.channels() != pyramid_->channels_) {
      cv::Mat channel;
      cv::extractChannel(part, channel, 0);
      part = channel;
    }
    cv::Mat samples;
    part.convertTo(samples, CV_32F);
    for (int r = 0; r < samples.rows; ++r) {
      AppendRow(highest, samples.ptr<float>(r));
    }
  }
}

void PyramidBuilder::AppendRow(int level, const float* row) {
  Level& own = levels_[static_cast<std::size_t>(level)];
  const std::int64_t rowBytes = RowBytes(own.size, pyramid_->channels_);
  WriteAll(pyramid_->file_.Get(), row, static_cast<std::size_t>(rowBytes),
           pyramid_->offsets_[static_cast<std::size_t>(level)] + own.rowsWritten * rowBytes);
  ++own.rowsWritten;
  if (level == 0) {
    return;
  }
  if (own.hasWaiting) {
    own.hasWaiting = false;
    AppendMean(level, own.waiting.data(), row);
  } else if (own.rowsWritten == own.size.height) {
    AppendMean(level, row, row);  // the last row of an odd number has no partner
  } else {
    own.waiting.assign(row, row + rowBytes / static_cast<std::int64_t>(sizeof(float)));
    own.hasWaiting = true;
  }
}

// The row that two rows of `level` become in the level below.
void PyramidBuilder::AppendMean(int level, const float* upper, const float* lower) {
  const auto channels = static_cast<std::size_t>(pyramid_->channels_);
  const auto columns =
      static_cast<std::size_t>(levels_[static_cast<std::size_t>(level)].size.width);
  std::vector<float> means((columns + 1) / 2 * channels);
  for (std::size_t x = 0; x < columns / 2; ++x) {
    for (std::size_t c = 0; c < channels; ++c) {
      const std::size_t left = 2 * x * channels + c;
      const std::size_t right = left + channels;
      means[x * channels + c] =
          ((upper[left] + upper[right]) + (lower[left] + lower[right])) * 0.25F;
    }
  }
  if (columns % 2 != 0) {
    const std::size_t last = (columns - 1) * channels;
    for (std::size_t c = 0; c < channels; ++c) {
      means[columns / 2 * channels + c] = (upper[last + c] + lower[last + c]) * 0.5F;
    }
  }
  AppendRow(level - 1, means.data());
}

std::shared_ptr<const PixelPyramid> PyramidBuilder::Finish() {
  CV_Assert(pyramid_ && levels_.front().rowsWritten == 1);
  return std::move(pyramid_);
}

}  // namespace project_lumen::studio
