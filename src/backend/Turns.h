// Who may use a thing that only one can use at a time: first come, first served.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <stop_token>

namespace project_lumen::backend {

class Turns {
 public:
  // A turn, for as long as it lives.
  class Turn {
   public:
    // Waits behind everybody who came before. Without a turn, IsTaken says so, comes back who is
    // told to stop while waiting.
    Turn(Turns& turns, const std::stop_token& stop);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    [[nodiscard]] bool IsTaken() const { return isTaken_; }

   private:
    Turns& turns_;
    std::uint64_t number_;
    bool isTaken_;
  };

 private:
  std::uint64_t Join();
  void Leave(std::uint64_t number);

  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<std::uint64_t> queue_;  // numbers in the order of arrival; the first has its turn
  std::uint64_t last_ = 0;
};

}  // namespace project_lumen::backend
