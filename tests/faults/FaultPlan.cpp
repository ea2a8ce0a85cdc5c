#include "FaultPlan.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace faults {
namespace {

namespace fs = std::filesystem;

struct Plan {
  std::string call;
  std::string path;
  std::string report;
  std::string count;
  std::string cut;
  std::string remove;
  long size = 0;
  long number = 0;
  long times = 1;
  long error = 0;
  long signal = 0;
};

// Never destroyed: files are closed after the end of main, too.
const Plan* plan = nullptr;
std::atomic<long> callCount{0};
// What the plan does itself is not counted, nor what happens before there is a plan.
thread_local bool isBusy = false;

std::string Text(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

long Number(const char* name, long otherwise) {
  const std::string text = Text(name);
  return text.empty() ? otherwise : std::stol(text);
}

__attribute__((constructor)) void ReadPlan() {
  plan = new Plan{.call = Text("NEBULEX2_FAULT_CALL"),
                  .path = Text("NEBULEX2_FAULT_PATH"),
                  .report = Text("NEBULEX2_FAULT_REPORT"),
                  .count = Text("NEBULEX2_FAULT_COUNT"),
                  .cut = Text("NEBULEX2_FAULT_CUT"),
                  .remove = Text("NEBULEX2_FAULT_REMOVE"),
                  .size = Number("NEBULEX2_FAULT_SIZE", 0),
                  .number = Number("NEBULEX2_FAULT_NUMBER", 0),
                  .times = Number("NEBULEX2_FAULT_TIMES", 1),
                  .error = Number("NEBULEX2_FAULT_ERROR", 0),
                  .signal = Number("NEBULEX2_FAULT_SIGNAL", 0)};
}

void Note(const std::string& path, const std::string& text) {
  if (!path.empty()) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    static_cast<void>(!write(file, text.data(), text.size()));
    close(file);
  }
}

__attribute__((destructor)) void NoteCount() {
  isBusy = true;
  Note(plan->count, std::to_string(callCount));
}

void Strike() {
  std::error_code ignored;
  Note(plan->report, "");
  if (!plan->cut.empty()) {
    fs::resize_file(plan->cut, fs::file_size(plan->cut) / 2, ignored);
  }
  if (!plan->remove.empty()) {
    fs::remove_all(plan->remove, ignored);
  }
  if (plan->signal != 0) {
    std::raise(static_cast<int>(plan->signal));
  }
}

}  // namespace

bool IsPlanned(std::string_view call) {
  return plan != nullptr && !isBusy && plan->call == call;
}

bool GoesWrong() {
  const long number = ++callCount;
  if (number < plan->number || number - plan->number >= plan->times) {
    return false;
  }
  isBusy = true;
  Strike();
  isBusy = false;
  errno = static_cast<int>(plan->error);
  return plan->error != 0;
}

bool GoesWrongOn(const char* path) {
  return std::string_view(path).starts_with(plan->path) && GoesWrong();
}

bool GoesWrongOn(int descriptor) {
  std::array<char, PATH_MAX> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  return readlink(link.c_str(), path.data(), path.size() - 1) > 0 && GoesWrongOn(path.data());
}

bool IsLarge(unsigned long size) {
  return size >= static_cast<unsigned long>(plan->size);
}

}  // namespace faults
