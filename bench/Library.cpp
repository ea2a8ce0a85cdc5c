// What a call of the library costs beside the program's own work on the same image, without reading
// and writing: library_calls [--stride N] IMAGE.tif
//
// Both take turns in one process with the network that comes with them, so that they meet the same
// load. The times are the process's processor time and wall time; the median ratio of the pairs
// counts.
#include <nebulex/nebulex.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/Nebulex2/Nebulex2Model.h"
#include "cli/RunOptions.h"
#include "common/IntegerSamples.h"
#include "io/ImageReader.h"

namespace {

using project_lumen::cli::Nebulex2Model;
using project_lumen::cli::RunOptions;

constexpr int kRounds = 5;

struct Seconds {
  double wall;
  double processor;
};

std::ostream& operator<<(std::ostream& stream, const Seconds& seconds) {
  return stream << seconds.wall << " s (" << seconds.processor << " s of the processor)";
}

template <typename Work>
Seconds Measure(Work work) {
  const auto wall = std::chrono::steady_clock::now();
  const std::clock_t processor = std::clock();
  work();
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - wall;
  return {passed.count(), static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC};
}

// The program's run between reading and writing: it opens the network, too.
Seconds MeasureProgram(const RunOptions& options) {
  const int threads = cv::getNumThreads();
  cv::setNumThreads(1);
  Nebulex2Model model(options);
  model.LoadInput();
  const Seconds seconds = Measure([&model] { model.Run(); });
  cv::setNumThreads(threads);
  return seconds;
}

// The image's 16-bit samples, RGB or grey.
cv::Mat ReadSamples(const std::string& path) {
  project_lumen::io::WholeImage image;
  project_lumen::io::ImageDescription description;
  project_lumen::io::ReadImage(path, project_lumen::io::ReadMode::kDisplay, image, description);
  cv::Mat samples;
  project_lumen::QuantiseToIntegers(image.Release(), CV_16U, samples);
  return samples;
}

class LibraryCall {
 public:
  LibraryCall(const cv::Mat& image, std::int32_t stride)
      : image_(image), starless_(image.size(), image.type()) {
    settings_.stride = stride;
    callbacks_.stopRequested = [] { return false; };
  }

  void Run(const nebulex::Model& model) {
    const nebulex::View view{image_.data, image_.cols, image_.rows, image_.channels(),
                             NEBULEX_U16, 0,           0,           0};
    nebulex::Results results;
    results.starless = {starless_.data, image_.cols, image_.rows, image_.channels(),
                        NEBULEX_U16,    0,           0,           0};
    model.RemoveStars(view, results, settings_, callbacks_);
  }

 private:
  cv::Mat image_;
  cv::Mat starless_;
  nebulex::Settings settings_;
  nebulex::Callbacks callbacks_;
};

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Report(const char* name, const std::vector<double>& wall,
            const std::vector<double>& processor) {
  std::cout << name << ": wall " << Median(wall) << ", processor " << Median(processor) << '\n';
}

void Compare(const std::string& path, std::int32_t stride) {
  RunOptions options;
  options.inputPath = path;
  options.outputPath = (std::filesystem::temp_directory_path() / "nebulex-bench.tif").string();
  options.weightsPath = NEBULEX_BENCH_WEIGHTS;
  options.stride = stride;
  options.quiet = true;
  LibraryCall call(ReadSamples(path), stride);

  std::vector<double> wall;
  std::vector<double> processor;
  std::vector<double> laterWall;
  std::vector<double> laterProcessor;
  for (int round = 0; round < kRounds; ++round) {
    const Seconds program = MeasureProgram(options);
    std::optional<nebulex::Model> model;
    const Seconds first = Measure([&] {
      model.emplace(options.weightsPath);
      call.Run(*model);
    });
    const Seconds second = Measure([&] { call.Run(*model); });
    wall.push_back(first.wall / program.wall);
    processor.push_back(first.processor / program.processor);
    laterWall.push_back(second.wall / first.wall);
    laterProcessor.push_back(second.processor / first.processor);
    std::cout << "program " << program << ", first call " << first << ", second call " << second
              << std::endl;
  }
  Report("first image, library / program", wall, processor);
  Report("second image / first image", laterWall, laterProcessor);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  std::int32_t stride = 256;
  if (arguments.size() == 3 && arguments[0] == "--stride") {
    stride = std::stoi(arguments[1]);
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  if (arguments.size() != 1) {
    std::cerr << "Usage: library_calls [--stride N] IMAGE.tif\n";
    return 1;
  }
  try {
    Compare(arguments[0], stride);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
