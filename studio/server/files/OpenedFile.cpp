#include "studio/files/OpenedFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "studio/files/PathText.h"

namespace project_lumen::studio {

FileIdentity IdentityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec};
}

FileIdentity IdentityAt(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? IdentityOf(status) : FileIdentity{};
}

OpenedFile OpenOwnFile(const std::string& path) {
  OpenedFile file;
  file.descriptor = io::FileDescriptor(open(path.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW));
  struct stat status {};
  if (file.descriptor.Get() < 0 || fstat(file.descriptor.Get(), &status) != 0) {
    throw std::runtime_error(path + " cannot be opened (" + std::generic_category().message(errno) +
                             ").");
  }
  file.path = path;
  file.identity = IdentityOf(status);
  return file;
}

NameOfOpenedFile::NameOfOpenedFile(const std::string& folder, const OpenedFile& file)
    : folder_(folder + "/name-XXXXXX") {
  if (mkdtemp(folder_.data()) == nullptr) {
    throw std::runtime_error("Unable to create a folder in " + folder + " (" +
                             std::generic_category().message(errno) + ")");
  }
  path_ = folder_ + "/" + NameIn(file.path);
  const std::string target = "/proc/self/fd/" + std::to_string(file.descriptor.Get());
  if (symlink(target.c_str(), path_.c_str()) != 0) {
    const int code = errno;
    rmdir(folder_.c_str());
    throw std::runtime_error("Unable to create " + path_ + " (" +
                             std::generic_category().message(code) + ")");
  }
}

NameOfOpenedFile::~NameOfOpenedFile() {
  unlink(path_.c_str());
  rmdir(folder_.c_str());
}

}  // namespace project_lumen::studio
