#include "cli/Nebulex2/Nebulex2Input.h"

#include <opencv2/core.hpp>
#include <utility>

#include "cli/Nebulex2/InputRecords.h"
#include "common/StandardErrorDiversion.h"
#include "io/ImageReader.h"

namespace project_lumen::cli {
namespace {

// Reads the image and tells what was found out, whether or not it could be read.
cv::Mat ReadAndReport(const std::string& path, io::ReadMode mode, const DiagnosticsSink& sink,
                      io::SourceImageInfo& source) {
  io::ImageDescription description;
  io::WholeImage image;
  try {
    const StandardErrorDiversion diversion;
    io::ReadImage(path, mode, image, description);
  } catch (...) {
    ReportInput(description, mode, sink);
    throw;
  }
  ReportInput(description, mode, sink);
  source = std::move(description.source);
  return image.Release();
}

cv::Mat FirstChannel(const cv::Mat& image) {
  if (image.channels() == 1) {
    return image;
  }
  cv::Mat channel;
  cv::extractChannel(image, channel, 0);
  return channel;
}

}  // namespace

LoadedInput LoadInputImage(const std::string& path, bool upsample, bool linear,
                           const DiagnosticsSink& sink) {
  EmitInfo(sink, "input", "Reading " + path);
  LoadedInput input;
  const io::ReadMode mode = linear ? io::ReadMode::kLinear : io::ReadMode::kDisplay;
  const cv::Mat samples = ReadAndReport(path, mode, sink, input.info);
  input.sourceSamples = input.info.isGrayscale ? FirstChannel(samples) : samples;
  EmitInfo(sink, "input_geometry",
           "width=" + std::to_string(input.sourceSamples.cols) +
               " height=" + std::to_string(input.sourceSamples.rows) +
               " interpretation=" + (input.info.isGrayscale ? "grayscale" : "RGB"));
  if (upsample) {
    EmitInfo(sink, "intermediate_sampling",
             "2x grid-aligned cubic upsampling; output selects original grid samples without "
             "averaging");
  }
  return input;
}

}  // namespace project_lumen::cli
