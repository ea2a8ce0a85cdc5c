#include "studio/http/RequestGuard.h"

#include "studio/http/Secrets.h"

namespace project_lumen::studio {
namespace {

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') {
    text.remove_prefix(1);
  }
  while (!text.empty() && text.back() == ' ') {
    text.remove_suffix(1);
  }
  return text;
}

}  // namespace

RequestGuard::RequestGuard(int port)
    : port_(std::to_string(port)),
      token_(MakeSecret()),
      // Cookies do not know ports, and another studio may run beside this one.
      cookieName_("nebulex2-studio-" + port_),
      cookieValue_(MakeSecret()) {}

std::string RequestGuard::CookieHeader() const {
  return cookieName_ + "=" + cookieValue_ + "; Path=/; HttpOnly; SameSite=Strict";
}

std::string RequestGuard::RefusalOfOrigin(const RequestOrigin& request) const {
  const std::string address = "127.0.0.1:" + port_;
  const std::string name = "localhost:" + port_;
  if (request.hosts != 1 || (request.host != address && request.host != name)) {
    return "foreign Host header";
  }
  const std::string own = "http://" + std::string(request.host);
  if (!request.origin.empty() && request.origin != own) {
    return "foreign Origin header";
  }
  if (!request.fetchSite.empty() && request.fetchSite != "same-origin" &&
      request.fetchSite != "none") {
    return "sent by another site";
  }
  const bool isReading = request.method == "GET" || request.method == "HEAD";
  if (!isReading && request.origin.empty()) {
    return "no Origin header";
  }
  return {};
}

bool RequestGuard::HasCookie(std::string_view cookies) const {
  while (!cookies.empty()) {
    const std::size_t end = cookies.find(';');
    const std::string_view pair = Trimmed(cookies.substr(0, end));
    const std::size_t equals = pair.find('=');
    if (equals != std::string_view::npos && pair.substr(0, equals) == cookieName_ &&
        IsSameSecret(pair.substr(equals + 1), cookieValue_)) {
      return true;
    }
    cookies = end == std::string_view::npos ? std::string_view() : cookies.substr(end + 1);
  }
  return false;
}

bool RequestGuard::IsToken(std::string_view text) const {
  return IsSameSecret(text, token_);
}

}  // namespace project_lumen::studio
