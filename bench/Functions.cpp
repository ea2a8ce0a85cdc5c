// The functions that touch every sample, each beside a plain copy of the same bytes: both report
// bytes per second, counted as what the function reads and writes at least once.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "backend/HalfFloat.h"
#include "common/GridAlignedResample.h"
#include "common/RangeStatistics.h"
#include "core/FixedLinearMtf.h"
#include "core/LinearMtf.h"
#include "core/MtfStatistics.h"
#include "core/ReflectPadding.h"
#include "core/StarLayers.h"
#include "core/TileGeometry.h"
#include "core/TiledInference.h"
#include "io/fits/FitsReader.h"
#include "io/fits/FitsWriter.h"
#include "io/raster/RasterReader.h"
#include "io/raster/RasterWriter.h"

namespace project_lumen {
namespace {

constexpr int kRows = 2048;
constexpr int kColumns = 3072;
constexpr int kWindow = 512;
constexpr int kStride = 256;
constexpr double kShadowsClipping = -2.8;
constexpr double kTargetBackground = 0.25;

// A sky with noise, and pixels up to white.
cv::Mat MakeImage(int type, double white = 1.0) {
  cv::Mat image(kRows, kColumns, CV_MAKETYPE(CV_64F, CV_MAT_CN(type)));
  cv::RNG random(20240607);
  random.fill(image, cv::RNG::NORMAL, 0.1 * white, 0.03 * white);
  image = cv::max(image, 0.0);
  for (int i = 0; i < kRows * 4; ++i) {
    const cv::Rect star(random.uniform(0, kColumns - 4), random.uniform(0, kRows - 4), 4, 4);
    image(star).setTo(cv::Scalar::all(random.uniform(0.2, 1.0) * white));
  }
  cv::Mat converted;
  image.convertTo(converted, type);
  return converted;
}

// The same with its stars taken down.
cv::Mat MakeStarless(const cv::Mat& image) {
  return cv::min(image, 0.2);
}

std::int64_t BytesOf(const cv::Mat& image) {
  return static_cast<std::int64_t>(image.total() * image.elemSize());
}

// Runs `work` again and again, then says how many bytes went through it.
void Measure(benchmark::State& state, std::int64_t bytes, const std::function<void()>& work) {
  for ([[maybe_unused]] auto _ : state) {
    work();
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}

// Registers `work` and a copy that reads and writes as many bytes together.
void Register(const std::string& name, std::int64_t bytes, const std::function<void()>& work) {
  benchmark::RegisterBenchmark(name.c_str(), [bytes, work](benchmark::State& state) {
    Measure(state, bytes, work);
  })->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark((name + "/copy").c_str(), [bytes](benchmark::State& state) {
    const std::vector<char> from(static_cast<std::size_t>(bytes / 2), 1);
    std::vector<char> to(from.size());
    Measure(state, bytes, [&] { std::memcpy(to.data(), from.data(), from.size()); });
  })->Unit(benchmark::kMillisecond);
}

void RegisterResampling() {
  const cv::Mat small = MakeImage(CV_32FC3);
  const cv::Mat large = UpsampleGridCubic2x(small);
  Register("Upsample", BytesOf(small) + BytesOf(large),
           [small] { benchmark::DoNotOptimize(UpsampleGridCubic2x(small).data); });
  Register("Downsample", BytesOf(small) + BytesOf(large), [small, large] {
    benchmark::DoNotOptimize(DownsampleGrid2x(large, small.size()).data);
  });
}

void RegisterTiling() {
  const cv::Mat image = MakeImage(CV_32FC3);
  const core::TileGeometry geometry = core::ComputeTileGeometry(kColumns, kRows, kWindow, kStride);
  const std::int64_t padded =
      std::int64_t{geometry.paddedWidth} * geometry.paddedHeight * std::int64_t{3 * sizeof(float)};
  Register("PadReflect101", BytesOf(image) + padded, [image, geometry, part = cv::Mat()]() mutable {
    core::PadReflect101(image, geometry, {0, 0, geometry.paddedWidth, geometry.paddedHeight}, part);
  });
  // Cutting, the uniform test, weighting and adding: a network that hands its tile back. Each tile
  // is read and written, its answer read, the sum read and written.
  const std::int64_t tile = std::int64_t{kWindow} * kWindow * std::int64_t{3 * sizeof(float)};
  Register("TileLoop", 5 * tile * geometry.tileCount, [image] {
    benchmark::DoNotOptimize(
        core::RunTiledInference(image, kWindow, kStride, nullptr, [](const cv::Mat& t) {
          return t;
        }).data);
  });
}

void RegisterTransfer() {
  const cv::Mat image = MakeImage(CV_32FC3);
  const auto stats = core::ComputeMtfStatistics(image, kShadowsClipping, kTargetBackground);
  Register("ChannelMedians", BytesOf(image), [image] {
    benchmark::DoNotOptimize(
        core::ComputeMtfStatistics(image, kShadowsClipping, kTargetBackground).data());
  });
  cv::Mat work = image.clone();
  Register("MtfForward32", 2 * BytesOf(image),
           [work, stats]() mutable { core::ApplyLinearMtf(work, stats); });
  Register("MtfInverse32", 2 * BytesOf(image),
           [work = image.clone(), stats]() mutable { core::InvertLinearMtf(work, stats); });
  const cv::Mat source = MakeImage(CV_64FC3);
  const core::FixedLinearMtf mtf(source, 1.0, kShadowsClipping, kTargetBackground);
  const cv::Mat stretched = mtf.Stretch();
  Register("FixedMtfMeasure", BytesOf(source), [source] {
    const core::FixedLinearMtf measured(source, 1.0, kShadowsClipping, kTargetBackground);
    benchmark::DoNotOptimize(measured.Channels().data());
  });
  Register("FixedMtfForward", BytesOf(source) + BytesOf(stretched),
           [mtf] { benchmark::DoNotOptimize(mtf.Stretch().data); });
  Register("FixedMtfInverse", 2 * BytesOf(source) + BytesOf(stretched), [mtf, stretched] {
    benchmark::DoNotOptimize(mtf.InvertLinearPrediction(stretched).data);
  });
}

void RegisterLayers() {
  for (const int depth : {CV_32F, CV_64F}) {
    const std::string suffix = depth == CV_32F ? "32" : "64";
    const cv::Mat image = MakeImage(CV_MAKETYPE(depth, 3));
    const cv::Mat starless = MakeStarless(image);
    Register("ProtectHighlights" + suffix, 3 * BytesOf(image),
             [image, work = starless.clone()]() mutable {
               core::ProtectStarlessHighlights(image, work);
             });
    Register("StarMask" + suffix, 3 * BytesOf(image), [image, starless] {
      benchmark::DoNotOptimize(core::ComputeStarMask(image, starless).data);
    });
    Register("Unscreen" + suffix, 3 * BytesOf(image), [image, starless] {
      benchmark::DoNotOptimize(core::ComputeUnscreenStarLayer(image, starless, nullptr).data);
    });
    Register("CountSuppressed" + suffix, 2 * BytesOf(image), [image, starless] {
      benchmark::DoNotOptimize(core::CountSuppressedSamples(image, starless));
    });
  }
}

void RegisterStatistics() {
  for (const auto& [name, type, white] : {std::tuple{"RangeUint16", CV_16UC3, 65535.0},
                                          {"RangeFloat32", CV_32FC3, 1.0},
                                          {"RangeFloat64", CV_64FC3, 1.0}}) {
    const cv::Mat image = MakeImage(type, white);
    Register(name, BytesOf(image), [image, white = white] {
      benchmark::DoNotOptimize(MeasureRange(image, white).image.minimum);
    });
  }
  const std::vector<std::uint8_t> half(std::size_t{8} << 20U, 0x3A);
  Register("HalfToFloat", static_cast<std::int64_t>(half.size()) * 3,
           [half] { benchmark::DoNotOptimize(backend::ConvertHalfToFloatBytes(half).data()); });
}

void RegisterFiles(const std::filesystem::path& folder) {
  const std::string tiff = folder / "image.tif";
  const cv::Mat stored = MakeImage(CV_16UC3, 65535.0);
  const auto writeTiff = [tiff, stored] {
    io::RasterWriter writer(tiff, stored.size(), stored.type());
    writer.Append(stored);
    writer.Finish();
  };
  Register("TiffWrite", BytesOf(stored), writeTiff);
  writeTiff();
  Register("TiffRead", BytesOf(stored), [tiff] {
    io::RasterReader reader(tiff);
    benchmark::DoNotOptimize(reader.ReadRows(reader.Info().height).data);
  });

  const std::string fits = folder / "image.fits";
  const cv::Mat image = MakeImage(CV_32FC3);
  const cv::Mat capped = cv::min(image, 1.0);
  const auto write = [capped](const std::string& path) {
    io::WriteFitsOutput(path, capped, false, nullptr, io::OutputRole::kMain, nullptr);
  };
  write(fits);
  Register("FitsWrite", BytesOf(image), [write, fits] { write(fits); });
  for (const bool linear : {false, true}) {
    Register(linear ? "FitsReadLinear" : "FitsRead", BytesOf(image), [fits, linear] {
      io::FitsImageInfo info;
      io::InputReport report;
      benchmark::DoNotOptimize(io::ReadFitsImage(fits, linear, info, report).data);
    });
  }
}

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "nebulex2-bench-XXXXXX";
    path_ = mkdtemp(pattern.data());
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace
}  // namespace project_lumen

int main(int argc, char* argv[]) {
  cv::setNumThreads(1);
  const project_lumen::TemporaryFolder folder;
  project_lumen::RegisterResampling();
  project_lumen::RegisterTiling();
  project_lumen::RegisterTransfer();
  project_lumen::RegisterLayers();
  project_lumen::RegisterStatistics();
  project_lumen::RegisterFiles(folder.Path());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
