#include "studio/results/SaveBlend.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "io/ImageWriter.h"
#include "studio/images/ReadOpenedImage.h"
#include "studio/results/SampleRows.h"

namespace project_lumen::studio {
namespace {

void Read(const OpenedFile& file, const SessionFolder& session, SampleRows& rows) {
  io::ImageDescription description;
  ReadOpenedImage(file, session, io::ReadMode::kLinear, rows, description);
}

cv::Mat InChannels(const cv::Mat& rows, int channels) {
  if (rows.channels() == channels) {
    return rows;
  }
  cv::Mat channel;
  cv::extractChannel(rows, channel, 0);
  return channel;
}

}  // namespace

void WriteBlend(const OpenedFile& starless, const OpenedFile& unscreen,
                const BlendSettings& settings, const io::SourceImageInfo& source,
                const std::string& path, const SessionFolder& session) {
  constexpr int kRowsAtOnce = 64;
  SampleRows below(session);
  Read(starless, session, below);
  SampleRows stars(session);
  Read(unscreen, session, stars);
  if (below.Size() != stars.Size() || below.Type() != stars.Type()) {
    throw std::invalid_argument("The starless image and its star layer do not fit together.");
  }
  io::SourceImageInfo deep = source;
  if (deep.storedDepth >= 0) {
    deep.storedDepth = CV_16U;  // a blend of 8-bit layers has more levels than they
  }
  const io::OutputFile file{path, io::OutputRole::kMain, deep};
  const int channels = source.isGrayscale ? 1 : CV_MAT_CN(below.Type());
  WithImageFiles([&] {
    io::ImageWriter writer(file, below.Size());
    for (int first = 0; first < below.Size().height; first += kRowsAtOnce) {
      const cv::Range rows(first, std::min(first + kRowsAtOnce, below.Size().height));
      const cv::Mat blend = BlendStars(below.Read(rows), stars.Read(rows), settings);
      writer.Append(io::PrepareOutputImage(file, InChannels(blend, channels)));
    }
    writer.Finish();
  });
}

}  // namespace project_lumen::studio
