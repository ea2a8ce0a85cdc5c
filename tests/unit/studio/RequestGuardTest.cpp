#include "studio/http/RequestGuard.h"

#include <gtest/gtest.h>

namespace project_lumen::studio {
namespace {

RequestOrigin From(std::string_view method, std::string_view host, std::string_view origin) {
  RequestOrigin request;
  request.method = method;
  request.host = host;
  request.origin = origin;
  return request;
}

TEST(RequestGuard, LetsTheOwnPageThrough) {
  const RequestGuard guard(4711);
  EXPECT_EQ(guard.RefusalOfOrigin(From("GET", "127.0.0.1:4711", "")), "");
  EXPECT_EQ(guard.RefusalOfOrigin(From("POST", "127.0.0.1:4711", "http://127.0.0.1:4711")), "");
  EXPECT_EQ(guard.RefusalOfOrigin(From("DELETE", "localhost:4711", "http://localhost:4711")), "");
}

TEST(RequestGuard, RefusesOthers) {
  const RequestGuard guard(4711);
  EXPECT_NE(guard.RefusalOfOrigin(From("GET", "evil.example:4711", "")), "");
  EXPECT_NE(guard.RefusalOfOrigin(From("GET", "127.0.0.1", "")), "");
  EXPECT_NE(guard.RefusalOfOrigin(From("GET", "127.0.0.1:4711", "http://evil.example")), "");
  EXPECT_NE(guard.RefusalOfOrigin(From("POST", "127.0.0.1:4711", "")), "");
  EXPECT_NE(guard.RefusalOfOrigin(From("POST", "127.0.0.1:4711", "http://localhost:4711")), "");
}

TEST(RequestGuard, FindsItsCookieAmongOthers) {
  const RequestGuard guard(4711);
  const std::string cookie = guard.CookieHeader().substr(0, guard.CookieHeader().find(';'));
  EXPECT_TRUE(guard.HasCookie(cookie));
  EXPECT_TRUE(guard.HasCookie("a=b; " + cookie + "; c"));
  EXPECT_FALSE(guard.HasCookie(""));
  EXPECT_FALSE(guard.HasCookie("; ;=;"));
  EXPECT_FALSE(guard.HasCookie(cookie + "0"));
  EXPECT_FALSE(guard.HasCookie("x" + cookie));
  EXPECT_FALSE(RequestGuard(4711).HasCookie(cookie));
}

}  // namespace
}  // namespace project_lumen::studio
