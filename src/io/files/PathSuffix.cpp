#include "io/files/PathSuffix.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>

namespace project_lumen::io {
namespace {

bool EndsWithAny(const std::string& path, std::initializer_list<std::string_view> suffixes) {
  const std::string lower = ToLower(path);
  return std::any_of(suffixes.begin(), suffixes.end(),
                     [&lower](std::string_view suffix) { return lower.ends_with(suffix); });
}

}  // namespace

std::string ToLower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

std::string LowercaseSuffix(const std::string& path, std::size_t length) {
  if (path.size() < length) {
    throw std::out_of_range("invalid string position");
  }
  return ToLower(std::string_view(path).substr(path.size() - length));
}

bool IsFitsPath(const std::string& path) {
  return EndsWithAny(path, {".fit", ".fits", ".fts", ".fit.gz", ".fits.gz", ".fts.gz"});
}

bool IsLossyPath(const std::string& path) {
  return EndsWithAny(path, {".jpg", ".jpeg", ".jpe"});
}

bool IsTiffPath(const std::string& path) {
  return EndsWithAny(path, {".tif", ".tiff"});
}

}  // namespace project_lumen::io
