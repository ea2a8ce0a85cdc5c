#include "studio/runs/Job.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "studio/files/PathText.h"
#include "studio/images/ImageState.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

Json TextOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

const char* NameOfKind(Job::Kind kind) {
  switch (kind) {
    case Job::Kind::kRun:
      return "run";
    case Job::Kind::kPreview:
      return "preview";
    default:
      return "save";
  }
}

const char* NameOfState(Job::State state) {
  switch (state) {
    case Job::State::kWaiting:
      return "waiting";
    case Job::State::kRunning:
      return "running";
    case Job::State::kWriting:
      return "writing";
    case Job::State::kDone:
      return "done";
    case Job::State::kFailed:
      return "failed";
    default:
      return "stopped";
  }
}

double Seconds(Job::Clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

// Tiles take about the same time each.
Json RemainingSeconds(const Job& job) {
  if (job.state != Job::State::kRunning || job.current <= 0) {
    return nullptr;
  }
  const double used = Seconds(Job::Clock::now() - job.firstTile);
  return used / static_cast<double>(job.current) * static_cast<double>(job.total - job.current);
}

double ElapsedSeconds(const Job& job) {
  return job.state == Job::State::kWaiting
             ? 0.0
             : Seconds(job.ended.value_or(Job::Clock::now()) - job.started);
}

}  // namespace

bool ResultPlan::Keeps(const std::string& role) const {
  return std::find(kept.begin(), kept.end(), role) != kept.end();
}

Json DescribeJob(const Job& job, int position) {
  Json files = Json::array();
  for (const ResultFile& file : job.files) {
    files.push_back(DescribeResultFile(file, job.id));
  }
  return {{"id", job.id},
          {"kind", NameOfKind(job.kind)},
          {"image", TextOrNull(job.image)},
          {"file", job.file},
          {"name", NameIn(job.path)},
          {"state", NameOfState(job.state)},
          {"position", position},
          {"options", job.options},
          {"area", job.area ? DescribeArea(*job.area) : Json(nullptr)},
          {"current", job.current},
          {"total", job.total},
          {"percent", job.percent},
          {"elapsed_s", ElapsedSeconds(job)},
          {"remaining_s", RemainingSeconds(job)},
          {"error", TextOrNull(job.error)},
          {"error_details", TextOrNull(job.errorDetails)},
          {"warnings", job.warnings},
          {"notes", job.notes},
          {"files", files}};
}

Json DescribeMessage(const JobMessage& message) {
  return {{"kind", message.kind},
          {"code", TextOrNull(message.code)},
          {"text", message.text},
          {"time", message.time}};
}

std::string TimeOfMessage() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                parts.tm_sec, static_cast<int>(rest.count() % 1000));
  return text.data();
}

}  // namespace project_lumen::studio
