#include "lib/StoppableInference.h"

#include <chrono>
#include <exception>
#include <future>
#include <thread>
#include <utility>

#include "core/Image.h"

namespace project_lumen::lib {
namespace {

constexpr std::chrono::milliseconds kPause{50};

using Lines = std::vector<std::string>;

// What the work came to, with the lines that it logged, in whatever way it ended.
struct Outcome {
  std::vector<float> samples;
  std::exception_ptr failure = nullptr;
  Lines lines;
};

Outcome Try(const TileWork& work, const std::stop_token& stop) noexcept {
  Outcome outcome;
  try {
    outcome.samples =
        work(stop, [&outcome](const std::string& line) { outcome.lines.push_back(line); });
  } catch (...) {
    outcome.failure = std::current_exception();
  }
  return outcome;
}

}  // namespace

std::vector<float> RunStoppable(const TileWork& work, const std::function<bool()>& stopRequested,
                                const std::function<void(const std::string&)>& messages) {
  if (!stopRequested) {
    return work({}, messages);
  }
  std::promise<Outcome> promise;
  std::future<Outcome> future = promise.get_future();
  // Its end requests a stop and waits, whatever is thrown here.
  std::jthread worker(
      [&work, &promise](const std::stop_token& stop) { promise.set_value(Try(work, stop)); });
  while (future.wait_for(kPause) != std::future_status::ready) {
    if (stopRequested()) {
      throw core::Cancelled();
    }
  }
  Outcome outcome = future.get();
  for (const std::string& line : outcome.lines) {
    messages(line);
  }
  if (outcome.failure) {
    std::rethrow_exception(outcome.failure);
  }
  return std::move(outcome.samples);
}

}  // namespace project_lumen::lib
