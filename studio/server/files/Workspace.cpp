#include "studio/files/Workspace.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "studio/files/PathText.h"
#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

constexpr std::size_t kMostIds = 1000000;

ApiError Outside() {
  return {403, "forbidden", "This lies outside of the folders that were opened."};
}

// Where the file of a descriptor lies; empty when it has no name any more.
std::string RealPath(int descriptor) {
  std::array<char, PATH_MAX> text{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), text.data(), text.size());
  if (length <= 0 || static_cast<std::size_t>(length) == text.size() || text[0] != '/') {
    return {};
  }
  return {text.data(), static_cast<std::size_t>(length)};
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

std::string ResolvedFolder(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr),
                                                             &std::free);
  struct stat status {};
  if (!resolved || stat(resolved.get(), &status) != 0) {
    throw std::invalid_argument("Unable to open the folder " + path + " (" +
                                std::generic_category().message(errno) + ")");
  }
  if (!S_ISDIR(status.st_mode)) {
    throw std::invalid_argument("Not a folder: " + path);
  }
  return resolved.get();
}

}  // namespace

std::string Workspace::AddRoot(const std::string& path) {
  const std::string resolved = ResolvedFolder(path);
  const std::string id = IdOf('d', resolved);
  const std::lock_guard lock(mutex_);
  if (std::find(roots_.begin(), roots_.end(), resolved) == roots_.end()) {
    roots_.push_back(resolved);
  }
  return id;
}

void Workspace::AddHiddenRoot(const std::string& path) {
  const std::string resolved = ResolvedFolder(path);
  const std::lock_guard lock(mutex_);
  hiddenRoots_.push_back(resolved);
}

std::vector<std::string> Workspace::Roots() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> ids;
  for (const std::string& root : roots_) {
    ids.push_back(idsByPath_.at("d" + root));
  }
  return ids;
}

std::string Workspace::IdOf(char kind, const std::string& path) {
  const std::lock_guard lock(mutex_);
  const std::string key = kind + path;
  const auto found = idsByPath_.find(key);
  if (found != idsByPath_.end()) {
    return found->second;
  }
  if (pathsById_.size() >= kMostIds) {
    throw ApiError(503, "busy", "Too many files were looked at. Start the studio again.");
  }
  std::string id = kind + std::to_string(pathsById_.size() + 1);
  pathsById_.emplace(id, path);
  idsByPath_.emplace(key, id);
  return id;
}

std::string Workspace::FileId(const std::string& path) {
  return IdOf('f', path);
}
std::string Workspace::FolderId(const std::string& path) {
  return IdOf('d', path);
}

std::string Workspace::PathOf(const std::string& id) const {
  const std::lock_guard lock(mutex_);
  const auto found = pathsById_.find(id);
  if (found == pathsById_.end()) {
    throw NotFound("There is no such file or folder.");
  }
  return found->second;
}

bool Workspace::IsInside(const std::string& realPath) const {
  const std::lock_guard lock(mutex_);
  const auto holds = [&](const std::string& root) { return IsWithin(realPath, root); };
  return std::any_of(roots_.begin(), roots_.end(), holds) ||
         std::any_of(hiddenRoots_.begin(), hiddenRoots_.end(), holds);
}

OpenedFile Workspace::Open(const std::string& id) const {
  const std::string path = PathOf(id);
  OpenedFile file;
  file.descriptor = io::FileDescriptor(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (file.descriptor.Get() < 0 || fstat(file.descriptor.Get(), &status) != 0) {
    throw NotFound(NameIn(path) + " cannot be opened (" + std::generic_category().message(errno) +
                   ").");
  }
  file.path = RealPath(file.descriptor.Get());
  if (file.path.empty() || !IsInside(file.path)) {
    throw Outside();
  }
  const bool isFolder = id.front() == 'd';
  if (isFolder ? !S_ISDIR(status.st_mode) : !S_ISREG(status.st_mode)) {
    throw BadRequest(NameIn(path) + (isFolder ? " is no folder." : " is no regular file."));
  }
  file.identity = IdentityOf(status);
  return file;
}

OpenedFile Workspace::OpenFile(const std::string& id) const {
  if (!id.starts_with('f')) {
    throw NotFound("There is no such file.");
  }
  return Open(id);
}

OpenedFile Workspace::OpenFolder(const std::string& id) const {
  if (!id.starts_with('d')) {
    throw NotFound("There is no such folder.");
  }
  return Open(id);
}

FolderListing Workspace::List(const std::string& id, std::size_t most) {
  const OpenedFile folder = OpenFolder(id);
  FolderListing listing;
  listing.id = id;
  listing.path = folder.path;
  const std::string own = "/proc/self/fd/" + std::to_string(folder.descriptor.Get());
  listing.isWritable = access(own.c_str(), W_OK | X_OK) == 0;
  const std::string parent = FolderOf(folder.path);
  if (parent != folder.path && IsInside(parent)) {
    listing.parent = FolderId(parent);
  }
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(own.c_str()));
  if (!directory) {
    throw NotFound(NameIn(folder.path) + " cannot be read (" +
                   std::generic_category().message(errno) + ").");
  }
  while (const dirent* found = readdir(directory.get())) {
    const std::string name = found->d_name;
    if (name.front() == '.') {
      continue;
    }
    const io::FileDescriptor entry(
        openat(dirfd(directory.get()), name.c_str(), O_PATH | O_CLOEXEC));
    struct stat status {};
    if (entry.Get() < 0 || fstat(entry.Get(), &status) != 0 || !IsInside(RealPath(entry.Get()))) {
      continue;
    }
    const bool isFolder = S_ISDIR(status.st_mode);
    if (!isFolder && !S_ISREG(status.st_mode)) {
      continue;
    }
    if (listing.entries.size() == most) {
      listing.isTruncated = true;
      break;
    }
    const std::string path = (folder.path == "/" ? "" : folder.path) + "/" + name;
    FolderEntry& shown = listing.entries.emplace_back();
    shown.kind = isFolder                    ? FolderEntry::Kind::kFolder
                 : ImageSuffix(name).empty() ? FolderEntry::Kind::kFile
                                             : FolderEntry::Kind::kImage;
    shown.id = isFolder ? FolderId(path) : FileId(path);
    shown.name = name;
    shown.size = status.st_size;
    shown.modified = status.st_mtim.tv_sec;
  }
  std::sort(listing.entries.begin(), listing.entries.end(),
            [](const FolderEntry& one, const FolderEntry& other) {
              const bool isOneFile = one.kind != FolderEntry::Kind::kFolder;
              const bool isOtherFile = other.kind != FolderEntry::Kind::kFolder;
              return std::pair(isOneFile, one.name) < std::pair(isOtherFile, other.name);
            });
  return listing;
}

}  // namespace project_lumen::studio
