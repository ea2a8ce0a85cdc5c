// Lets the interop scripts read and write raster formats with the program's own code:
//   write OUTPUT WIDTH HEIGHT CHANNELS BITS SAMPLES [HEADER]   raw samples in BGR order to an image
//   append TIFF HEADER                                         an AstroTIFF header to a TIFF file
//   read INPUT SAMPLES                                         an image to raw samples in BGR order
//   read-header TIFF HEADER                                    a TIFF file's AstroTIFF header
// SAMPLES are files of native bytes, HEADER files of text.
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/raster/RasterReader.h"
#include "io/raster/RasterWriter.h"
#include "io/tiff/AstroTiff.h"

namespace {

namespace io = project_lumen::io;
using Arguments = std::vector<std::string>;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

void Write(const Arguments& arguments) {
  const int width = std::stoi(arguments.at(2));
  const int height = std::stoi(arguments.at(3));
  const int depth = arguments.at(5) == "8" ? CV_8U : CV_16U;
  std::string samples = ReadFile(arguments.at(6));
  const cv::Mat image(height, width, CV_MAKETYPE(depth, std::stoi(arguments.at(4))),
                      samples.data());
  if (samples.size() != image.total() * image.elemSize()) {
    throw std::runtime_error("the samples are not those of this image");
  }
  const std::string header = arguments.size() > 7 ? ReadFile(arguments.at(7)) : "";
  io::RasterWriter writer(arguments.at(1), image.size(), image.type(), header);
  writer.Append(image);
  writer.Finish();
}

void Read(const Arguments& arguments) {
  io::RasterReader reader(arguments.at(1));
  const cv::Mat image = reader.ReadRows(reader.Info().height);
  WriteFile(arguments.at(2),
            {reinterpret_cast<const char*>(image.data), image.total() * image.elemSize()});
}

void Run(const Arguments& arguments) {
  const std::string& command = arguments.at(0);
  if (command == "write") {
    Write(arguments);
  } else if (command == "append") {
    io::AppendAstroTiffMetadata(arguments.at(1), ReadFile(arguments.at(2)));
  } else if (command == "read") {
    Read(arguments);
  } else if (command == "read-header") {
    WriteFile(arguments.at(2), io::ReadAstroTiffHeader(arguments.at(1)));
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
