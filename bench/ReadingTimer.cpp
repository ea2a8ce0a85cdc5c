// Reads an image as the studio does before it shows it, and nothing else: reading_timer IMAGE
// prints the seconds that io's reader takes and the most memory that was resident, in MB.
#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "io/ImageReader.h"

namespace {

// Rows that nobody wants.
class Nowhere : public project_lumen::io::RowSink {
 public:
  void Begin(cv::Size /*size*/, int /*type*/) override {}
  void Take(const cv::Mat& /*rows*/) override {}
};

long PeakMegabytes() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "VmHWM:") {
  }
  long kilobytes = 0;
  status >> kilobytes;
  return kilobytes / 1024;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::cerr << "usage: reading_timer IMAGE\n";
    return 1;
  }
  try {
    Nowhere rows;
    project_lumen::io::ImageDescription description;
    const auto begin = std::chrono::steady_clock::now();
    project_lumen::io::ReadImage(argv[1], project_lumen::io::ReadMode::kDisplay, rows, description);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::cout << time.count() << ' ' << PeakMegabytes() << '\n';
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
