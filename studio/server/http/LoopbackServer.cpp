#include "studio/http/LoopbackServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string_view>

#include "studio/http/BoundedTaskQueue.h"

namespace project_lumen::studio {
namespace {

constexpr const char* kAddress = "127.0.0.1";
constexpr int kBacklog = 256;

// A word for a connection that nobody has time for. Does not wait.
void Refuse(socket_t socket) {
  constexpr std::string_view kAnswer =
      "HTTP/1.1 503 Service Unavailable\r\nContent-Type: text/plain\r\nContent-Length: 29\r\n"
      "Connection: close\r\n\r\nToo many connections at once.";
  send(socket, kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::uint64_t ContentLength(const httplib::Request& request) {
  return std::strtoull(request.get_header_value("Content-Length").c_str(), nullptr, 10);
}

}  // namespace

LoopbackServer::LoopbackServer(const ServerLimits& limits) : limits_(limits) {
  set_tcp_nodelay(true);
  // Bodies are bounded by the stream, a request at a time.
  new_task_queue = [this] {
    queue_ = new BoundedTaskQueue(limits_.threads, limits_.waiting);  // httplib deletes it
    return queue_;
  };
}

int LoopbackServer::Bind(int port) {
  const int bound =
      port == 0 ? bind_to_any_port(kAddress) : (bind_to_port(kAddress, port) ? port : -1);
  if (bound > 0) {
    ::listen(svr_sock_, kBacklog);  // httplib's own backlog holds five
  }
  return bound;
}

bool LoopbackServer::process_and_close_socket(socket_t socket) {
  if (BoundedTaskQueue::IsRefusing()) {
    Refuse(socket);
  } else {
    DeadlineStream stream(socket, limits_.connection);
    AnswerRequests(stream);
    stream.Drain();
  }
  close(socket);
  return true;
}

void LoopbackServer::AnswerRequests(DeadlineStream& stream) {
  for (std::size_t left = limits_.requestsPerConnection; left > 0; --left) {
    const auto waitingSince = std::chrono::steady_clock::now();
    const auto shallGiveUp = [&] {
      return isStopping_ ||
             (queue_->HasWaiting() &&
              std::chrono::steady_clock::now() - waitingSince > limits_.idleWhenBusy);
    };
    if (!stream.AwaitRequest(limits_.idle, shallGiveUp) ||
        !AnswerRequest(stream, left == 1 || isStopping_)) {
      return;
    }
  }
}

// Whether the connection can go on.
bool LoopbackServer::AnswerRequest(DeadlineStream& stream, bool isLast) {
  bool isClosed = false;
  std::uint64_t announced = 0;
  bool isChunked = false;
  const bool isAnswered = process_request(stream, isLast, isClosed, [&](httplib::Request& request) {
    announced = ContentLength(request);
    isChunked = request.has_header("Transfer-Encoding");
    request.ranges.clear();  // everything is given whole
    if (request.method == "DELETE" && !request.has_header("Content-Length") && !isChunked) {
      // Browsers do not announce a body that is not there; httplib would wait for one.
      request.set_header("Content-Length", "0");
    }
    if (allowance_) {
      stream.Allow(allowance_(request));
    }
  });
  // What was announced and not read would be taken for the next request.
  const bool isWhole = !isChunked && stream.BodyBytesRead() == announced;
  return isAnswered && !isClosed && !isLast && isWhole;
}

}  // namespace project_lumen::studio
