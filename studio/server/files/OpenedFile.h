// A file that was found in an opened folder and is held by a descriptor, whatever its name may lead
// to later.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "io/files/FileDescriptor.h"

namespace project_lumen::studio {

// What tells two states of a file apart.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  std::int64_t size = 0;
  std::int64_t seconds = 0;  // of the last change of its content
  std::int64_t nanoseconds = 0;

  bool operator==(const FileIdentity&) const = default;
};

FileIdentity IdentityOf(const struct stat& status);

// The identity of what lies at a path; all zero where nothing does.
FileIdentity IdentityAt(const std::string& path);

struct OpenedFile {
  io::FileDescriptor descriptor;  // O_PATH: it says which file, and lets nobody read it
  std::string path;               // where the file really lies, links resolved
  FileIdentity identity;
};

// A file that the studio itself has written, so that its path needs no look. Throws
// std::runtime_error where it is not there.
OpenedFile OpenOwnFile(const std::string& path);

// A name for an opened file that ends like the file's own, so that readers that go by the end of a
// name read exactly this file. Lives as a link in a folder of its own.
class NameOfOpenedFile {
 public:
  // Makes a folder in `folder`. Throws std::runtime_error where that fails.
  NameOfOpenedFile(const std::string& folder, const OpenedFile& file);
  ~NameOfOpenedFile();
  NameOfOpenedFile(const NameOfOpenedFile&) = delete;
  NameOfOpenedFile& operator=(const NameOfOpenedFile&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string folder_;
  std::string path_;
};

}  // namespace project_lumen::studio
