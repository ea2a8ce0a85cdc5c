// One thing that the program does, or is to do.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core/types.hpp>
#include <optional>
#include <string>
#include <vector>

#include "studio/results/ResultFile.h"

namespace project_lumen::studio {

struct JobMessage {
  std::string kind;  // "info", "warning", "error" or "text"
  std::string code;  // empty for none
  std::string text;
  std::string time;
};

// Where the results of a run go.
struct ResultPlan {
  std::vector<std::string> kept;  // roles
  std::string pattern;
  std::string suffix;  // of the results' names, with its dot
  std::string folder;  // id
  bool replaces = false;

  [[nodiscard]] bool Keeps(const std::string& role) const;
};

struct Job {
  enum class Kind { kRun, kPreview, kSave };
  enum class State { kWaiting, kRunning, kWriting, kDone, kFailed, kStopped };
  using Clock = std::chrono::steady_clock;

  std::string id;
  Kind kind = Kind::kRun;
  std::string image;  // id; empty where none is open
  std::string file;   // id
  std::string path;   // of the source
  nlohmann::json options = nlohmann::json::object();
  std::vector<std::string> optionArguments;  // what they become on the program's command line
  std::optional<cv::Rect> area;              // of a preview
  ResultPlan plan;                           // of a run
  std::shared_ptr<std::atomic<bool>> shallStop = std::make_shared<std::atomic<bool>>(false);

  State state = State::kWaiting;
  std::int64_t current = 0;
  std::int64_t total = 0;
  double percent = 0.0;
  Clock::time_point started;
  Clock::time_point firstTile;  // when the network had begun
  std::optional<Clock::time_point> ended;
  std::string error;         // for the person
  std::string errorDetails;  // the rest of the program's message
  int warnings = 0;
  std::vector<std::string> notes;
  std::vector<ResultFile> files;
  std::vector<JobMessage> messages;

  [[nodiscard]] bool HasEnded() const {
    return state == State::kDone || state == State::kFailed || state == State::kStopped;
  }
};

// As the page gets it, but for its messages; `position` counts the jobs that are done before it.
nlohmann::json DescribeJob(const Job& job, int position);
nlohmann::json DescribeMessage(const JobMessage& message);

// Now, as it stands in a message: UTC with milliseconds.
std::string TimeOfMessage();

}  // namespace project_lumen::studio
