#include "backend/RuntimeLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace project_lumen::backend {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

void Log(const char* line, OrtLoggingLevel severity = ORT_LOGGING_LEVEL_WARNING) {
  CollectRuntimeLog(nullptr, severity, "category", "id", "place", line);
}

struct Messages {
  std::vector<std::string> lines;
  MessageCallback Callback() {
    return [this](const std::string& line) { lines.push_back(line); };
  }
};

TEST(RuntimeLog, SendsLinesInTheirOrderWithTheirSeverityAndOnce) {
  Messages messages;
  RuntimeLog log;
  Log("a", ORT_LOGGING_LEVEL_VERBOSE);
  Log("b", ORT_LOGGING_LEVEL_INFO);
  Log("c", ORT_LOGGING_LEVEL_WARNING);
  Log("d", ORT_LOGGING_LEVEL_ERROR);
  Log("e", ORT_LOGGING_LEVEL_FATAL);
  EXPECT_THAT(messages.lines, IsEmpty());
  log.SendTo(messages.Callback());
  log.SendTo(messages.Callback());
  EXPECT_THAT(messages.lines, ElementsAre("ONNX Runtime detail: a", "ONNX Runtime information: b",
                                          "ONNX Runtime warning: c", "ONNX Runtime error: d",
                                          "ONNX Runtime fatal error: e"));
}

TEST(RuntimeLog, DropsLinesThatNobodyCollects) {
  Log("before");
  Messages messages;
  {
    RuntimeLog log;
    log.SendTo(messages.Callback());
    log.SendTo(nullptr);
  }
  Log("after");
  EXPECT_THAT(messages.lines, IsEmpty());
}

TEST(RuntimeLog, AnInnerOneCollectsAloneAndTheOuterOneGoesOn) {
  Messages outer;
  Messages inner;
  RuntimeLog log;
  Log("1");
  {
    RuntimeLog innerLog;
    Log("2");
    innerLog.SendTo(inner.Callback());
  }
  Log("3");
  log.SendTo(outer.Callback());
  EXPECT_THAT(inner.lines, ElementsAre("ONNX Runtime warning: 2"));
  EXPECT_THAT(outer.lines, ElementsAre("ONNX Runtime warning: 1", "ONNX Runtime warning: 3"));
}

TEST(RuntimeLog, CollectsTheLinesOfItsOwnThread) {
  Messages messages;
  RuntimeLog log;
  std::thread([] { Log("of another thread"); }).join();
  log.SendTo(messages.Callback());
  EXPECT_THAT(messages.lines, IsEmpty());
}

TEST(WithRuntimeLog, SendsAfterTheWorkAndAfterItsFailure) {
  Messages messages;
  const int result = WithRuntimeLog(messages.Callback(), [&] {
    Log("worked");
    EXPECT_THAT(messages.lines, IsEmpty());
    return 7;
  });
  EXPECT_EQ(result, 7);
  EXPECT_THROW(WithRuntimeLog(messages.Callback(),
                              []() -> int {
                                Log("failed");
                                throw std::runtime_error("mine");
                              }),
               std::runtime_error);
  EXPECT_THAT(messages.lines,
              ElementsAre("ONNX Runtime warning: worked", "ONNX Runtime warning: failed"));
}

}  // namespace
}  // namespace project_lumen::backend
