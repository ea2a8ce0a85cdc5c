// What the raster formats other than TIFF cannot hold.
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

namespace project_lumen::io {

// Why the format that the path's extension names cannot hold an image of this size and type, with
// what to choose instead; empty where it can, as far as is known. TIFF holds any.
std::string FormatObstacle(const std::string& path, cv::Size size, int type);

}  // namespace project_lumen::io
