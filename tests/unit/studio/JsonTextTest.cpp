#include "studio/http/JsonText.h"

#include <gtest/gtest.h>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

int StatusOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ApiError& error) {
    return error.Status();
  }
  return 0;
}

TEST(JsonText, TakesOnlyObjects) {
  EXPECT_EQ(ParseJsonObject(R"({"a": [1, {"b": null}]})").size(), 1U);
  for (const char* text : {"", "[]", "1", "null", "{", "{}x", R"({"a":})", "{\"a\": NaN}"}) {
    EXPECT_EQ(StatusOf([&] { ParseJsonObject(text); }), 400) << text;
  }
}

TEST(JsonText, RefusesWhatLiesTooDeep) {
  const auto nested = [](int depth) {
    return "{\"a\":" + std::string(static_cast<std::size_t>(depth), '[') +
           std::string(static_cast<std::size_t>(depth), ']') + "}";
  };
  EXPECT_EQ(StatusOf([&] { ParseJsonObject(nested(kDeepestJson - 2)); }), 0);
  EXPECT_EQ(StatusOf([&] { ParseJsonObject(nested(kDeepestJson + 1)); }), 400);
  EXPECT_EQ(StatusOf([&] { ParseJsonObject(nested(400000)); }), 400);
}

TEST(JsonText, MembersHaveTheirTypes) {
  const auto object = ParseJsonObject(
      R"({"text": "m31", "number": 0.5, "whole": 7, "on": true, "list": ["a"], "none": null})");
  EXPECT_EQ(StringMember(object, "text", ""), "m31");
  EXPECT_EQ(StringMember(object, "none", "fallback"), "fallback");
  EXPECT_EQ(NumberMember(object, "number", 0.0), 0.5);
  EXPECT_EQ(IntegerMember(object, "whole"), 7);
  EXPECT_TRUE(BoolMember(object, "on", false));
  EXPECT_EQ(StringsMember(object, "list"), std::vector<std::string>{"a"});
  EXPECT_EQ(StatusOf([&] { StringMember(object, "number", ""); }), 400);
  EXPECT_EQ(StatusOf([&] { NumberMember(object, "text", 0.0); }), 400);
  EXPECT_EQ(StatusOf([&] { IntegerMember(object, "number"); }), 400);
  EXPECT_EQ(StatusOf([&] { BoolMember(object, "whole", false); }), 400);
  EXPECT_EQ(StatusOf([&] { StringsMember(object, "text"); }), 400);
  EXPECT_EQ(StatusOf([&] { RequireKnownMembers(object, {"text"}); }), 400);
}

TEST(JsonText, BytesThatAreNoUtf8AreReplaced) {
  EXPECT_EQ(ToText({{"name", "a\xff"}}), "{\"name\":\"a\xEF\xBF\xBD\"}");
}

}  // namespace
}  // namespace project_lumen::studio
