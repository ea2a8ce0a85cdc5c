#include "cli/OutputPaths.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "common/PlatformFiles.h"
#include "common/StandardErrorDiversion.h"
#include "io/ImageWriter.h"

namespace project_lumen::cli {
namespace {

std::vector<std::string> WantedOutputs(const RunOptions& options) {
  std::vector<std::string> paths = {options.outputPath};
  for (const std::string* layer : {&options.maskPath, &options.unscreenPath}) {
    if (!layer->empty()) {
      paths.push_back(*layer);
    }
  }
  return paths;
}

}  // namespace

void RequireDistinctOutputs(const RunOptions& options) {
  const std::vector<std::string> paths = WantedOutputs(options);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    for (std::size_t k = i + 1; k < paths.size(); ++k) {
      if (LeadToSameFile(paths[i], paths[k])) {
        throw std::invalid_argument("Two outputs have the same path: " + paths[k]);
      }
    }
  }
}

void RequireWritableOutputs(const RunOptions& options, const io::SourceImageInfo& source,
                            cv::Size size) {
  const StandardErrorDiversion diversion;
  for (const std::string& path : WantedOutputs(options)) {
    io::CheckOutputTarget({.path = path, .source = source}, size);
  }
}

}  // namespace project_lumen::cli
