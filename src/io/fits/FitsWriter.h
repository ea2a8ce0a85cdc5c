// Writes results as FITS images.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core/mat.hpp>

#include "io/LinearOutputInfo.h"
#include "io/OutputReport.h"
#include "io/OutputRole.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::io {

// Finds out early whether an output can be written to this path: throws what a FitsWriter throws
// for its folder and for what lies there now. Leaves nothing behind.
void CheckFitsTarget(const std::string& path);

// One result on its way into a FITS file. Refers to the descriptions only.
struct FitsResult {
  cv::Size size;
  int channels = 1;          // of the rows: 1, or 3 interleaved (R, G, B)
  bool isGrayscale = false;  // one plane is written, the first channel
  // Null unless the input was FITS; then storage type, scaling, cube layout and header cards of the
  // source are kept, and samples become physical values:
  //   main, difference: sample * K;
  //   unscreen: the sample itself for float storage, sample * K for integer storage.
  // Without a FITS source the samples are stored as they are, in float32.
  const SourceImageInfo* source = nullptr;
  OutputRole role = OutputRole::kMain;
  const LinearOutputInfo* linear = nullptr;  // null unless the run is linear
};

// A new FITS file with one image, gzip-compressed where the path ends in ".gz", that takes its rows
// from top to bottom. It is written beside its target and renamed over it once complete; without
// Finish, and after any failure, the target is as it was and nothing else is left. All functions
// throw std::invalid_argument with the user's message.
class FitsWriter {
 public:
  FitsWriter(const std::string& path, const FitsResult& result);
  ~FitsWriter();
  FitsWriter(const FitsWriter&) = delete;
  FitsWriter& operator=(const FitsWriter&) = delete;

  // The next rows: float32 or float64, normalised so that 1.0 is K.
  void Append(const cv::Mat& rows);

  // Completes the file after its last row and puts it in its place.
  OutputReport Finish();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

// Writes a whole image in one go.
OutputReport WriteFitsOutput(const std::string& path, const cv::Mat& image, bool isGrayscale,
                             const SourceImageInfo* source, OutputRole role,
                             const LinearOutputInfo* linear);

// How WriteFitsOutput stores a result.
OutputDescription DescribeFitsOutput(const SourceImageInfo* source, OutputRole role);

// The main result, or some rows of it, as they would read back from the written file: float64,
// normalised, the image's size and channels. Throws as WriteFitsOutput does for samples that cannot
// be stored.
cv::Mat PreviewFitsOutput(const cv::Mat& image, const SourceImageInfo* source);

}  // namespace project_lumen::io
