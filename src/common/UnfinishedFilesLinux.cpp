#include "common/UnfinishedFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>

namespace project_lumen {
namespace {

constexpr std::size_t kMostFiles = 8;
constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU};

// In memory of its own that is never given back: the handler may run at any moment on any thread.
struct Entry {
  std::atomic<bool> isUsed = false;
  std::array<char, PATH_MAX> path{};
};
std::array<Entry, kMostFiles> entries;

// Between a file's creation and its entry a signal has to wait: it is left here for the creator.
constexpr int kIdle = 0;
constexpr int kCreating = -1;
std::atomic<int> creation = kIdle;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void EndBySignal(int number) {
  for (const Entry& entry : entries) {
    if (entry.isUsed) {
      unlink(entry.path.data());
    }
  }
  static_cast<void>(std::signal(number, SIG_DFL));
  static_cast<void>(std::raise(number));
}

extern "C" void HandleEndingSignal(int number) {
  int state = kCreating;
  if (!creation.compare_exchange_strong(state, number) && state == kIdle) {
    EndBySignal(number);
  }
}

void Remember(const std::string& path) {
  const auto entry =
      std::find_if(entries.begin(), entries.end(), [](const Entry& e) { return !e.isUsed; });
  if (entry != entries.end() && path.size() < entry->path.size()) {
    *std::copy(path.begin(), path.end(), entry->path.begin()) = '\0';
    entry->isUsed = true;
  }
}

int CreateEmptyFile(const std::string& path, unsigned permissions) {
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
  return descriptor < 0 ? -errno : descriptor;
}

}  // namespace

void RemoveUnfinishedFilesOnSignals() {
  struct sigaction action {};
  action.sa_handler = HandleEndingSignal;
  action.sa_flags = SA_RESTART | SA_NODEFER;
  for (const int number : kEndingSignals) {
    struct sigaction previous {};
    if (sigaction(number, nullptr, &previous) == 0 && previous.sa_handler == SIG_DFL) {
      sigaction(number, &action, nullptr);
    }
  }
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
}

int CreateUnfinishedFile(const std::string& path, unsigned permissions) {
  creation = kCreating;
  const int descriptor = CreateEmptyFile(path, permissions);
  if (descriptor >= 0) {
    Remember(path);
  }
  const int signalMeanwhile = creation.exchange(kIdle);
  if (signalMeanwhile > 0) {
    EndBySignal(signalMeanwhile);
  }
  return descriptor;
}

void ForgetUnfinishedFile(const std::string& path) {
  for (Entry& entry : entries) {
    if (entry.isUsed && path == entry.path.data()) {
      entry.isUsed = false;
    }
  }
}

}  // namespace project_lumen
