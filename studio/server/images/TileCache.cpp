#include "studio/images/TileCache.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <utility>

namespace project_lumen::studio {

TileCache::TileCache(std::string folder, std::int64_t limitBytes)
    : folder_(std::move(folder)), limitBytes_(limitBytes) {}

std::string TileCache::PathOf(std::uint64_t number) const {
  return folder_ + "/" + std::to_string(number);
}

std::optional<std::string> TileCache::Find(const std::string& key) {
  std::string path;
  std::int64_t size = 0;
  {
    const std::lock_guard lock(mutex_);
    const auto found = byKey_.find(key);
    if (found == byKey_.end()) {
      return std::nullopt;
    }
    entries_.splice(entries_.begin(), entries_, found->second);
    path = PathOf(found->second->number);
    size = found->second->bytes;
  }
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // It may have been forgotten meanwhile.
  return static_cast<std::int64_t>(bytes.size()) == size ? std::optional(std::move(bytes))
                                                         : std::nullopt;
}

void TileCache::Keep(const std::string& key, const std::string& bytes) {
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(mutex_);
    if (byKey_.contains(key)) {
      return;
    }
    number = ++made_;
  }
  std::ofstream file(PathOf(number), std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  const std::lock_guard lock(mutex_);
  if (!file || byKey_.contains(key)) {
    unlink(PathOf(number).c_str());
    return;
  }
  entries_.push_front({key, number, static_cast<std::int64_t>(bytes.size())});
  byKey_[key] = entries_.begin();
  bytes_ += entries_.front().bytes;
  while (bytes_ > limitBytes_) {
    ForgetLast();
  }
}

void TileCache::ForgetLast() {
  const Entry& last = entries_.back();
  unlink(PathOf(last.number).c_str());
  bytes_ -= last.bytes;
  byKey_.erase(last.key);
  entries_.pop_back();
}

std::int64_t TileCache::Bytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

}  // namespace project_lumen::studio
