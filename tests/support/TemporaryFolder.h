// A folder of its own for a test's files.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace project_lumen::test {

// Creates an empty folder and removes it with everything in it at the end of its life.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = testing::TempDir() + "/nebulexXXXXXX";
    const char* const created = mkdtemp(pattern.data());
    if (created == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
    folder_ = created;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] std::string Path(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }

  // How many files and folders lie in it, hidden ones included.
  [[nodiscard]] long FileCount() const {
    return std::distance(std::filesystem::directory_iterator(folder_),
                         std::filesystem::directory_iterator());
  }

 private:
  std::filesystem::path folder_;
};

// A file that exists is removed first: some file systems flush a file that is cut to nothing and
// written anew, which makes thousands of them slow.
inline void WriteFileBytes(const std::string& path, const std::string& bytes) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string ReadFileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace project_lumen::test
