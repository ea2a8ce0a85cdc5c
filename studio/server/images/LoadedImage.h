// An image as it is shown: its samples on disk and what was found out when it was read.
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/MtfStatistics.h"
#include "io/ImageReader.h"
#include "studio/files/OpenedFile.h"
#include "studio/files/SessionFolder.h"
#include "studio/images/PixelPyramid.h"
#include "studio/images/SkyCoordinates.h"

namespace project_lumen::studio {

// Constant once read.
struct LoadedImage {
  std::shared_ptr<const PixelPyramid> pixels;
  io::ImageDescription description;
  std::vector<core::MtfChannelStats> stretch;  // with the default settings
  std::optional<SkyCoordinates> sky;
  std::string unit;                   // BUNIT; empty when there is none
  std::vector<std::string> warnings;  // what the shown image lacks of its file

  // The value that a normalised sample has in the file's own units: times K, and a whole number
  // where the file stores whole numbers that float32 holds.
  [[nodiscard]] double Stored(double normalised) const;
  // The type of the values in the file's own units: "uint16", "float32" and so on.
  [[nodiscard]] std::string ValueType() const;
};

// Reads the image in a file that was opened. Throws std::invalid_argument with the message for the
// user, ApiError 507 where there is no room for it, std::bad_alloc.
std::shared_ptr<const LoadedImage> LoadImage(const OpenedFile& file, const SessionFolder& session);

// Only the pixels of a result, which has the size and the channels of its source. Throws the same,
// and std::invalid_argument where it has not.
std::shared_ptr<const PixelPyramid> LoadPixels(const OpenedFile& file, const PixelPyramid& like,
                                               const SessionFolder& session);

}  // namespace project_lumen::studio
