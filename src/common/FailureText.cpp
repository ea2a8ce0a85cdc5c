#include "common/FailureText.h"

#include "common/OutOfMemory.h"

namespace project_lumen {

std::string FailureText(const std::exception& error) {
  return MeansLackOfMemory(error) ? "Not enough memory to process the image." : error.what();
}

}  // namespace project_lumen
