#include "studio/files/PathText.h"

#include <algorithm>
#include <array>

#include "common/Utf8.h"
#include "io/files/PathSuffix.h"

namespace project_lumen::studio {

std::string NameIn(const std::string& path) {
  return path.substr(path.find_last_of('/') + 1);
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool IsWithin(std::string_view path, std::string_view folder) {
  if (folder == "/") {
    return path.starts_with('/');
  }
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string ImageSuffix(const std::string& name) {
  // The longer ends first.
  constexpr std::array kSuffixes{".fits.gz", ".fit.gz", ".fts.gz", ".tiff", ".fits",
                                 ".tif",     ".png",    ".fit",    ".fts"};
  const std::string lower = io::ToLower(name);
  for (const std::string_view suffix : kSuffixes) {
    if (lower.size() > suffix.size() && lower.ends_with(suffix)) {
      return name.substr(name.size() - suffix.size());
    }
  }
  return {};
}

std::string NameWithoutSuffix(const std::string& name) {
  const std::string suffix = ImageSuffix(name);
  if (!suffix.empty()) {
    return name.substr(0, name.size() - suffix.size());
  }
  const std::size_t dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

bool IsPlainName(std::string_view name) {
  constexpr std::size_t kLongest = 200;
  if (name.empty() || name.size() > kLongest || name.front() == '.' || name.front() == ' ' ||
      name.back() == ' ') {
    return false;
  }
  const bool hasForbidden = std::any_of(name.begin(), name.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return c == '/' || c == '\\' || byte < 0x20U || byte == 0x7fU;
  });
  return !hasForbidden && ReplaceInvalidUtf8(name) == name;
}

}  // namespace project_lumen::studio
