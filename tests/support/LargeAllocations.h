// Counts the matrices that OpenCV allocates, from a size on.
#pragma once

#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace project_lumen {

// While it lives, the sizes in bytes of all new matrices of at least `threshold` bytes are noted.
// At most one lives at a time; matrices may outlive it.
class LargeAllocations : public cv::MatAllocator {
 public:
  explicit LargeAllocations(std::size_t threshold) : threshold_(threshold) {
    cv::Mat::setDefaultAllocator(this);
  }
  ~LargeAllocations() override { cv::Mat::setDefaultAllocator(before_); }
  LargeAllocations(const LargeAllocations&) = delete;
  LargeAllocations& operator=(const LargeAllocations&) = delete;

  [[nodiscard]] const std::vector<std::size_t>& Sizes() const { return sizes_; }

  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step,
                         cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    cv::UMatData* made = standard_->allocate(dims, sizes, type, data, step, flags, usage);
    if (made->size >= threshold_) {
      sizes_.push_back(made->size);
    }
    return made;
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    return standard_->allocate(data, flags, usage);
  }
  void deallocate(cv::UMatData* data) const override { standard_->deallocate(data); }

 private:
  std::size_t threshold_;
  mutable std::vector<std::size_t> sizes_;
  cv::MatAllocator* standard_ = cv::Mat::getStdAllocator();
  cv::MatAllocator* before_ = cv::Mat::getDefaultAllocator();
};

}  // namespace project_lumen
