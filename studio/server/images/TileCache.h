// Pictures of tiles that were made, kept on disk up to a limit.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace project_lumen::studio {

// Forgets what has not been asked for longest. Safe for any thread.
class TileCache {
 public:
  // Keeps its files in `folder`, which has to be its own.
  TileCache(std::string folder, std::int64_t limitBytes);

  // The bytes kept under a key; none where there are none (any more).
  std::optional<std::string> Find(const std::string& key);

  // Keeps the bytes, unless that fails: the cache may always be empty.
  void Keep(const std::string& key, const std::string& bytes);

  [[nodiscard]] std::int64_t Bytes() const;

 private:
  struct Entry {
    std::string key;
    std::uint64_t number = 0;
    std::int64_t bytes = 0;
  };
  using Entries = std::list<Entry>;  // the one asked for last in front

  [[nodiscard]] std::string PathOf(std::uint64_t number) const;
  void ForgetLast();

  std::string folder_;
  std::int64_t limitBytes_;
  mutable std::mutex mutex_;
  Entries entries_;
  std::unordered_map<std::string, Entries::iterator> byKey_;
  std::int64_t bytes_ = 0;
  std::uint64_t made_ = 0;
};

}  // namespace project_lumen::studio
