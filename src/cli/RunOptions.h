// Everything that one processing run is told on the command line.
#pragma once

#include <cstdint>
#include <string>

namespace project_lumen::cli {

// Paths are UTF-8 and taken literally. An empty mask or unscreen path means "not wanted".
struct RunOptions {
  std::string inputPath;
  std::string outputPath = "starless.jpg";
  std::string maskPath;
  std::string unscreenPath;
  std::int32_t stride = 256;  // pixels between tile origins; checked by the run
  std::string weightsPath;    // resolved model file
  bool upsample = false;
  bool quiet = false;
  bool protectHighlights = true;
  bool machineProgress = false;  // one of the arguments is --machine-progress, whatever its place
  bool linear = false;
  double shadowsClipping = -2.8;   // multiple of the normalised MAD; checked by the run
  double targetBackground = 0.25;  // checked by the run
};

}  // namespace project_lumen::cli
