// What waits for the program, what it does, and what it has done.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "studio/http/EventHub.h"
#include "studio/runs/Job.h"

namespace project_lumen::studio {

// Does one job at a time on a thread of its own, previews before runs, else in order, and tells the
// pages of every change. Safe for any thread.
class JobQueue {
 public:
  // Does a job that has begun and tells of it through Change. An exception makes the job fail.
  using Work = std::function<void(JobQueue& queue, const Job& job)>;

  JobQueue(EventHub& events, Work work);
  // Stops what is running and waits for its end.
  ~JobQueue();
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  // An id for a job that is still to be added.
  [[nodiscard]] std::string ReserveId();

  // Lines jobs up, under new ids unless they have reserved ones, and returns them as they are
  // described. Throws ApiError 503 when there are too many.
  nlohmann::json Add(std::vector<Job> jobs);
  // The same for a job that is done already.
  nlohmann::json AddDone(Job job);

  // Changes a job and tells the pages; does nothing for one that is gone.
  void Change(const std::string& id, const std::function<void(Job&)>& change);
  void AddMessage(const std::string& id, JobMessage message);

  // What waits is stopped at once, what runs soon. Throws ApiError 404.
  nlohmann::json Stop(const std::string& id);
  // Takes ended jobs off the list. Remove throws ApiError 404, and 409 for one that has not ended.
  void Remove(const std::string& id);
  void RemoveEnded();

  // Throws ApiError 404.
  [[nodiscard]] Job Find(const std::string& id) const;
  [[nodiscard]] nlohmann::json DescribeAll() const;
  // With its messages.
  [[nodiscard]] nlohmann::json Describe(const std::string& id) const;

 private:
  struct InOrder {
    bool operator()(const std::string& one, const std::string& other) const {
      return one.size() != other.size() ? one.size() < other.size() : one < other;
    }
  };

  void Loop();
  void Do(const Job& job);
  void Append(Job& job);
  // Under the lock:
  [[nodiscard]] const Job* Next() const;
  [[nodiscard]] int PositionOf(const Job& job) const;
  [[nodiscard]] nlohmann::json DescribeLocked(const Job& job) const;
  Job& FindLocked(const std::string& id);

  EventHub& events_;
  Work work_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, Job, InOrder> jobs_;
  int added_ = 0;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace project_lumen::studio
