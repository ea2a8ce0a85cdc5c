#include "io/files/InputPath.h"

#include <stdexcept>

#include "common/PlatformFiles.h"

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const std::string& problem, const std::string& path) {
  throw std::invalid_argument(problem + ": " + path);
}

[[noreturn]] void Fail(const std::string& problem, const std::string& path,
                       const std::error_code& reason) {
  throw std::invalid_argument(problem + ": " + path + " (" + reason.message() + ")");
}

}  // namespace

void CheckInputPath(const std::string& path) {
  CheckInputPath(path, FileStatus);
}

void CheckInputPath(const std::string& path, const FileStatusQuery& query) {
  std::error_code checkError;
  const fs::file_status status = query(path, checkError);
  if (status.type() == fs::file_type::not_found) {
    Fail("Input image does not exist", path);
  }
  if (checkError) {
    Fail("Unable to check input image path", path, checkError);
  }
  std::error_code inspectError;
  query(path, inspectError);
  if (status.type() != fs::file_type::regular) {
    Fail("Input path is not a regular file", path);
  }
  if (inspectError) {
    Fail("Unable to inspect input image path", path, inspectError);
  }
}

}  // namespace project_lumen::io
