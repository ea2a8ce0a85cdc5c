#include "lib/SourceImage.h"

#include <cstdint>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

#include "common/EqualChannels.h"
#include "common/IntegerSamples.h"
#include "common/NumberText.h"
#include "common/RangeStatistics.h"
#include "common/RowBands.h"
#include "core/SettingRules.h"
#include "lib/Errors.h"
#include "lib/SampleRows.h"

namespace project_lumen::lib {
namespace {

bool IsFloating(const SampleLayout& layout) {
  return layout.depth == CV_32F || layout.depth == CV_64F;
}

// What is missing, for an image that is too small.
std::string SizeHint(const cv::Size& size, const core::ProcessingSettings& settings) {
  const int least = settings.upsample ? core::kWindow / 2 : core::kWindow;
  if (size.width >= least && size.height >= least) {
    return "";
  }
  const auto area = [](int width, int height) {
    return std::to_string(width) + " x " + std::to_string(height);
  };
  std::string hint = " It has " + area(size.width, size.height) + " pixels and needs at least " +
                     area(least, least);
  if (!settings.upsample) {
    hint += ", or " + area(core::kWindow / 2, core::kWindow / 2) + " with upsample";
  }
  return hint + ".";
}

template <typename Stored>
void MeasureRows(const cv::Mat& stored, double white, RangeStatistics& range) {
  for (int r = 0; r < stored.rows; ++r) {
    const auto* samples = stored.ptr<Stored>(r);
    const int count = stored.cols * stored.channels();
    for (int i = 0; i < count; ++i) {
      range.Add(static_cast<double>(samples[i]), white);
    }
  }
}

// As io reads floating samples of FITS files: narrowed to float32 for the display path. Division by
// 1 changes nothing.
template <typename Stored, typename Normalised>
void NormaliseRows(const cv::Mat& stored, double white, cv::Mat& normalised) {
  for (int r = 0; r < stored.rows; ++r) {
    const auto* from = stored.ptr<Stored>(r);
    auto* to = normalised.ptr<Normalised>(r);
    const int count = stored.cols * stored.channels();
    for (int i = 0; i < count; ++i) {
      to[i] = static_cast<Normalised>(static_cast<double>(from[i]) / white);
    }
  }
}

template <typename Stored>
void TakeFloatingRows(const cv::Mat& stored, double white, cv::Mat& normalised,
                      RangeStatistics& range) {
  MeasureRows<Stored>(stored, white, range);
  if (normalised.depth() == CV_64F) {
    NormaliseRows<Stored, double>(stored, white, normalised);
  } else {
    NormaliseRows<Stored, float>(stored, white, normalised);
  }
}

void JudgeRange(const RangeStatistics& range, const Settings& settings) {
  if (range.finite != range.samples) {
    throw BadImage("Image contains " + std::to_string(range.samples - range.finite) +
                   " non-finite sample(s); repair the image upstream.");
  }
  const bool reachesBelow = range.belowZero != 0 && !settings.processing.linear;
  if (!reachesBelow && range.aboveOne == 0) {
    return;
  }
  throw BadImage("Floating-point samples must lie within [0," + FormatReal(settings.white) +
                 "]. Observed range: [" + FormatReal(range.minimum) + ", " +
                 FormatReal(range.maximum) +
                 "]. Say as white which number stands for white; the range found is not used to "
                 "rescale the image.");
}

cv::Mat WithOneChannelIfGrey(const cv::Mat& image) {
  if (image.channels() == 1 || !HasEqualChannels(image)) {
    return image;
  }
  cv::Mat grey;
  cv::extractChannel(image, grey, 0);
  return grey;
}

}  // namespace

double WhiteOf(const SampleLayout& layout, const Settings& settings) {
  return IsFloating(layout) ? settings.white : IntegerWhite(layout.depth);
}

void CheckImage(const SampleLayout& layout, const Settings& settings) {
  if (!IsFloating(layout) && settings.white != 1.0) {
    throw BadArgument(
        "settings.white is for floating samples. Of integers the greatest value is "
        "white.");
  }
  try {
    core::CheckImageSize(layout.size, settings.processing);
  } catch (const std::invalid_argument& error) {
    throw BadImage(error.what() + SizeHint(layout.size, settings.processing));
  }
}

cv::Mat ReadSourceImage(const SampleLayout& layout, const Settings& settings) {
  const int depth = settings.processing.linear ? CV_64F : CV_32F;
  cv::Mat normalised(layout.size, CV_MAKETYPE(depth, layout.channels));
  RangeStatistics range;
  cv::Mat stored;
  ForEachRowBand(normalised, [&](const cv::Range& rows) {
    ReadRows(layout, rows, stored);
    cv::Mat part = normalised.rowRange(rows);
    switch (layout.depth) {
      case CV_32F:
        return TakeFloatingRows<float>(stored, settings.white, part, range);
      case CV_64F:
        return TakeFloatingRows<double>(stored, settings.white, part, range);
      default:
        return NormaliseIntegers(stored, depth, part);
    }
  });
  JudgeRange(range, settings);
  return WithOneChannelIfGrey(normalised);
}

}  // namespace project_lumen::lib
