// httplib's server on the loopback address, with limits that it does not have by itself.
#pragma once

#include <httplib.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "studio/http/DeadlineStream.h"

namespace project_lumen::studio {

class BoundedTaskQueue;

struct ServerLimits {
  std::size_t threads = 64;   // connections at a time, open event streams among them
  std::size_t waiting = 128;  // connections that wait for one of them; others get 503
  std::size_t requestsPerConnection = 1000;
  std::chrono::milliseconds idle{60'000};       // an open connection without a request
  std::chrono::milliseconds idleWhenBusy{200};  // the same while others wait
  ConnectionLimits connection;
};

// Listens on 127.0.0.1 only. Handlers run on many threads at a time.
class LoopbackServer : public httplib::Server {
 public:
  explicit LoopbackServer(const ServerLimits& limits);

  // Takes a port, any free one for 0, and returns it; -1 where that fails.
  int Bind(int port);

  // What a request may take, told from its headers. Without it the limits of the connection count.
  void SetAllowance(std::function<RequestAllowance(const httplib::Request&)> allowance) {
    allowance_ = std::move(allowance);
  }

  // From now on connections end after the answer that is on its way.
  void StopAnswering() { isStopping_ = true; }

 private:
  bool process_and_close_socket(socket_t socket) override;
  void AnswerRequests(DeadlineStream& stream);
  bool AnswerRequest(DeadlineStream& stream, bool isLast);

  ServerLimits limits_;
  std::function<RequestAllowance(const httplib::Request&)> allowance_;
  std::atomic<bool> isStopping_ = false;
  BoundedTaskQueue* queue_ = nullptr;  // httplib owns it while it listens
};

}  // namespace project_lumen::studio
