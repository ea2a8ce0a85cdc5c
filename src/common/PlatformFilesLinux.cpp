#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "common/PlatformFiles.h"

namespace project_lumen {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kPermissionBits = 07777;

std::error_code CodeOf(int number) {
  return {number, std::generic_category()};
}

std::error_code LastError() {
  return CodeOf(errno);
}

// The code of a call that returns 0 for success.
std::error_code CodeUnless(bool hasSucceeded) {
  return hasSucceeded ? std::error_code() : LastError();
}

// Takes the room on the disk that `size` bytes need beyond what the file has, or leaves it as it
// was. File systems that cannot tell beforehand are believed.
std::error_code MakeRoom(int file, off_t size) {
  struct stat before {};
  if (size == 0 || fstat(file, &before) != 0) {
    return {};
  }
  const int error = posix_fallocate(file, 0, size);
  if (error != ENOSPC && error != EDQUOT && error != EFBIG) {
    return {};
  }
  // Making a file shorter again needs no room.
  return ftruncate(file, before.st_size) != 0 ? LastError() : CodeOf(error);
}

// Whether two descriptions are of one file.
bool IsSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Best effort: the rename itself has succeeded, and not every file system can flush a folder.
void FlushFolder(const fs::path& folder) {
  const int descriptor =
      open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    fsync(descriptor);
    close(descriptor);
  }
}

}  // namespace

std::string OpenablePath(const std::string& path) {
  return path;
}

fs::file_status FileStatus(const std::string& path, std::error_code& error) {
  return fs::status(path, error);
}

std::uint64_t FileSize(const std::string& path, std::error_code& error) {
  return fs::file_size(path, error);
}

void ResizeFile(const std::string& path, std::uint64_t size, std::error_code& error) {
  fs::resize_file(path, size, error);
}

bool LeadToSameFile(const std::string& first, const std::string& second) {
  std::error_code error;
  if (fs::equivalent(first, second, error)) {
    return true;
  }
  const fs::path canonicalFirst = fs::weakly_canonical(fs::absolute(first, error), error);
  const fs::path canonicalSecond = fs::weakly_canonical(fs::absolute(second, error), error);
  return !canonicalFirst.empty() && canonicalFirst == canonicalSecond;
}

FileTarget InspectTarget(const std::string& path, std::error_code& error) {
  error.clear();
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    const int code = errno;
    if (code != ENOENT) {
      error = CodeOf(code);
      return {};
    }
    std::error_code ignored;
    return {fs::is_symlink(path, ignored) ? TargetKind::kBrokenLink : TargetKind::kNone, path};
  }
  if (!S_ISREG(status.st_mode)) {
    return {TargetKind::kOther, path};
  }
  return {TargetKind::kRegularFile, fs::canonical(path, error).string(),
          status.st_mode & kPermissionBits};
}

int OpenToOverwrite(const std::string& path, std::error_code& error) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  error = CodeUnless(descriptor >= 0);
  return descriptor;
}

int CreateFileInMemory(std::error_code& error) {
  const int descriptor = memfd_create("nebulex2", MFD_CLOEXEC);
  error = CodeUnless(descriptor >= 0);
  return descriptor;
}

unsigned KeepForOwner(int descriptor, std::error_code& error) {
  constexpr unsigned kForItsOwner = 0600;
  struct stat created {};
  error = CodeUnless(fstat(descriptor, &created) == 0 && fchmod(descriptor, kForItsOwner) == 0);
  return created.st_mode & kPermissionBits;
}

std::error_code SetPermissions(int descriptor, unsigned permissions) {
  return CodeUnless(fchmod(descriptor, permissions) == 0);
}

std::error_code FlushToDisk(int descriptor) {
  return CodeUnless(fsync(descriptor) == 0);
}

std::error_code RenameOver(const std::string& path, const std::string& target) {
  if (rename(path.c_str(), target.c_str()) != 0) {
    return LastError();
  }
  FlushFolder(fs::path(target).parent_path());
  return {};
}

void RemoveName(const std::string& path) {
  unlink(path.c_str());
}

std::optional<std::string> NameOfDescriptor(int descriptor) {
  std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  struct stat named {};
  struct stat open {};
  const bool isUsable =
      stat(path.c_str(), &named) == 0 && fstat(descriptor, &open) == 0 && IsSameFile(named, open);
  return isUsable ? std::optional(std::move(path)) : std::nullopt;
}

std::size_t ReadAt(int descriptor, std::uint64_t offset, std::span<char> bytes,
                   std::error_code& error) {
  error.clear();
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = pread(descriptor, bytes.data() + done, bytes.size() - done,
                                static_cast<off_t>(offset + done));
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (count == 0 || errno != EINTR) {
      error = CodeUnless(count == 0);
      break;
    }
  }
  return done;
}

std::error_code WriteAt(int descriptor, std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
      offset += static_cast<std::uint64_t>(written);
    } else if (written == 0 || errno != EINTR) {
      return CodeOf(written == 0 ? ENOSPC : errno);
    }
  }
  return {};
}

std::error_code CopyContent(int source, int target) {
  struct stat content {};
  if (fstat(source, &content) != 0) {
    return LastError();
  }
  std::error_code error = MakeRoom(target, content.st_size);
  std::vector<char> chunk(std::size_t{1} << 20U);
  for (std::uint64_t done = 0; !error && done < static_cast<std::uint64_t>(content.st_size);) {
    const std::size_t count = ReadAt(source, done, chunk, error);
    if (!error && count == 0) {
      error = CodeOf(EIO);
    } else if (!error) {
      error = WriteAt(target, done, {reinterpret_cast<const std::uint8_t*>(chunk.data()), count});
      done += count;
    }
  }
  if (!error && ftruncate(target, content.st_size) != 0) {
    error = LastError();
  }
  return error;
}

}  // namespace project_lumen
