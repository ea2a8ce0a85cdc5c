#include "studio/images/DisplayStretch.h"

#include <algorithm>
#include <cmath>

namespace project_lumen::studio {

MeasuredSamples MeasureSamples(const PixelPyramid& image) {
  const cv::Size size = image.Size();
  const auto pixels = static_cast<std::int64_t>(size.width) * size.height;
  int step = 1;
  while (pixels / (static_cast<std::int64_t>(step) * step) > kMostMeasured) {
    ++step;
  }
  MeasuredSamples samples;
  samples.isSampled = step > 1;
  samples.channels.resize(static_cast<std::size_t>(image.Channels()));
  for (int y = 0; y < size.height; y += step) {
    const cv::Mat row = image.Read(image.MaxLevel(), {0, y, size.width, 1});
    const float* sample = row.ptr<float>();
    for (int x = 0; x < size.width; x += step) {
      for (std::size_t c = 0; c < samples.channels.size(); ++c) {
        samples.channels[c].push_back(
            sample[static_cast<std::size_t>(x) * samples.channels.size() + c]);
      }
    }
  }
  return samples;
}

std::vector<core::MtfChannelStats> MeasureStretch(const PixelPyramid& image,
                                                  const StretchSettings& settings) {
  MeasuredSamples samples = MeasureSamples(image);
  std::vector<core::MtfChannelStats> channels;
  for (std::vector<float>& channel : samples.channels) {
    channels.push_back(
        core::MeasureChannel(channel, settings.shadowsClipping, settings.targetBackground));
  }
  return channels;
}

std::vector<core::MtfChannelStats> WithSettings(std::vector<core::MtfChannelStats> channels,
                                                const StretchSettings& settings) {
  for (core::MtfChannelStats& channel : channels) {
    core::ChooseTransfer(channel, settings.shadowsClipping, settings.targetBackground);
  }
  return channels;
}

bool LooksLinear(const std::vector<core::MtfChannelStats>& channels) {
  return std::all_of(channels.begin(), channels.end(), [](const core::MtfChannelStats& channel) {
    return channel.median < kLinearMedian;
  });
}

}  // namespace project_lumen::studio
