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
#include <vector>

#include "common/EqualChannels.h"
#include "io/fits/FitsReader.h"
#include "io/fits/FitsWriter.h"

namespace {

namespace io = project_lumen::io;
using Arguments = std::vector<std::string>;

io::OutputRole RoleNamed(const std::string& name) {
  if (name == "main") {
    return io::OutputRole::kMain;
  }
  return name == "difference" ? io::OutputRole::kDifference : io::OutputRole::kUnscreen;
}

void Copy(const Arguments& arguments) {
  const bool isLinear = arguments.at(4) == "1";
  io::InputReport report;
  io::SourceImageInfo source;
  cv::Mat image = io::ReadFitsImage(arguments.at(1), isLinear, source.fits, report);
  source.isFits = true;
  source.isGrayscale = image.channels() == 1 || project_lumen::HasEqualChannels(image);
  source.fixedDivisor = source.fits.fixedDivisor;
  if (source.isGrayscale) {
    cv::extractChannel(image, image, 0);
  }
  io::LinearOutputInfo linear;
  linear.divisor = source.fixedDivisor;
  linear.upperClipped = source.fits.upperClipped;
  linear.shadows.assign(static_cast<std::size_t>(image.channels()), 0.25);
  io::WriteFitsOutput(arguments.at(2), image, source.isGrayscale, &source,
                      RoleNamed(arguments.at(3)), isLinear ? &linear : nullptr);
}

void Make(const Arguments& arguments) {
  cv::Mat image(20, 30, CV_MAKETYPE(CV_32F, std::stoi(arguments.at(3))));
  const std::size_t count = image.total() * static_cast<std::size_t>(image.channels());
  for (std::size_t i = 0; i < count; ++i) {
    image.ptr<float>()[i] = static_cast<float>(i) / static_cast<float>(count);
  }
  io::WriteFitsOutput(arguments.at(1), image, image.channels() == 1, nullptr,
                      RoleNamed(arguments.at(2)), nullptr);
}

void Read(const Arguments& arguments) {
  for (std::size_t i = 2; i < arguments.size(); ++i) {
    std::cout << arguments[i] << std::flush;
    try {
      io::FitsImageInfo info;
      io::InputReport report;
      io::ReadFitsImage(arguments[i], arguments[1] == "1", info, report);
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
