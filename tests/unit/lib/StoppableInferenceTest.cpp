#include "lib/StoppableInference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "core/Image.h"

namespace project_lumen::lib {
namespace {

using testing::ElementsAre;

using Samples = std::vector<float>;

void Ignore(const std::string&) {}

// Ends when it is told to.
Samples WaitForStop(const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock lock(mutex);
  never.wait(lock, stop, [] { return false; });
  throw std::runtime_error("stopped");
}

TEST(RunStoppable, WithoutAQuestionTheWorkRunsOnTheThreadOfTheCall) {
  const auto caller = std::this_thread::get_id();
  const Samples samples = RunStoppable(
      [&](const std::stop_token& stop, const auto&) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        EXPECT_FALSE(stop.stop_possible());
        return Samples{1, 2};
      },
      nullptr, Ignore);
  EXPECT_EQ(samples, (Samples{1, 2}));
}

TEST(RunStoppable, TheQuestionIsAskedOnTheThreadOfTheCallWhileTheWorkRuns) {
  const auto caller = std::this_thread::get_id();
  std::mutex mutex;
  std::condition_variable asked;
  int questions = 0;
  const Samples samples = RunStoppable(
      [&](const std::stop_token&, const auto&) {
        EXPECT_NE(std::this_thread::get_id(), caller);
        std::unique_lock lock(mutex);
        asked.wait(lock, [&] { return questions >= 2; });
        return Samples{3};
      },
      [&] {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        const std::lock_guard lock(mutex);
        ++questions;
        asked.notify_all();
        return false;
      },
      Ignore);
  EXPECT_EQ(samples, Samples{3});
}

TEST(RunStoppable, AStopEndsTheWorkAndIsACancelledRun) {
  EXPECT_THROW(
      RunStoppable([](const std::stop_token& stop, const auto&) { return WaitForStop(stop); },
                   [] { return true; }, Ignore),
      core::Cancelled);
}

TEST(RunStoppable, AQuestionThatThrowsEndsTheWorkToo) {
  EXPECT_THROW(
      RunStoppable([](const std::stop_token& stop, const auto&) { return WaitForStop(stop); },
                   []() -> bool { throw 42; }, Ignore),
      int);
}

TEST(RunStoppable, WhatTheWorkLogsComesOnTheThreadOfTheCallAlsoWhenItFails) {
  const auto caller = std::this_thread::get_id();
  std::vector<std::string> lines;
  EXPECT_THROW(RunStoppable(
                   [](const std::stop_token&, const auto& messages) -> Samples {
                     messages("one");
                     messages("two");
                     throw std::runtime_error("failed");
                   },
                   [] { return false; },
                   [&](const std::string& line) {
                     EXPECT_EQ(std::this_thread::get_id(), caller);
                     lines.push_back(line);
                   }),
               std::runtime_error);
  EXPECT_THAT(lines, ElementsAre("one", "two"));
}

}  // namespace
}  // namespace project_lumen::lib
