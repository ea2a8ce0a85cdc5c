// What is asked of an input path before anything is read from it.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>

namespace project_lumen::io {

// Asks for the status of the file that a path leads to (links are followed).
using FileStatusQuery =
    std::function<std::filesystem::file_status(const std::string&, std::error_code&)>;

// Throws std::invalid_argument unless the path leads to a regular file:
//   "Input image does not exist: PATH"
//   "Unable to check input image path: PATH (REASON)"
//   "Input path is not a regular file: PATH"
//   "Unable to inspect input image path: PATH (REASON)"
void CheckInputPath(const std::string& path);

// The same over a replaceable query, which is asked twice: the first answer is for existence and
// kind, the second shows that the file can still be inspected.
void CheckInputPath(const std::string& path, const FileStatusQuery& query);

}  // namespace project_lumen::io
