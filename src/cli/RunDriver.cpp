#include "cli/RunDriver.h"

#include <exception>
#include <opencv2/core/utility.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <stdexcept>

#include "cli/Nebulex2/Nebulex2Model.h"
#include "common/FailureText.h"
#include "common/UnfinishedFiles.h"

namespace project_lumen::cli {
namespace {

// Standard error belongs to our records, and one image stays on one thread.
void SilenceAndConfineOpenCv() {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; });
  cv::setNumThreads(1);
}

void Process(const RunOptions& options) {
  Nebulex2Model model(options);
  model.LoadInput();
  model.Run();
  model.WriteOutputs();
}

}  // namespace

void RunStarRemoval(const std::string& modelContext, const RunOptions& options) {
  SilenceAndConfineOpenCv();
  RemoveUnfinishedFilesOnSignals();
  try {
    Process(options);
  } catch (const std::exception& error) {
    throw std::runtime_error(FailureText(error) + "\n" + modelContext);
  }
}

}  // namespace project_lumen::cli
