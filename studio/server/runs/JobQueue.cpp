#include "studio/runs/JobQueue.h"

#include <algorithm>

#include "studio/FailureWords.h"
#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMostJobs = 10000;
constexpr std::size_t kMostMessages = 1000;

void End(Job& job, Job::State state) {
  job.state = state;
  job.ended = Job::Clock::now();
}

}  // namespace

JobQueue::JobQueue(EventHub& events, Work work)
    : events_(events), work_(std::move(work)), thread_([this] { Loop(); }) {}

JobQueue::~JobQueue() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    for (auto& [id, job] : jobs_) {
      *job.shallStop = true;
    }
  }
  changed_.notify_all();
  thread_.join();
}

std::string JobQueue::ReserveId() {
  const std::lock_guard lock(mutex_);
  return "j" + std::to_string(++added_);
}

void JobQueue::Append(Job& job) {
  if (job.id.empty()) {
    job.id = "j" + std::to_string(++added_);
  }
  jobs_[job.id] = job;
  events_.Publish("job", DescribeLocked(jobs_[job.id]));
}

Json JobQueue::Add(std::vector<Job> jobs) {
  const std::lock_guard lock(mutex_);
  if (jobs_.size() + jobs.size() > kMostJobs) {
    throw ApiError(503, "busy", "There are too many jobs. Clear those that are done.");
  }
  Json described = Json::array();
  for (Job& job : jobs) {
    Append(job);
    described.push_back(DescribeLocked(job));
  }
  changed_.notify_all();
  return described;
}

Json JobQueue::AddDone(Job job) {
  const std::lock_guard lock(mutex_);
  job.started = Job::Clock::now();
  job.percent = 100.0;
  End(job, Job::State::kDone);
  Append(job);
  return DescribeLocked(job);
}

void JobQueue::Change(const std::string& id, const std::function<void(Job&)>& change) {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(id);
  if (found != jobs_.end()) {
    change(found->second);
    events_.Publish("job", DescribeLocked(found->second));
  }
}

void JobQueue::AddMessage(const std::string& id, JobMessage message) {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(id);
  if (found == jobs_.end()) {
    return;
  }
  Job& job = found->second;
  job.warnings += message.kind == "warning" ? 1 : 0;
  if (job.messages.size() >= kMostMessages) {
    return;
  }
  events_.Publish("message", {{"job", id}, {"message", DescribeMessage(message)}});
  job.messages.push_back(std::move(message));
}

Job& JobQueue::FindLocked(const std::string& id) {
  const auto found = jobs_.find(id);
  if (found == jobs_.end()) {
    throw NotFound("There is no such job.");
  }
  return found->second;
}

Json JobQueue::Stop(const std::string& id) {
  const std::lock_guard lock(mutex_);
  Job& job = FindLocked(id);
  *job.shallStop = true;
  if (job.state == Job::State::kWaiting) {
    End(job, Job::State::kStopped);
    events_.Publish("job", DescribeLocked(job));
  }
  return DescribeLocked(job);
}

void JobQueue::Remove(const std::string& id) {
  const std::lock_guard lock(mutex_);
  if (!FindLocked(id).HasEnded()) {
    throw NotReady("The job has not ended. Stop it first.");
  }
  jobs_.erase(id);
  events_.Publish("job_removed", {{"id", id}});
}

void JobQueue::RemoveEnded() {
  const std::lock_guard lock(mutex_);
  for (auto next = jobs_.begin(); next != jobs_.end();) {
    if (next->second.HasEnded()) {
      events_.Publish("job_removed", {{"id", next->first}});
      next = jobs_.erase(next);
    } else {
      ++next;
    }
  }
}

Job JobQueue::Find(const std::string& id) const {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(id);
  if (found == jobs_.end()) {
    throw NotFound("There is no such job.");
  }
  return found->second;
}

Json JobQueue::DescribeAll() const {
  const std::lock_guard lock(mutex_);
  Json described = Json::array();
  for (const auto& [id, job] : jobs_) {
    described.push_back(DescribeLocked(job));
  }
  return described;
}

Json JobQueue::Describe(const std::string& id) const {
  const Job job = Find(id);
  Json messages = Json::array();
  for (const JobMessage& message : job.messages) {
    messages.push_back(DescribeMessage(message));
  }
  const std::lock_guard lock(mutex_);
  Json described = DescribeLocked(job);
  described["messages"] = messages;
  return described;
}

int JobQueue::PositionOf(const Job& job) const {
  if (job.state != Job::State::kWaiting) {
    return 0;
  }
  return static_cast<int>(std::count_if(jobs_.begin(), jobs_.end(), [&](const auto& entry) {
    const Job& other = entry.second;
    const bool isSooner =
        other.kind == job.kind ? InOrder()(other.id, job.id) : other.kind == Job::Kind::kPreview;
    return !other.HasEnded() && other.id != job.id &&
           (other.state != Job::State::kWaiting || isSooner);
  }));
}

Json JobQueue::DescribeLocked(const Job& job) const {
  return DescribeJob(job, PositionOf(job));
}

const Job* JobQueue::Next() const {
  for (const Job::Kind kind : {Job::Kind::kPreview, Job::Kind::kRun}) {
    for (const auto& [id, job] : jobs_) {
      if (job.kind == kind && job.state == Job::State::kWaiting) {
        return &job;
      }
    }
  }
  return nullptr;
}

void JobQueue::Loop() {
  while (true) {
    Job job;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return isEnding_ || Next() != nullptr; });
      if (isEnding_) {
        return;
      }
      Job& next = jobs_.at(Next()->id);
      next.state = Job::State::kRunning;
      next.started = Job::Clock::now();
      job = next;
    }
    Change(job.id, [](Job& /*told*/) {});
    Do(job);
  }
}

void JobQueue::Do(const Job& job) {
  std::string error;
  try {
    work_(*this, job);
  } catch (const std::exception& failure) {
    error = WordsFor(failure);
  }
  Change(job.id, [&](Job& ended) {
    if (error.empty()) {
      ended.percent = 100.0;
      End(ended, Job::State::kDone);
    } else if (*ended.shallStop) {
      End(ended, Job::State::kStopped);
    } else {
      ended.error = error;
      End(ended, Job::State::kFailed);
    }
  });
}

}  // namespace project_lumen::studio
