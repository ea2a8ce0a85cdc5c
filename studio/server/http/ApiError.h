// What a request can be answered with instead of what it asked for.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

namespace project_lumen::studio {

// An answer with a status from 400 on. what() is for the person at the page, word for word; `code`
// is for the page's program; `details` is an object whose members stand beside both.
class ApiError : public std::runtime_error {
 public:
  ApiError(int status, std::string code, const std::string& message,
           nlohmann::json details = nlohmann::json::object())
      : std::runtime_error(message),
        status_(status),
        code_(std::move(code)),
        details_(std::move(details)) {}

  [[nodiscard]] int Status() const { return status_; }
  [[nodiscard]] const std::string& Code() const { return code_; }
  [[nodiscard]] const nlohmann::json& Details() const { return details_; }

 private:
  int status_;
  std::string code_;
  nlohmann::json details_;
};

inline ApiError BadRequest(const std::string& message) {
  return {400, "bad_request", message};
}
inline ApiError NotFound(const std::string& message) {
  return {404, "not_found", message};
}
inline ApiError NotReady(const std::string& message) {
  return {409, "not_ready", message};
}
inline ApiError Changed(const std::string& message) {
  return {409, "changed", message};
}
inline ApiError TooLarge(const std::string& message) {
  return {413, "too_large", message};
}
inline ApiError NoRoom(const std::string& message) {
  return {507, "no_room", message};
}

}  // namespace project_lumen::studio
