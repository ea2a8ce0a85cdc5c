#include "common/Assertion.h"

#include <opencv2/core.hpp>

namespace project_lumen {

void RaiseAssertion(const char* expression, const char* function, const char* file, int line) {
  throw cv::Exception(cv::Error::StsAssert, expression, function, file, line);
}

}  // namespace project_lumen
