#include "studio/http/DeadlineStream.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace project_lumen::studio {
namespace {

using Milliseconds = std::chrono::milliseconds;

// Whether the socket is ready for `events` before so much time has passed.
bool IsReady(socket_t socket, short events, Milliseconds time) {
  pollfd entry{socket, events, 0};
  while (true) {
    const int ready =
        poll(&entry, 1, static_cast<int>(std::max<Milliseconds::rep>(0, time.count())));
    if (ready >= 0 || errno != EINTR) {
      return ready > 0;
    }
  }
}

}  // namespace

DeadlineStream::DeadlineStream(socket_t socket, const ConnectionLimits& limits)
    : socket_(socket),
      limits_(limits),
      bodyBytesAllowed_(limits.bodyBytes),
      answerTime_(limits.answer),
      deadline_(Clock::now() + limits.head),
      answerDeadline_(deadline_ + limits.answer) {}

bool DeadlineStream::AwaitRequest(Milliseconds patience, const std::function<bool()>& shallGiveUp) {
  constexpr Milliseconds kSlice{50};
  const auto end = Clock::now() + patience;
  while (begin_ == end_) {
    if (IsReady(socket_, POLLIN, kSlice)) {
      break;
    }
    if (Clock::now() >= end || shallGiveUp()) {
      return false;
    }
  }
  isInHead_ = true;
  headBytesRead_ = 0;
  lineBytes_ = 0;
  bodyBytesRead_ = 0;
  bodyBytesAllowed_ = limits_.bodyBytes;
  answerTime_ = limits_.answer;
  deadline_ = Clock::now() + limits_.head;
  answerDeadline_ = deadline_ + answerTime_;
  return true;
}

void DeadlineStream::Allow(const RequestAllowance& allowance) {
  deadline_ = Clock::now() + allowance.bodyTime;
  bodyBytesAllowed_ = allowance.bodyBytes;
  answerTime_ = allowance.answerTime;
  answerDeadline_ = Clock::now() + answerTime_;
}

void DeadlineStream::Drain() {
  constexpr Milliseconds kTime{200};
  shutdown(socket_, SHUT_WR);
  const auto end = Clock::now() + kTime;
  while (Clock::now() < end && IsReady(socket_, POLLIN, kTime) &&
         recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT) > 0) {
  }
}

bool DeadlineStream::is_readable() const {
  return begin_ < end_ || IsReady(socket_, POLLIN, Milliseconds(0));
}

bool DeadlineStream::is_writable() const {
  return IsReady(socket_, POLLOUT, limits_.silence);
}

bool DeadlineStream::Fill() {
  const auto left = std::chrono::duration_cast<Milliseconds>(deadline_ - Clock::now());
  if (left.count() <= 0 || !IsReady(socket_, POLLIN, std::min(left, limits_.silence))) {
    return false;
  }
  const ssize_t got = recv(socket_, buffer_.data(), buffer_.size(), 0);
  if (got <= 0) {
    return false;
  }
  begin_ = 0;
  end_ = static_cast<std::size_t>(got);
  answerDeadline_ = Clock::now() + answerTime_;
  return true;
}

// An empty line ends the headers.
void DeadlineStream::NoteHeadByte(char byte) {
  ++headBytesRead_;
  if (byte == '\n') {
    if (lineBytes_ == 0) {
      isInHead_ = false;
      deadline_ = Clock::now() + limits_.body;
    }
    lineBytes_ = 0;
  } else if (byte != '\r') {
    ++lineBytes_;
  }
}

ssize_t DeadlineStream::read(char* bytes, std::size_t size) {
  if (isInHead_ ? headBytesRead_ >= limits_.headBytes : bodyBytesRead_ >= bodyBytesAllowed_) {
    return -1;
  }
  if (begin_ == end_ && !Fill()) {
    return -1;
  }
  std::size_t count = std::min(size, end_ - begin_);
  if (isInHead_) {
    // A byte at a time: what follows the headers is under other limits.
    count = std::min<std::size_t>(count, 1);
    NoteHeadByte(buffer_[begin_]);
  } else {
    count = static_cast<std::size_t>(
        std::min<std::uint64_t>(count, bodyBytesAllowed_ - bodyBytesRead_));
    bodyBytesRead_ += count;
  }
  std::memcpy(bytes, buffer_.data() + begin_, count);
  begin_ += count;
  return static_cast<ssize_t>(count);
}

ssize_t DeadlineStream::write(const char* bytes, std::size_t size) {
  const auto left = std::chrono::duration_cast<Milliseconds>(answerDeadline_ - Clock::now());
  if (left.count() <= 0 || !IsReady(socket_, POLLOUT, std::min(left, limits_.silence))) {
    return -1;
  }
  return send(socket_, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void DeadlineStream::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = "127.0.0.1";  // nobody else can connect
  port = 0;
}

void DeadlineStream::get_local_ip_and_port(std::string& ip, int& port) const {
  ip = "127.0.0.1";
  port = 0;
}

}  // namespace project_lumen::studio
