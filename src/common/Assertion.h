// Precondition checks that raise OpenCV's assertion error.
#pragma once

namespace project_lumen {

// Throws cv::Exception with code -215 (cv::Error::StsAssert). OpenCV's own CV_Assert names only the
// bare function on GCC; these messages name the fully qualified one.
[[noreturn]] void RaiseAssertion(const char* expression, const char* function, const char* file,
                                 int line);

}  // namespace project_lumen

// Checks `expression`, whose source text becomes part of the message; `function` is the fully
// qualified name of the function that states the requirement.
#define NEBULEX_ASSERT(function, expression)                                      \
  do {                                                                            \
    if (!(expression)) {                                                          \
      ::project_lumen::RaiseAssertion(#expression, function, __FILE__, __LINE__); \
    }                                                                             \
  } while (false)
