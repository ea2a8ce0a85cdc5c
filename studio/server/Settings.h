// What the page remembers from one day to the next.
#pragma once

#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace project_lumen::studio {

// An object that belongs to the page, in settings.json of a folder. Safe for any thread.
class Settings {
 public:
  // Reads what is there; a file that is no such object counts as empty.
  explicit Settings(std::string folder);

  [[nodiscard]] nlohmann::json Get() const;

  // Keeps an object. Throws ApiError 413 for one whose text is longer than 64 KiB, 507 where the
  // file cannot be written.
  void Set(const nlohmann::json& object);

 private:
  std::string folder_;
  mutable std::mutex mutex_;
  nlohmann::json object_ = nlohmann::json::object();
};

}  // namespace project_lumen::studio
