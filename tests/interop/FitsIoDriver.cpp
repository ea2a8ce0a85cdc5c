// Lets the interop scripts read and write FITS files with the program's own code:
//   copy INPUT OUTPUT ROLE LINEAR   an image as it was read, written as the result of a role (main,
//                                   difference, unscreen); LINEAR is 1 for a linear run
//   make OUTPUT ROLE CHANNELS       a small ramp without a FITS source
//   read LINEAR INPUT...            one line a file: its path, and "ok" or the error message
#include <exception>
#include <iostream>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/Diagnostics.h"
#include "io/FitsReader.h"
#include "io/FitsWriter.h"

namespace {

namespace io = project_lumen::io;
using Arguments = std::vector<std::string>;

project_lumen::DiagnosticsSink Sink() {
  return {true, false, std::cerr};
}

io::OutputRole RoleNamed(const std::string& name) {
  if (name == "main") {
    return io::OutputRole::kMain;
  }
  return name == "difference" ? io::OutputRole::kDifference : io::OutputRole::kUnscreen;
}

bool HasEqualChannels(const cv::Mat& image) {
  std::vector<cv::Mat> channels;
  cv::split(image, channels);
  return channels.size() == 1 || (cv::norm(channels[0], channels[1], cv::NORM_L1) == 0.0 &&
                                  cv::norm(channels[0], channels[2], cv::NORM_L1) == 0.0);
}

void Copy(const Arguments& arguments) {
  const bool isLinear = arguments.at(4) == "1";
  io::FitsImage read = io::ReadFitsImage(arguments.at(1), isLinear, Sink());
  io::SourceImageInfo source;
  source.isFits = true;
  source.isGrayscale = HasEqualChannels(read.image);
  source.fits = std::move(read.info);
  source.fixedDivisor = source.fits.fixedDivisor;
  cv::Mat image = read.image;
  if (source.isGrayscale) {
    cv::extractChannel(read.image, image, 0);
  }
  io::LinearOutputInfo linear;
  linear.divisor = source.fixedDivisor;
  linear.upperClipped = source.fits.upperClipped;
  linear.channels.assign(static_cast<std::size_t>(image.channels()), {0.25, false});
  linear.sourceSamples = image;
  io::WriteFitsOutput(arguments.at(2), image, source.isGrayscale, &source,
                      RoleNamed(arguments.at(3)), isLinear ? &linear : nullptr, Sink());
}

void Make(const Arguments& arguments) {
  cv::Mat image(20, 30, CV_MAKETYPE(CV_32F, std::stoi(arguments.at(3))));
  const std::size_t count = image.total() * static_cast<std::size_t>(image.channels());
  for (std::size_t i = 0; i < count; ++i) {
    image.ptr<float>()[i] = static_cast<float>(i) / static_cast<float>(count);
  }
  io::WriteFitsOutput(arguments.at(1), image, image.channels() == 1, nullptr,
                      RoleNamed(arguments.at(2)), nullptr, Sink());
}

void Read(const Arguments& arguments) {
  for (std::size_t i = 2; i < arguments.size(); ++i) {
    std::cout << arguments[i] << std::flush;
    try {
      io::ReadFitsImage(arguments[i], arguments[1] == "1", Sink());
      std::cout << " ok\n";
    } catch (const std::invalid_argument& error) {
      std::cout << ' ' << error.what() << '\n';
    }
  }
}

void Run(const Arguments& arguments) {
  const std::string& command = arguments.at(0);
  if (command == "copy") {
    Copy(arguments);
  } else if (command == "make") {
    Make(arguments);
  } else if (command == "read") {
    Read(arguments);
  } else {
    throw std::runtime_error("unknown command " + command);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(Arguments(argv + 1, argv + argc));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
