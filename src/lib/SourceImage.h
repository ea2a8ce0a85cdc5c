// A caller's image as the core takes it.
#pragma once

#include <opencv2/core/mat.hpp>

#include "lib/SampleLayout.h"
#include "lib/Settings.h"

namespace project_lumen::lib {

// The white of stored samples: the greatest value of an integer type, or the settings' own.
double WhiteOf(const SampleLayout& layout, const Settings& settings);

// Finds out before any work whether an image can be processed with these settings: throws BadImage
// for its size, BadArgument for a `white` beside integers.
void CheckImage(const SampleLayout& layout, const Settings& settings);

// The image normalised: stored samples divided by white, in float32, or in float64 with `linear`.
// One channel for a grey image and for one of three equal channels, else three. Throws BadImage for
// floating samples that are not finite or lie outside of the range.
cv::Mat ReadSourceImage(const SampleLayout& layout, const Settings& settings);

}  // namespace project_lumen::lib
