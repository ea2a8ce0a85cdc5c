#include "studio/results/ResultFile.h"

#include "studio/files/PathText.h"

namespace project_lumen::studio {

nlohmann::json DescribeResultFile(const ResultFile& file, const std::string& job) {
  return {{"role", file.role},       {"name", NameIn(file.path)},
          {"shown_path", file.path}, {"kept", file.isKept},
          {"file", file.id},         {"download", "/api/jobs/" + job + "/files/" + file.role}};
}

}  // namespace project_lumen::studio
