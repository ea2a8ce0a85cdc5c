#include "studio/SerialWorker.h"

#include <utility>

namespace project_lumen::studio {

SerialWorker::SerialWorker() : thread_([this] { Work(); }) {}

SerialWorker::~SerialWorker() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void SerialWorker::Post(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(work));
  changed_.notify_one();
}

void SerialWorker::Work() {
  while (true) {
    std::function<void()> work;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return isOver_ || !waiting_.empty(); });
      if (isOver_) {
        return;
      }
      work = std::move(waiting_.front());
      waiting_.pop_front();
    }
    work();
  }
}

}  // namespace project_lumen::studio
