// What a run costs at least: reads an image with OpenCV and writes images with it, as compressed as
// the program writes them.
//
//   opencv_copy INPUT OUTPUT.tif...
//
// Each output exists and is decoded beforehand; it is written to OUTPUT.tif.copy.tif. Prints the
// seconds that reading the input and writing the outputs took, and the processor's time for it.
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLzw = 5;

// Adds up what `work` takes.
struct Cost {
  double wall = 0.0;
  double cpu = 0.0;

  template <typename Work>
  void Add(Work work) {
    const Clock::time_point begin = Clock::now();
    const std::clock_t cpuBegin = std::clock();
    work();
    wall += std::chrono::duration<double>(Clock::now() - begin).count();
    cpu += static_cast<double>(std::clock() - cpuBegin) / CLOCKS_PER_SEC;
  }
};

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
  Cost cost;
  cost.Add([&paths] { Read(paths.front()); });
  for (std::size_t i = 1; i < paths.size(); ++i) {
    const cv::Mat image = Read(paths[i]);
    cost.Add([&] {
      if (!cv::imwrite(paths[i] + ".copy.tif", image, {cv::IMWRITE_TIFF_COMPRESSION, kLzw})) {
        std::cerr << "Unable to write beside " << paths[i] << '\n';
        std::exit(1);
      }
    });
  }
  std::cout << cost.wall << '\n' << cost.cpu << '\n';
}
