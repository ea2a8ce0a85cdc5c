// Keeps image libraries from allocating far more than a file can explain.
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace project_lumen::io {

// The largest picture, in bytes, that is expected in a file of this size: 4096 times as much, and
// 64 MiB in any case. LZW and Deflate pack no better, and no compression packs real pictures as
// well.
std::uint64_t LargestDecodedSize(std::uint64_t fileSize);

// While it lives, creating a cv::Mat of more bytes throws cv::Exception (StsOutOfRange). OpenCV's
// decoders create the picture when they have read its dimensions and before they read its samples,
// so that a claim of a few bytes costs nothing. It holds for the whole process: other threads are
// limited too.
class DecodedSizeLimit {
 public:
  explicit DecodedSizeLimit(std::uint64_t bytes);
  ~DecodedSizeLimit();
  DecodedSizeLimit(const DecodedSizeLimit&) = delete;
  DecodedSizeLimit& operator=(const DecodedSizeLimit&) = delete;

 private:
  // Allocates as OpenCV does by itself, so its pictures may outlive it.
  class Allocator : public cv::MatAllocator {
   public:
    explicit Allocator(std::uint64_t limit) : limit_(limit) {}
    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usageFlags) const override;
    bool allocate(cv::UMatData* data, cv::AccessFlag flags,
                  cv::UMatUsageFlags usageFlags) const override;
    void deallocate(cv::UMatData* data) const override;

   private:
    std::uint64_t limit_;
  };

  Allocator allocator_;
  cv::MatAllocator* before_;
};

}  // namespace project_lumen::io
