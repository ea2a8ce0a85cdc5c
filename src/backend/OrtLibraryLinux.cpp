#include "backend/OrtLibrary.h"

namespace project_lumen::backend {

const OrtApiBase& OrtLibraryBase() {
  return *OrtGetApiBase();
}

}  // namespace project_lumen::backend
