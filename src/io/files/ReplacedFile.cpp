#include "io/files/ReplacedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/mman.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include "io/files/UnfinishedFiles.h"

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;
using Step = ReplacementError::Step;

constexpr unsigned kPermissionBits = 07777;

[[noreturn]] void Fail(Step step, int code) {
  throw ReplacementError(step, std::generic_category().message(code));
}

// The file that really is replaced, and the permissions that its successor gets: those of the file
// that is there.
struct Target {
  std::string path;
  std::optional<unsigned> permissions;
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
    return {path, std::nullopt};
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

// Opening changes nothing, and finds out whatever keeps the file from being written.
void RequireWritable(const std::string& path) {
  const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (file.Get() < 0) {
    Fail(Step::kReplace, errno);
  }
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

// Whether the system will not have a new file in a folder, rather than being out of something.
bool IsRefusal(int error) {
  return error == EACCES || error == EPERM || error == EROFS;
}

// Takes the room on the disk that `size` bytes need beyond what the file has, or leaves it as it
// was. File systems that cannot tell beforehand are believed.
void MakeRoom(int file, off_t size) {
  struct stat before {};
  if (size == 0 || fstat(file, &before) != 0) {
    return;
  }
  const int error = posix_fallocate(file, 0, size);
  if (error == ENOSPC || error == EDQUOT || error == EFBIG) {
    // Making a file shorter again needs no room.
    if (ftruncate(file, before.st_size) != 0) {
      Fail(Step::kWrite, errno);
    }
    Fail(Step::kWrite, error);
  }
}

// False, with errno, when not all bytes could be copied.
bool CopyContent(int source, int target, off_t size) {
  std::vector<char> chunk(std::size_t{1} << 20U);
  for (off_t done = 0; done < size;) {
    const ssize_t read = pread(source, chunk.data(), chunk.size(), done);
    for (ssize_t written = 0; written < read;) {
      const ssize_t count = pwrite(target, chunk.data() + written,
                                   static_cast<std::size_t>(read - written), done + written);
      if (count < 0 && errno != EINTR) {
        return false;
      }
      written += std::max<ssize_t>(count, 0);
    }
    if (read == 0) {
      errno = EIO;
      return false;
    }
    if (read < 0 && errno != EINTR) {
      return false;
    }
    done += std::max<ssize_t>(read, 0);
  }
  return true;
}

// Whether two descriptions are of one file.
bool IsSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Best effort: the rename itself has succeeded, and not every file system can flush a folder.
void FlushFolder(const std::string& folder) {
  const FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.Get() >= 0) {
    fsync(descriptor.Get());
  }
}

}  // namespace

ReplacedFile::ReplacedFile(const std::string& target, Replacing replacing) {
  Target inspected = InspectTarget(target);
  target_ = std::move(inspected.path);
  permissions_ = inspected.permissions;
  const bool hasContent = replacing == Replacing::kContent && permissions_;
  if (hasContent) {
    RequireWritable(target_);
  }
  const int error = TryToCreateTemporaryFile();
  if (error != 0 && hasContent && IsRefusal(error)) {
    CreateFileInMemory(error);
  } else if (error != 0) {
    Fail(Step::kWrite, error);
  }
}

ReplacedFile::~ReplacedFile() {
  RemoveTemporaryFile();
}

// 0, or the code of errno.
int ReplacedFile::TryToCreateTemporaryFile() {
  static std::atomic<unsigned> counter = 0;
  constexpr unsigned kForItsOwner = 0600;
  constexpr unsigned kAsTheUmaskSays = 0666;
  const std::string prefix = FolderOf(target_) + "/.nebulex2-" + std::to_string(getpid()) + "-";
  const std::string extension = ExtensionOf(target_);
  for (;;) {
    std::string path = prefix;
    path.append(std::to_string(counter++)).append(extension);
    const int descriptor =
        CreateUnfinishedFile(path, permissions_ ? kForItsOwner : kAsTheUmaskSays);
    if (descriptor >= 0) {
      file_ = FileDescriptor(descriptor);
      temporaryPath_ = std::move(path);
      break;
    }
    if (descriptor != -EEXIST) {
      return -descriptor;
    }
  }
  struct stat created {};
  if (!permissions_ && fstat(Descriptor(), &created) == 0 &&
      fchmod(Descriptor(), kForItsOwner) == 0) {
    permissions_ = created.st_mode & kPermissionBits;
  }
  return permissions_ ? 0 : errno;
}

void ReplacedFile::CreateTemporaryFile() {
  if (const int error = TryToCreateTemporaryFile(); error != 0) {
    Fail(Step::kWrite, error);
  }
}

void ReplacedFile::CreateFileInMemory([[maybe_unused]] int reason) {
#ifdef __linux__
  file_ = FileDescriptor(memfd_create("nebulex2", MFD_CLOEXEC));
  isInMemory_ = true;
  if (Descriptor() < 0) {
    Fail(Step::kWrite, errno);
  }
#else
  Fail(Step::kWrite, reason);
#endif
}

void ReplacedFile::RemoveTemporaryFile() {
  if (!temporaryPath_.empty()) {
    unlink(temporaryPath_.c_str());
    ForgetUnfinishedFile(temporaryPath_);
    temporaryPath_.clear();
  }
}

std::string ReplacedFile::SafePath() const {
  const std::string path = "/proc/self/fd/" + std::to_string(Descriptor());
  struct stat named {};
  struct stat open {};
  const bool isUsable =
      stat(path.c_str(), &named) == 0 && fstat(Descriptor(), &open) == 0 && IsSameFile(named, open);
  return isUsable ? path : temporaryPath_;
}

FileDescriptor ReplacedFile::StartAgain() {
  FileDescriptor before = std::move(file_);
  RemoveTemporaryFile();
  CreateTemporaryFile();
  return before;
}

void ReplacedFile::Commit() {
  if (isInMemory_) {
    CommitInPlace();
  } else {
    CommitByName();
  }
}

void ReplacedFile::CommitByName() {
  if (fchmod(Descriptor(), *permissions_) != 0 || fsync(Descriptor()) != 0 || file_.Close() != 0) {
    Fail(Step::kWrite, errno);
  }
  if (rename(temporaryPath_.c_str(), target_.c_str()) != 0) {
    Fail(Step::kReplace, errno);
  }
  ForgetUnfinishedFile(temporaryPath_);
  temporaryPath_.clear();
  FlushFolder(FolderOf(target_));
}

void ReplacedFile::CommitInPlace() {
  FileDescriptor target(open(target_.c_str(), O_WRONLY | O_CLOEXEC));
  struct stat content {};
  if (target.Get() < 0 || fstat(Descriptor(), &content) != 0) {
    Fail(Step::kReplace, errno);
  }
  MakeRoom(target.Get(), content.st_size);
  if (!CopyContent(Descriptor(), target.Get(), content.st_size) ||
      ftruncate(target.Get(), content.st_size) != 0 || fsync(target.Get()) != 0 ||
      target.Close() != 0) {
    Fail(Step::kWrite, errno);
  }
  file_.Close();
}

}  // namespace project_lumen::io
