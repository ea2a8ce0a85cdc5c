#include "common/JsonString.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace project_lumen {
namespace {

std::string Literal(std::string_view text) {
  std::ostringstream stream;
  WriteJsonString(stream, text);
  return stream.str();
}

TEST(JsonString, ShortEscapes) {
  EXPECT_EQ(Literal("\"\\\b\t\n\f\r"), R"("\"\\\b\t\n\f\r")");
}

TEST(JsonString, OtherControlBytesAreFourLowerCaseHexDigits) {
  EXPECT_EQ(Literal(std::string_view("\0\x01\x1b\x1f", 4)), R"("\u0000\u0001\u001b\u001f")");
}

TEST(JsonString, BytesFrom32OnAreCopied) {
  EXPECT_EQ(Literal(" /\x7f\xc3\xa9\xf0\x9f\x90\xbe"), "\" /\x7f\xc3\xa9\xf0\x9f\x90\xbe\"");
}

TEST(JsonString, BytesThatAreNoUtf8AreReplaced) {
  EXPECT_EQ(nlohmann::json::parse(Literal("\xb5m \xff")).get<std::string>(),
            "\xef\xbf\xbdm \xef\xbf\xbd");
}

TEST(JsonString, TextForPeopleKeepsEveryByteFrom32On) {
  EXPECT_EQ(EscapeForDisplay("\xb5m\x80"), "\xb5m\x80");
}

TEST(JsonString, StreamFormattingNeitherChangesTheLiteralNorIsChanged) {
  std::ostringstream stream;
  stream << std::hex << std::setfill('*') << std::setw(12);
  WriteJsonString(stream, "a");
  EXPECT_EQ(stream.str(), "\"a\"");
  EXPECT_EQ(stream.fill(), '*');
  EXPECT_TRUE(stream.flags() & std::ios::hex);
}

TEST(JsonString, EscapeForDisplayIsTheLiteralWithoutQuotes) {
  EXPECT_EQ(EscapeForDisplay("say \"hi\"\x01"), R"(say \"hi\"\u0001)");
}

TEST(JsonString, AnIndependentParserReadsEveryAsciiByteBack) {
  std::string all;
  for (int byte = 0; byte < 128; ++byte) {
    all += static_cast<char>(byte);
  }
  EXPECT_EQ(nlohmann::json::parse(Literal(all)).get<std::string>(), all);
}

}  // namespace
}  // namespace project_lumen
