// A thread that does one thing after another.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace project_lumen::studio {

// Work that throws ends the process, so it has to catch what it can.
class SerialWorker {
 public:
  SerialWorker();
  // Waits for what is being done; what has not begun is dropped.
  ~SerialWorker();
  SerialWorker(const SerialWorker&) = delete;
  SerialWorker& operator=(const SerialWorker&) = delete;

  void Post(std::function<void()> work);

 private:
  void Work();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  bool isOver_ = false;
  std::thread thread_;
};

}  // namespace project_lumen::studio
