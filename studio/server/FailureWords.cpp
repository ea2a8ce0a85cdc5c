#include "studio/FailureWords.h"

#include "common/OutOfMemory.h"

namespace project_lumen::studio {

std::string WordsFor(const std::exception& error) {
  return MeansLackOfMemory(error) ? "There is not enough memory." : error.what();
}

}  // namespace project_lumen::studio
