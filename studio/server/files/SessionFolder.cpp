#include "studio/files/SessionFolder.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProduct = "nebulex2-studio";
constexpr const char* kLockName = "lock";

// An absolute path in an environment variable as the XDG base directory specification has it, else
// the folder `inHome` of the home folder.
std::string BaseFolder(const char* variable, const char* inHome) {
  const char* value = std::getenv(variable);
  if (value != nullptr && *value == '/') {
    return std::string(value) + "/" + kProduct;
  }
  const std::string home = HomeFolder();
  if (home.empty()) {
    throw std::runtime_error("There is no home folder.");
  }
  return home + "/" + inHome + "/" + kProduct;
}

// The lock of a folder; none when somebody else has it and `mode` does not wait.
io::FileDescriptor Lock(const std::string& folder, int mode) {
  const std::string path = folder + "/" + kLockName;
  io::FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (file.Get() >= 0 && flock(file.Get(), mode) != 0) {
    file.Close();
  }
  return file;
}

void RemoveAbandoned(const std::string& base) {
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(base, error)) {
    const bool isSession = entry.path().filename().string().starts_with("session-") &&
                           fs::is_directory(entry.symlink_status(error));
    if (isSession && Lock(entry.path().string(), LOCK_EX | LOCK_NB).Get() >= 0) {
      fs::remove_all(entry.path(), error);
    }
  }
}

}  // namespace

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home == '/') {
    return home;
  }
  const passwd* user = getpwuid(getuid());
  return user != nullptr ? user->pw_dir : "";
}

std::string SettingsFolder() {
  return BaseFolder("XDG_CONFIG_HOME", ".config");
}

SessionFolder::SessionFolder() {
  const std::string base = BaseFolder("XDG_CACHE_HOME", ".cache");
  std::error_code error;
  fs::create_directories(base, error);
  // Held until this session has a lock of its own, so that nobody takes it for abandoned.
  const io::FileDescriptor creating = Lock(base, LOCK_EX);
  if (!error) {
    RemoveAbandoned(base);
  }
  path_ = base + "/session-XXXXXX";
  if (error || mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error("Unable to create a folder in " + base + " (" +
                             std::generic_category().message(error ? error.value() : errno) + ")");
  }
  lock_ = Lock(path_, LOCK_EX | LOCK_NB);
}

SessionFolder::~SessionFolder() {
  std::error_code error;
  fs::remove_all(path_, error);
}

std::string SessionFolder::MakeFolder(const std::string& what) const {
  std::string folder = path_ + "/" + what + "-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    throw NoRoom("Unable to create a folder in " + path_ + " (" +
                 std::generic_category().message(errno) + ").");
  }
  return folder;
}

io::FileDescriptor SessionFolder::MakeUnnamedFile(std::int64_t bytes) const {
  std::string name = path_ + "/samples-XXXXXX";
  io::FileDescriptor file(mkostemp(name.data(), O_CLOEXEC));
  int code = file.Get() < 0 ? errno : 0;
  if (code == 0) {
    unlink(name.c_str());
    // Asked first, since making room can take long before it turns out that there is none.
    struct statvfs disk {};
    const bool isKnown = fstatvfs(file.Get(), &disk) == 0;
    const bool isFull =
        isKnown && static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) <
                       static_cast<double>(bytes);
    code = isFull ? ENOSPC : posix_fallocate(file.Get(), 0, bytes);
    if (code == EOPNOTSUPP || code == EINVAL) {
      code = 0;  // the first write tells
    }
  }
  if (code != 0) {
    throw NoRoom("There is no room for the image in " + path_ + ": " +
                 std::to_string((bytes >> 20) + 1) + " MB are needed (" +
                 std::generic_category().message(code) + ").");
  }
  return file;
}

}  // namespace project_lumen::studio
