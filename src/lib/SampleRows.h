// Rows of samples on their way between a caller's memory and matrices.
#pragma once

#include <opencv2/core/mat.hpp>

#include "lib/SampleLayout.h"

namespace project_lumen::lib {

// Copies rows into `packed`, interleaved, in the layout's depth and channels.
void ReadRows(const SampleLayout& layout, const cv::Range& rows, cv::Mat& packed);

// Copies `packed`, which has the layout's depth and channels, to the rows from `firstRow` on. Of
// one channel it goes to all channels of the layout.
void WriteRows(const SampleLayout& layout, const cv::Mat& packed, int firstRow);

}  // namespace project_lumen::lib
