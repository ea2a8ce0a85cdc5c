// A connection that cannot be held open by being slow.
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace project_lumen::studio {

// How long and how much a connection may take for one request.
struct ConnectionLimits {
  std::chrono::milliseconds head{5000};      // from the first byte to the end of the headers
  std::chrono::milliseconds body{30000};     // for the body, however slowly it comes
  std::chrono::milliseconds answer{60000};   // for the answer, however slowly it is taken
  std::chrono::milliseconds silence{10000};  // between two pieces of a body or of an answer
  std::size_t headBytes = 32768;             // request line and headers
  std::uint64_t bodyBytes = std::uint64_t{1} << 20U;
};

// What one request may take beyond its headers.
struct RequestAllowance {
  std::chrono::milliseconds bodyTime;
  std::uint64_t bodyBytes;
  std::chrono::milliseconds answerTime;  // from the last byte read to the last one written
};

// The two ends of a connected socket for httplib, which asks for bytes and never for the time. A
// read or write beyond a limit fails, whereupon httplib gives the connection up. The socket stays
// the caller's. Used by one thread.
class DeadlineStream : public httplib::Stream {
 public:
  DeadlineStream(socket_t socket, const ConnectionLimits& limits);

  // Waits for the first byte of the next request: false when none comes within `patience`, the
  // other side has gone, or `shallGiveUp`, asked now and then, says so.
  bool AwaitRequest(std::chrono::milliseconds patience, const std::function<bool()>& shallGiveUp);

  // For the request whose headers have just been read, in the place of the limits given before.
  void Allow(const RequestAllowance& allowance);

  // Bytes of the body that were read.
  [[nodiscard]] std::uint64_t BodyBytesRead() const { return bodyBytesRead_; }

  // Reads and drops what still comes, for a short time, so that the other side gets to read the
  // answer before the connection ends.
  void Drain();

  [[nodiscard]] bool is_readable() const override;
  [[nodiscard]] bool is_writable() const override;
  ssize_t read(char* bytes, std::size_t size) override;
  ssize_t write(const char* bytes, std::size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  [[nodiscard]] socket_t socket() const override { return socket_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool Fill();
  void NoteHeadByte(char byte);

  socket_t socket_;
  ConnectionLimits limits_;
  std::array<char, 16384> buffer_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool isInHead_ = true;
  std::size_t headBytesRead_ = 0;
  int lineBytes_ = 0;  // of the header line that is being read, without its end
  std::uint64_t bodyBytesRead_ = 0;
  std::uint64_t bodyBytesAllowed_;
  std::chrono::milliseconds answerTime_;
  Clock::time_point deadline_;        // for what is read
  Clock::time_point answerDeadline_;  // for what is written
};

}  // namespace project_lumen::studio
