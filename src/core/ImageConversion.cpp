#include "core/ImageConversion.h"

#include <cstddef>
#include <limits>
#include <stdexcept>

#include <opencv2/imgproc.hpp>

#include "common/GridAlignedResample.h"
#include "core/FiniteSamples.h"
#include "core/FloatImageChannels.h"
#include "core/SampleRows.h"
#include "core/SettingRules.h"

namespace project_lumen::core {
namespace {

void CheckShape(const ImageView& view) {
  if (view.data == nullptr || view.width < kWindow || view.height < kWindow ||
      (view.channels != 1 && view.channels != 3)) {
    throw std::invalid_argument("Nebulex requires RGB or grayscale pixels at least 512x512.");
  }
  const auto width = static_cast<std::size_t>(view.width);
  const auto height = static_cast<std::size_t>(view.height);
  const auto channels = static_cast<std::size_t>(view.channels);
  if (width > std::numeric_limits<std::size_t>::max() / height / channels ||
      view.sampleCount != width * height * channels) {
    throw std::invalid_argument("Image sample count does not match its dimensions.");
  }
}

}  // namespace

cv::Mat WrapSamples(const float* samples, std::int32_t width, std::int32_t height,
                    std::int32_t channels) {
  // OpenCV has no matrix of const samples.
  return {height, width, CV_32FC(channels), const_cast<float*>(samples)};
}

cv::Mat WrapSamples(Image& image) {
  return {image.height, image.width, CV_32FC(image.channels), image.samples.data()};
}

cv::Mat ToWorkingMat(const ImageView& view) {
  CheckShape(view);
  if (!AllFinite(view.data, view.sampleCount)) {
    throw std::invalid_argument("Image contains non-finite samples.");
  }
  const cv::Mat samples = WrapSamples(view.data, view.width, view.height, view.channels);
  return view.channels == 1 ? GrayToRgb(samples) : samples;
}

Image ToImage(const cv::Mat& matrix, std::int32_t channels, cv::Size target) {
  cv::Mat source = matrix.size() == target ? matrix : DownsampleGrid2x(matrix, target);
  if (channels == 1 && source.channels() == 3) {
    cv::Mat grey;
    cv::cvtColor(source, grey, cv::COLOR_RGB2GRAY);
    source = grey;
  }
  Image image{.samples = {}, .width = target.width, .height = target.height, .channels = channels};
  const std::size_t count = SamplesPerRow(source);
  image.samples.reserve(count * static_cast<std::size_t>(source.rows));
  for (int r = 0; r < source.rows; ++r) {
    const auto* row = source.ptr<float>(r);
    image.samples.insert(image.samples.end(), row, row + count);
  }
  return image;
}

}  // namespace project_lumen::core
