#include "studio/http/BoundedTaskQueue.h"

#include <utility>

namespace project_lumen::studio {
namespace {

thread_local bool isRefusing = false;

}  // namespace

BoundedTaskQueue::BoundedTaskQueue(std::size_t threads, std::size_t waiting)
    : mostWaiting_(waiting) {
  threads_.reserve(threads);
  for (std::size_t i = 0; i < threads; ++i) {
    threads_.emplace_back([this] { Work(); });
  }
}

void BoundedTaskQueue::enqueue(std::function<void()> task) {
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.size() < mostWaiting_) {
      waiting_.push_back(std::move(task));
      changed_.notify_one();
      return;
    }
  }
  isRefusing = true;
  task();
  isRefusing = false;
}

void BoundedTaskQueue::shutdown() {
  {
    const std::lock_guard lock(mutex_);
    isShutDown_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

bool BoundedTaskQueue::IsRefusing() {
  return isRefusing;
}

bool BoundedTaskQueue::HasWaiting() const {
  const std::lock_guard lock(mutex_);
  return !waiting_.empty();
}

void BoundedTaskQueue::Work() {
  while (true) {
    std::function<void()> task;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return isShutDown_ || !waiting_.empty(); });
      if (waiting_.empty()) {
        return;
      }
      task = std::move(waiting_.front());
      waiting_.pop_front();
    }
    task();
  }
}

}  // namespace project_lumen::studio
