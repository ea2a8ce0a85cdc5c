// The threads that answer connections, and a bounded line before them.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace project_lumen::studio {

// Runs the connections of a server on a fixed number of threads. A connection that finds the line
// full is run at once by the thread that brings it, which IsRefusing tells to it, so that it can be
// closed with a word; nothing waits without a limit.
class BoundedTaskQueue : public httplib::TaskQueue {
 public:
  BoundedTaskQueue(std::size_t threads, std::size_t waiting);

  void enqueue(std::function<void()> task) override;
  void shutdown() override;

  // Whether the calling thread runs a connection only to refuse it.
  static bool IsRefusing();

  // Whether connections wait for a thread.
  [[nodiscard]] bool HasWaiting() const;

 private:
  void Work();

  const std::size_t mostWaiting_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  bool isShutDown_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace project_lumen::studio
