#include "studio/results/ResultPlace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "studio/files/PathText.h"
#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

std::string Filled(std::string text, const std::string& mark, const std::string& value) {
  for (std::size_t at = text.find(mark); at != std::string::npos;
       at = text.find(mark, at + value.size())) {
    text.replace(at, mark.size(), value);
  }
  return text;
}

// 0, or the code of errno; EEXIST where something has the name.
int MoveUnlessTaken(const std::string& from, int folder, const std::string& name) {
  if (renameat2(AT_FDCWD, from.c_str(), folder, name.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return errno;
  }
  // The file system cannot do that; a second name cannot replace anything either.
  if (linkat(AT_FDCWD, from.c_str(), folder, name.c_str(), 0) != 0) {
    return errno;
  }
  unlink(from.c_str());
  return 0;
}

ApiError CannotPlace(const std::string& name, int code) {
  return {500, "internal",
          name + " cannot be written (" + std::generic_category().message(code) + ")."};
}

}  // namespace

std::string ResultName(const std::string& pattern, const std::string& sourceName,
                       const std::string& role, const std::string& suffix) {
  // Braces of the source's own name are no marks.
  const std::string rest = Filled(Filled(pattern, "{name}", ""), "{role}", "");
  if (rest.find_first_of("{}") != std::string::npos) {
    throw BadRequest("A pattern of names knows {name} and {role} only.");
  }
  std::string name;
  for (std::size_t i = 0; i < pattern.size();) {
    if (pattern.compare(i, 6, "{name}") == 0) {
      name += NameWithoutSuffix(sourceName);
      i += 6;
    } else if (pattern.compare(i, 6, "{role}") == 0) {
      name += role;
      i += 6;
    } else {
      name += pattern[i++];
    }
  }
  if (!IsPlainName(name)) {
    throw BadRequest("\"" + name + "\" cannot be the name of a file.");
  }
  return name + suffix;
}

bool IsTaken(const OpenedFile& folder, const std::string& name) {
  struct stat status {};
  return fstatat(folder.descriptor.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

HiddenFolder::HiddenFolder(const OpenedFile& folder)
    : folder_(folder), path_(folder.path + "/.nebulex2-studio-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    throw BadRequest("Nothing can be written to the folder " + folder.path + " (" +
                     std::generic_category().message(errno) + ").");
  }
}

HiddenFolder::~HiddenFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string HiddenFolder::Place(const std::string& written, const std::string& name, bool replaces,
                                bool isNumbered) const {
  constexpr int kMostNumbers = 10000;
  const std::string from = path_ + "/" + written;
  const int folder = folder_.descriptor.Get();
  // A descriptor that only names a folder cannot be written through; /proc leads to it.
  const io::FileDescriptor target(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (target.Get() < 0) {
    throw CannotPlace(name, errno);
  }
  if (replaces) {
    if (renameat(AT_FDCWD, from.c_str(), target.Get(), name.c_str()) != 0) {
      throw CannotPlace(name, errno);
    }
    return folder_.path + "/" + name;
  }
  std::string tried = name;
  for (int number = 2; number < kMostNumbers; ++number) {
    const int code = MoveUnlessTaken(from, target.Get(), tried);
    if (code == 0) {
      return folder_.path + "/" + tried;
    }
    if (code != EEXIST) {
      throw CannotPlace(tried, code);
    }
    if (!isNumbered) {
      throw ApiError(409, "exists", name + " exists already.", {{"names", {name}}});
    }
    const std::string stem = NameWithoutSuffix(name);
    tried = stem + "-" + std::to_string(number) + name.substr(stem.size());
  }
  throw CannotPlace(name, EEXIST);
}

}  // namespace project_lumen::studio
