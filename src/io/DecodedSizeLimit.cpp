#include "io/DecodedSizeLimit.h"

#include <algorithm>
#include <limits>
#include <opencv2/core.hpp>

namespace project_lumen::io {
namespace {

constexpr std::uint64_t kLargestRatio = 4096;
constexpr std::uint64_t kAlwaysAllowed = std::uint64_t{64} << 20U;

}  // namespace

std::uint64_t LargestDecodedSize(std::uint64_t fileSize) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
  return fileSize > kLargest / kLargestRatio ? kLargest
                                             : std::max(fileSize * kLargestRatio, kAlwaysAllowed);
}

cv::UMatData* DecodedSizeLimit::Allocator::allocate(int dims, const int* sizes, int type,
                                                    void* data, std::size_t* step,
                                                    cv::AccessFlag flags,
                                                    cv::UMatUsageFlags usageFlags) const {
  auto bytes = static_cast<double>(CV_ELEM_SIZE(type));
  for (int i = 0; i < dims; ++i) {
    bytes *= sizes[i];
  }
  if (bytes > static_cast<double>(limit_)) {
    CV_Error(cv::Error::StsOutOfRange, "The picture is larger than its file explains.");
  }
  return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usageFlags);
}

bool DecodedSizeLimit::Allocator::allocate(cv::UMatData* data, cv::AccessFlag flags,
                                           cv::UMatUsageFlags usageFlags) const {
  return cv::Mat::getStdAllocator()->allocate(data, flags, usageFlags);
}

void DecodedSizeLimit::Allocator::deallocate(cv::UMatData* data) const {
  cv::Mat::getStdAllocator()->deallocate(data);
}

DecodedSizeLimit::DecodedSizeLimit(std::uint64_t bytes)
    : allocator_(bytes), before_(cv::Mat::getDefaultAllocator()) {
  cv::Mat::setDefaultAllocator(&allocator_);
}

DecodedSizeLimit::~DecodedSizeLimit() {
  cv::Mat::setDefaultAllocator(before_);
}

}  // namespace project_lumen::io
