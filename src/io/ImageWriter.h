// Writing results, whatever their format: the face of this room towards those who have samples.
//
// A result goes through three hands: PrepareOutputImage brings normalised rows to what the file
// stores, ReadBackOutputImage tells what somebody who reads the file will get, and an ImageWriter
// takes the prepared rows and writes the file. All of them work on any band of rows.
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

#include "io/LinearOutputInfo.h"
#include "io/OutputReport.h"
#include "io/OutputRole.h"
#include "io/RowSink.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::io {

class FitsWriter;
class RasterWriter;

// One result: where it goes, what it is, and what its file takes over from the source. Only refers
// to the descriptions.
struct OutputFile {
  std::string path;  // its end chooses the format
  OutputRole role = OutputRole::kMain;
  const SourceImageInfo& source;
  const LinearOutputInfo* linear = nullptr;  // null unless the run is linear
};

// Finds out early whether a result of this size can be written: throws what writing would throw for
// the path itself, its extension, its folder, what lies there now, and what its format can hold.
// Leaves nothing behind.
void CheckOutputTarget(const OutputFile& file, cv::Size size);

OutputDescription DescribeOutput(const OutputFile& file);

// Whether samples read back from a file at this path depend on more than their own rounding, so
// that ReadBackOutputImage may throw.
bool CanReadBackFail(const std::string& path);

// Rows ready to be written. `image`: CV_32F or CV_64F, one channel for a grayscale source, else
// three in R, G, B order; 1.0 is white. For a raster format they are quantised (white is 255 or
// 65535, samples out of range saturate) and in B, G, R order; for FITS they stay.
cv::Mat PrepareOutputImage(const OutputFile& file, const cv::Mat& image);

// The rows `rows` of a main result as they will read back from the file: CV_64F, normalised, R, G,
// B order. `prepared` is the whole prepared image. Throws std::invalid_argument for samples that
// the storage type cannot hold.
cv::Mat ReadBackOutputImage(const OutputFile& file, const cv::Mat& prepared, const cv::Range& rows);

// Takes the prepared rows of one result, from top to bottom, and writes its file: beside its target
// first, which it then replaces whole. The file that was there stays as it was until then, and
// after any failure.
//
// Both functions throw std::invalid_argument with the message for the user, OpenCV's own exception
// for an extension that it has no encoder for, and std::bad_alloc. OpenCV's encoders may write to
// standard error.
class ImageWriter {
 public:
  ImageWriter(OutputFile file, cv::Size size);
  ~ImageWriter();
  ImageWriter(const ImageWriter&) = delete;
  ImageWriter& operator=(const ImageWriter&) = delete;

  // The next prepared rows. FITS and TIFF rows are written at once; others are kept until Finish,
  // where a band that is the whole image is not copied.
  void Append(const cv::Mat& rows);

  // Completes the file after its last row.
  OutputReport Finish();

 private:
  void Begin(const cv::Mat& rows);

  OutputFile file_;
  cv::Size size_;
  std::unique_ptr<FitsWriter> fits_;  // one of the two from the first rows on
  std::unique_ptr<RasterWriter> raster_;
};

}  // namespace project_lumen::io
