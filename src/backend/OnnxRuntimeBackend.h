// The star-removal network, ready to run: a model opened with ONNX Runtime on the first execution
// provider that works.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace project_lumen::backend {

// Receives one line for each provider that failed and for the fallback to the CPU. May be empty.
using MessageCallback = std::function<void(const std::string&)>;

// What the choice of a provider asks of the system.
struct ProviderPlatform {
  bool cudaLibraryPresent;     // CUDA is tried only then
  const void* runtimeAddress;  // an address inside the loaded ONNX Runtime library
};

// The provider library beside the executable, and the ONNX Runtime that the program is linked with.
ProviderPlatform SystemProviderPlatform();

struct BackendState;

// An active session. All calls belong to one thread.
class OnnxRuntimeBackend {
 public:
  // Reads and prepares the model, then tries CUDA, DirectML and the CPU in this order; accepted is
  // the first whose session runs one warmup tile of windowSize x windowSize pixels. With `quiet`
  // ONNX Runtime logs fatal messages only, else warnings too.
  //
  // Throws std::runtime_error: the message of what failed, a line feed, and the model context.
  OnnxRuntimeBackend(const std::string& modelPath, int windowSize,
                     const MessageCallback& messageCallback, bool quiet);
  OnnxRuntimeBackend(const std::string& modelPath, int windowSize,
                     const MessageCallback& messageCallback, bool quiet,
                     const ProviderPlatform& platform);
  ~OnnxRuntimeBackend();
  OnnxRuntimeBackend(const OnnxRuntimeBackend&) = delete;
  OnnxRuntimeBackend& operator=(const OnnxRuntimeBackend&) = delete;

  // "CUDA execution provider", "DirectML execution provider" or "CPU execution provider"
  [[nodiscard]] const std::string& ProviderName() const;

  // The network's output for one tile: CV_32FC3, continuous, any size that the model takes; a new
  // image of the same size and type. The samples are not judged: NaN stays NaN.
  //
  // Throws std::runtime_error: "ONNX Runtime input image is empty.", "ONNX Runtime input image must
  // be CV_32FC3.", "ONNX Runtime input image must be continuous.", and the texts of
  // RunSessionChecked for the stage "inference". The backend stays usable.
  cv::Mat InferTile(const cv::Mat& tile);
  // The same as plain samples, rows x columns x RGB; throws the same.
  std::vector<float> InferSamples(const cv::Mat& tile);

 private:
  std::unique_ptr<BackendState> state_;
};

}  // namespace project_lumen::backend
