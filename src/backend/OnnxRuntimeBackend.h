// The star-removal network, ready to run: a model opened with ONNX Runtime on the first execution
// provider that works. It knows nothing of images: tiles of any number of them can go through it,
// one after another or in turns.
#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "backend/MessageCallback.h"

namespace project_lumen::backend {

// What the choice of a provider asks of the system.
struct ProviderPlatform {
  bool cudaLibraryPresent;     // CUDA is tried only then
  const void* runtimeAddress;  // an address inside the loaded ONNX Runtime library
  int intraThreads = 0;        // for every session; 0 leaves their number to ONNX Runtime
  bool cpuOnly = false;        // nothing but the CPU is tried
};

// The provider library beside the executable, the ONNX Runtime that the program is linked with, and
// the processors that the process may use. ONNX Runtime counts those of the machine: where they are
// more, its threads would crowd the allowed ones, or run on foreign ones.
ProviderPlatform SystemProviderPlatform();

// The same for code in a shared library of somebody else's program: the provider library beside
// ONNX Runtime's own, where that looks for it.
ProviderPlatform LibraryProviderPlatform();

struct BackendState;

// An active session. It may be used from several threads at once, which take turns, a tile each;
// the output of a tile does not depend on the others. Messages come on the thread whose call they
// belong to and while no turn is taken, so that what they call may use the session too.
class OnnxRuntimeBackend {
 public:
  // Reads and prepares the model, then tries CUDA, DirectML and the CPU in this order; accepted is
  // the first whose session runs one warmup tile of windowSize x windowSize pixels. With `quiet`
  // ONNX Runtime logs fatal messages only, else warnings too; where several sessions live at once,
  // the first one's choice holds for all. The callback also gets what is logged of later tiles, so
  // what it refers to has to outlive the session.
  //
  // Throws std::runtime_error: the message of what failed, a line feed, and the model context; and
  // std::bad_alloc.
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

  // The network's output for one tile (CV_32FC3, continuous, any size that the model takes) as
  // plain samples, rows x columns x RGB. They are not judged: NaN stays NaN.
  //
  // Throws std::runtime_error: "ONNX Runtime input image is empty.", "ONNX Runtime input image must
  // be CV_32FC3.", "ONNX Runtime input image must be continuous.", and the texts of
  // RunSessionChecked for the stage "inference". The backend stays usable.
  std::vector<float> InferTile(const cv::Mat& tile);

  // The same, but that `messages` gets what belongs to this tile, and that a stop ends it soon,
  // also while it waits for its turn: after the node of the network that is being computed. Throws
  // InferenceStopped (backend/SessionRun.h) then.
  std::vector<float> InferTile(const cv::Mat& tile, const std::stop_token& stop,
                               const MessageCallback& messages);

 private:
  std::unique_ptr<BackendState> state_;
};

}  // namespace project_lumen::backend
