// The program that the studio drives, as it describes itself.
#pragma once

#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace project_lumen::studio {

// Safe for any thread.
class Program {
 public:
  explicit Program(std::string path) : path_(std::move(path)) {}

  // Asks the program for its machine-info document again.
  void Ask();

  // As the page gets it.
  [[nodiscard]] nlohmann::json Describe() const;

  // The machine-info document. Throws ApiError 424 with the reason where there is none.
  [[nodiscard]] nlohmann::json Info() const;

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  const std::string path_;
  mutable std::mutex mutex_;
  nlohmann::json info_;  // null while there is none
  std::string error_ = "The program has not been asked yet.";
};

// Finds out the path of a file by its id.
using FileResolver = std::function<std::string(const std::string& id)>;

// The arguments for what a person has chosen, by the names of the program's options, in the order
// of its document. What is null or false is left to the program. Options that the studio sets
// itself (input, outputs, quiet, the one of machine progress) are refused like unknown ones. Throws
// ApiError 400 with words for what the document does not allow.
std::vector<std::string> OptionArguments(const nlohmann::json& info, const nlohmann::json& chosen,
                                         const FileResolver& pathOfFile);

// The flag of the program's option with this name. Throws ApiError 424 where it has none.
std::string FlagOf(const nlohmann::json& info, const std::string& name);

// The smallest side of an image that the program takes with these options.
int SmallestSide(const nlohmann::json& info, const nlohmann::json& chosen);

}  // namespace project_lumen::studio
