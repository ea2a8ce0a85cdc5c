#include "studio/runs/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "io/files/FileDescriptor.h"
#include "studio/files/PathText.h"

extern char** environ;

namespace project_lumen::studio {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFirstOtherDescriptor = 3;

// What posix_spawn is told, with its C structures owned.
class SpawnPlan {
 public:
  SpawnPlan(int pipe, ChildOutput output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    const bool readsErrors = output == ChildOutput::kStandardError;
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, pipe, readsErrors ? STDERR_FILENO : STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions_, readsErrors ? STDOUT_FILENO : STDERR_FILENO,
                                     "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstOtherDescriptor);
    sigset_t none;
    sigemptyset(&none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnPlan() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  [[nodiscard]] pid_t Spawn(const std::vector<std::string>& arguments) const {
    std::vector<char*> words;
    for (const std::string& argument : arguments) {
      words.push_back(const_cast<char*>(argument.c_str()));  // not written to
    }
    words.push_back(nullptr);
    pid_t child = -1;
    const int code =
        posix_spawn(&child, words.front(), &actions_, &attributes_, words.data(), environ);
    if (code != 0) {
      throw std::runtime_error(arguments.front() + " cannot be started (" +
                               std::generic_category().message(code) + ").");
    }
    return child;
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// Cuts what is read into lines.
class LineCutter {
 public:
  explicit LineCutter(const std::function<void(std::string_view)>& take) : take_(take) {}

  void Add(std::string_view bytes) {
    while (!bytes.empty()) {
      const std::size_t end = bytes.find('\n');
      line_ += bytes.substr(0, end);
      if (end == std::string_view::npos && line_.size() < kLongestLine) {
        return;
      }
      Flush();
      bytes = end == std::string_view::npos ? std::string_view() : bytes.substr(end + 1);
    }
  }
  void Flush() {
    if (!line_.empty()) {
      take_(line_);
      line_.clear();
    }
  }

 private:
  const std::function<void(std::string_view)>& take_;
  std::string line_;
};

// One child, from its start to its end.
class Child {
 public:
  explicit Child(const ChildRun& run) : run_(run), lines_(run.takeLine) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error(NameIn(run.arguments.front()) + " cannot be started (" +
                               std::generic_category().message(errno) + ").");
    }
    pipe_ = io::FileDescriptor(ends[0]);
    const io::FileDescriptor written(ends[1]);
    pid_ = SpawnPlan(written.Get(), run.output).Spawn(run.arguments);
  }

  ChildEnd Follow() {
    constexpr int kSliceMs = 50;
    while (!IsOver()) {
      Stop();
      pollfd entry{pipe_.Get(), POLLIN, 0};
      if (pipe_.Get() < 0) {
        poll(nullptr, 0, kSliceMs);
      } else if (poll(&entry, 1, kSliceMs) > 0 && !ReadSome()) {
        pipe_.Close();
      }
    }
    // What it said at last; a program that it left behind may keep the pipe open.
    pollfd entry{pipe_.Get(), POLLIN, 0};
    while (pipe_.Get() >= 0 && poll(&entry, 1, 0) > 0 && ReadSome()) {
    }
    lines_.Flush();
    return end_;
  }

 private:
  bool ReadSome() {
    std::array<char, 65536> bytes{};
    const ssize_t got = read(pipe_.Get(), bytes.data(), bytes.size());
    if (got < 0 && errno == EINTR) {
      return true;
    }
    if (got > 0) {
      lines_.Add({bytes.data(), static_cast<std::size_t>(got)});
    }
    return got > 0;
  }

  bool IsOver() {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) {
      return false;
    }
    end_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    end_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return true;
  }

  void Stop() {
    constexpr std::chrono::seconds kPatience{5};
    if (!end_.isStopped && run_.shallStop()) {
      end_.isStopped = true;
      askedToStop_ = Clock::now();
      kill(-pid_, SIGTERM);
      kill(-pid_, SIGCONT);  // a program that was halted would not hear it
    } else if (end_.isStopped && Clock::now() - askedToStop_ > kPatience) {
      kill(-pid_, SIGKILL);
    }
  }

  const ChildRun& run_;
  LineCutter lines_;
  io::FileDescriptor pipe_;
  pid_t pid_ = -1;
  ChildEnd end_;
  Clock::time_point askedToStop_;
};

}  // namespace

ChildEnd RunChild(const ChildRun& run) {
  return Child(run).Follow();
}

}  // namespace project_lumen::studio
