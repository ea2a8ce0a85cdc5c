// Who may ask: the page that this server gave out, in the browser that was given the token.
#pragma once

#include <string>
#include <string_view>

namespace project_lumen::studio {

// What a request says of where it comes from; empty where it says nothing.
struct RequestOrigin {
  std::string_view method;
  std::string_view host;       // Host header
  std::string_view origin;     // Origin header
  std::string_view fetchSite;  // Sec-Fetch-Site header
  std::string_view cookies;    // Cookie header
  int hosts = 1;               // how many Host headers there are
};

// The token of the first address and the cookie that it is exchanged for. Both are made at the
// start and end with the process. Constant, so any thread may ask.
class RequestGuard {
 public:
  explicit RequestGuard(int port);

  [[nodiscard]] const std::string& Token() const { return token_; }
  // The value of a Set-Cookie header.
  [[nodiscard]] std::string CookieHeader() const;

  // Why a request is refused, for the log; empty where it is not. Checks the Host header against
  // DNS rebinding, then that no other site has sent it: any Origin has to be the server's own, and
  // all methods but GET and HEAD need one.
  [[nodiscard]] std::string RefusalOfOrigin(const RequestOrigin& request) const;

  [[nodiscard]] bool HasCookie(std::string_view cookies) const;
  [[nodiscard]] bool IsToken(std::string_view text) const;

 private:
  std::string port_;
  std::string token_;
  std::string cookieName_;
  std::string cookieValue_;
};

}  // namespace project_lumen::studio
