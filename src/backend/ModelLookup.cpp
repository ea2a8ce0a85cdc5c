#include "backend/ModelLookup.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "backend/DefaultModel.h"
#include "common/Platform.h"
#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"

namespace project_lumen::backend {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUnavailable = "unavailable";

bool IsSeparator(char c) {
  constexpr char kSeparators[] = {'/', static_cast<char>(fs::path::preferred_separator)};
  return std::find(std::begin(kSeparators), std::end(kSeparators), c) != std::end(kSeparators);
}

bool Exists(const std::string& path) {
  std::error_code error;
  return fs::exists(FileStatus(path, error)) && !error;
}

}  // namespace

std::string ExecutableDirectory() {
  return ToUtf8(FromUtf8(ExecutablePath().value_or(std::string())).parent_path());
}

std::string InstallRoot(const std::string& executableDirectory) {
  const std::size_t rootLength = ToUtf8(FromUtf8(executableDirectory).root_path()).size();
  std::size_t length = executableDirectory.size();
  const auto skipBack = [&](bool separators) {
    while (length > rootLength && IsSeparator(executableDirectory[length - 1]) == separators) {
      --length;
    }
  };
  skipBack(true);
  skipBack(false);
  skipBack(true);
  return executableDirectory.substr(0, length);
}

std::vector<std::string> BuildModelCandidatesFrom(const std::string& executableDirectory,
                                                  const std::string& modelId,
                                                  const std::string& fileName) {
  const fs::path executable = FromUtf8(executableDirectory);
  const fs::path root = FromUtf8(InstallRoot(executableDirectory));
  const fs::path inLibrary = fs::path("lib") / FromUtf8(modelId) / FromUtf8(fileName);
  return {ToUtf8(executable / FromUtf8(fileName)), ToUtf8(executable / inLibrary),
          ToUtf8(root / inLibrary)};
}

std::vector<std::string> BuildLibraryModelCandidates(const std::string& libraryDirectory,
                                                     const std::string& modelId,
                                                     const std::string& fileName) {
  const fs::path library = FromUtf8(libraryDirectory);
  const fs::path inFolder = FromUtf8(modelId) / FromUtf8(fileName);
  return {ToUtf8(library / FromUtf8(fileName)), ToUtf8(library / inFolder),
          ToUtf8(FromUtf8(InstallRoot(libraryDirectory)) / inFolder)};
}

std::string FirstThatExists(const std::vector<std::string>& candidates) {
  const auto found = std::find_if(candidates.begin(), candidates.end(), Exists);
  return found == candidates.end() ? candidates.front() : *found;
}

std::vector<std::string> BuildModelCandidates(const std::string& modelId,
                                              const std::string& fileName) {
  return BuildModelCandidatesFrom(ExecutableDirectory(), modelId, fileName);
}

std::string ResolveModelPath(const std::string& modelId, const std::string& fileName) {
  return FirstThatExists(BuildModelCandidates(modelId, fileName));
}

std::string ResolveDefaultWeights(const std::string& fileName) {
  return ResolveModelPath(kDefaultModelId, fileName);
}

std::string DescribePathKind(const std::string& path) {
  std::error_code error;
  const fs::file_status status = FileStatus(path, error);
  if (status.type() == fs::file_type::not_found || error == std::errc::filename_too_long) {
    return "missing";
  }
  if (error) {
    return std::string(kUnavailable) + " (" + error.message() + ")";
  }
  switch (status.type()) {
    case fs::file_type::regular:
      return "regular file";
    case fs::file_type::directory:
      return "directory (CoreML .mlpackage/.mlmodelc models are directory bundles)";
    default:
      return "other";
  }
}

std::string DescribeModelContext(const std::string& backend, const std::string& expected,
                                 const std::string& source, const std::string& resolvedPath,
                                 const std::vector<std::string>& candidates) {
  std::string text = "Model context: backend=" + backend + "; expected=" + expected +
                     "; source=" + source + "; resolved path='" + resolvedPath +
                     "'; path kind=" + DescribePathKind(resolvedPath);
  if (!candidates.empty()) {
    text += "; lookup candidates (in order):";
  }
  for (const std::string& candidate : candidates) {
    text += " '" + candidate + "'";
  }
  return text;
}

std::string DescribeModelLookup(const std::string& modelId, const std::string& fileName,
                                const std::string& resolvedPath, bool explicitOverride,
                                const std::string& backend) {
  const std::vector<std::string> candidates = explicitOverride
                                                  ? std::vector<std::string>{resolvedPath}
                                                  : BuildModelCandidates(modelId, fileName);
  const char* source = explicitOverride ? "explicit --weights override" : "automatic lookup";
  return "Executable='" + ExecutablePath().value_or(kUnavailable) + "'; working directory='" +
         CurrentDirectory().value_or(kUnavailable) + "'; " +
         DescribeModelContext(backend, fileName, source, resolvedPath, candidates);
}

}  // namespace project_lumen::backend
