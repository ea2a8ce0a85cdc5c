#include "backend/Turns.h"

#include <algorithm>

namespace project_lumen::backend {

std::uint64_t Turns::Join() {
  const std::lock_guard lock(mutex_);
  queue_.push_back(++last_);
  return last_;
}

void Turns::Leave(std::uint64_t number) {
  {
    const std::lock_guard lock(mutex_);
    queue_.erase(std::find(queue_.begin(), queue_.end(), number));
  }
  changed_.notify_all();
}

Turns::Turn::Turn(Turns& turns, const std::stop_token& stop)
    : turns_(turns), number_(turns.Join()) {
  std::unique_lock lock(turns_.mutex_);
  isTaken_ = turns_.changed_.wait(lock, stop, [this] { return turns_.queue_.front() == number_; });
}

Turns::Turn::~Turn() {
  turns_.Leave(number_);
}

}  // namespace project_lumen::backend
