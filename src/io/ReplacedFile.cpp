#include "io/ReplacedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "io/UnfinishedFiles.h"

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;
using Step = ReplacementError::Step;

constexpr unsigned kPermissionBits = 07777;

[[noreturn]] void Fail(Step step, int code) {
  throw ReplacementError(step, std::generic_category().message(code));
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  ~FileDescriptor() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  [[nodiscard]] int Get() const { return descriptor_; }

  // Some file systems report a failed write only on closing.
  int Close() {
    const int result = close(descriptor_);
    descriptor_ = -1;
    return result;
  }

 private:
  int descriptor_;
};

unsigned CurrentUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

// The file that really is replaced, and the permissions that its successor gets.
struct Target {
  std::string path;
  unsigned permissions;
};

Target InspectTarget(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    const int code = errno;
    std::error_code ignored;
    if (code != ENOENT) {
      Fail(Step::kInspect, code);
    }
    if (fs::is_symlink(path, ignored)) {
      throw ReplacementError(Step::kReplace, "the link points to no file");
    }
    return {path, 0666U & ~CurrentUmask()};
  }
  if (!S_ISREG(status.st_mode)) {
    throw ReplacementError(Step::kReplace, "not a regular file");
  }
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  if (error) {
    throw ReplacementError(Step::kInspect, error.message());
  }
  return {real.string(), status.st_mode & kPermissionBits};
}

std::string FolderOf(const std::string& path) {
  const fs::path folder = fs::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

// The name's last extension, or its last two for compressed files ("x.fits.gz" gives ".fits.gz").
std::string ExtensionOf(const std::string& path) {
  const fs::path name = fs::path(path).filename();
  const std::string last = name.extension().string();
  return last == ".gz" || last == ".GZ" ? name.stem().extension().string() + last : last;
}

std::string CreateTemporaryFile(const std::string& target) {
  static unsigned counter = 0;
  const std::string prefix = FolderOf(target) + "/.nebulex2-" + std::to_string(getpid()) + "-";
  const std::string extension = ExtensionOf(target);
  for (;;) {
    std::string path = prefix;
    path.append(std::to_string(counter++)).append(extension);
    const int error = CreateUnfinishedFile(path);
    if (error == 0) {
      return path;
    }
    if (error != EEXIST) {
      Fail(Step::kWrite, error);
    }
  }
}

void FlushToDisk(const std::string& path, unsigned permissions) {
  FileDescriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
  if (file.Get() < 0 || fchmod(file.Get(), permissions) != 0 || fsync(file.Get()) != 0 ||
      file.Close() != 0) {
    Fail(Step::kWrite, errno);
  }
}

// Best effort: the rename itself has succeeded, and not every file system can flush a folder.
void FlushFolder(const std::string& folder) {
  const FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.Get() >= 0) {
    fsync(descriptor.Get());
  }
}

}  // namespace

ReplacedFile::ReplacedFile(const std::string& target) {
  Target inspected = InspectTarget(target);
  target_ = std::move(inspected.path);
  permissions_ = inspected.permissions;
  temporaryPath_ = CreateTemporaryFile(target_);
  pending_ = true;
}

ReplacedFile::~ReplacedFile() {
  if (pending_) {
    unlink(temporaryPath_.c_str());
    ForgetUnfinishedFile(temporaryPath_);
  }
}

void ReplacedFile::Commit() {
  FlushToDisk(temporaryPath_, permissions_);
  if (rename(temporaryPath_.c_str(), target_.c_str()) != 0) {
    Fail(Step::kReplace, errno);
  }
  pending_ = false;
  ForgetUnfinishedFile(temporaryPath_);
  FlushFolder(FolderOf(target_));
}

}  // namespace project_lumen::io
