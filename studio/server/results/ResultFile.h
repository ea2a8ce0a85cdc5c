// A file that a run or a blend has written.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "studio/files/OpenedFile.h"

namespace project_lumen::studio {

struct ResultFile {
  std::string role;  // "starless", "mask", "unscreen" or "blend"
  std::string path;
  std::string id;         // of the workspace
  bool isKept = false;    // else it lives until the studio ends
  FileIdentity identity;  // as it was written
};

// As the page gets it; `job` is the id of the job that wrote it.
nlohmann::json DescribeResultFile(const ResultFile& file, const std::string& job);

}  // namespace project_lumen::studio
