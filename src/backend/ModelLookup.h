// Where the network's weights file is looked for, and the one-line account of the look-up that
// accompanies diagnostics and failures. Nothing here fails: a missing model yields a concrete path,
// and whoever opens it reports the failure. All paths are UTF-8.
#pragma once

#include <string>
#include <vector>

namespace project_lumen::backend {

// The folder of the running executable; empty when the system does not tell.
std::string ExecutableDirectory();

// The parent of a folder, found in the text alone: trailing separators are skipped, then the last
// component and the separators before it are cut; the root stays ("/usr/bin/" gives "/usr", "/bin"
// and "/" give "/").
std::string InstallRoot(const std::string& executableDirectory);

// The places of a weights file, for an executable in `executableDirectory`, always three, in order:
//   executable_dir    executableDirectory / fileName
//   portable_lib_dir  executableDirectory / lib / modelId / fileName
//   install_lib_dir   install root / lib / modelId / fileName
std::vector<std::string> BuildModelCandidatesFrom(const std::string& executableDirectory,
                                                  const std::string& modelId,
                                                  const std::string& fileName);

// The places for the running executable. `modelId` is the lower-case name of the model's folder.
std::vector<std::string> BuildModelCandidates(const std::string& modelId,
                                              const std::string& fileName);

// The places for a shared library in `libraryDirectory`, always three, in order:
//   libraryDirectory / fileName
//   libraryDirectory / modelId / fileName
//   the folder above it / modelId / fileName
std::vector<std::string> BuildLibraryModelCandidates(const std::string& libraryDirectory,
                                                     const std::string& modelId,
                                                     const std::string& fileName);

// The first candidate that exists, else the first candidate, of at least one. A path exists when
// its status can be queried, whatever kind of entry it is; a failed query of any kind counts as
// absent.
std::string FirstThatExists(const std::vector<std::string>& candidates);

// FirstThatExists of the places for the running executable.
std::string ResolveModelPath(const std::string& modelId, const std::string& fileName);

// ResolveModelPath for this program's own model.
std::string ResolveDefaultWeights(const std::string& fileName);

// "missing", "regular file", "directory (CoreML .mlpackage/.mlmodelc models are directory
// bundles)", "other", or "unavailable (" + the system's message + ")". Links are followed.
//
// Missing are paths that cannot name an entry: the entry or a folder before it does not exist, a
// folder before it is not a folder, or a name is too long. Anything else that hides the entry (no
// permission, a loop of links) is "unavailable".
std::string DescribePathKind(const std::string& path);

// "Model context: backend=…; expected=…; source=…; resolved path='…'; path kind=…", and with
// candidates "; lookup candidates (in order): '…' '…'". One line.
std::string DescribeModelContext(const std::string& backend, const std::string& expected,
                                 const std::string& source, const std::string& resolvedPath,
                                 const std::vector<std::string>& candidates);

// "Executable='…'; working directory='…'; " and the model context. With `explicitOverride` the user
// named the path, which is then the only candidate.
std::string DescribeModelLookup(const std::string& modelId, const std::string& fileName,
                                const std::string& resolvedPath, bool explicitOverride,
                                const std::string& backend);

}  // namespace project_lumen::backend
