// What a run costs at least: reads an image with OpenCV and writes images with it, as compressed as
// the program writes them.
//
//   opencv_copy INPUT OUTPUT.tif...
//
// Each output exists and is decoded beforehand; it is written to OUTPUT.tif.copy.tif. Prints the
// seconds of reading the input and of writing the outputs, in two lines.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLzw = 5;

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

cv::Mat Read(const std::string& path) {
  cv::Mat image = cv::imread(path, cv::IMREAD_UNCHANGED);
  if (image.empty()) {
    std::cerr << "Unable to read " << path << '\n';
    std::exit(1);
  }
  return image;
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::vector<std::string> paths(argv + 1, argv + argc);
  if (paths.size() < 2) {
    std::cerr << "usage: opencv_copy INPUT OUTPUT.tif...\n";
    return 1;
  }
  cv::setNumThreads(1);
  Clock::time_point begin = Clock::now();
  Read(paths.front());
  const double reading = SecondsSince(begin);
  double writing = 0.0;
  for (std::size_t i = 1; i < paths.size(); ++i) {
    const cv::Mat image = Read(paths[i]);
    begin = Clock::now();
    if (!cv::imwrite(paths[i] + ".copy.tif", image, {cv::IMWRITE_TIFF_COMPRESSION, kLzw})) {
      std::cerr << "Unable to write beside " << paths[i] << '\n';
      return 1;
    }
    writing += SecondsSince(begin);
  }
  std::cout << reading << '\n' << writing << '\n';
}
