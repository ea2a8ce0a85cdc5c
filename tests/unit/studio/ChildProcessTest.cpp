#include "studio/runs/ChildProcess.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace project_lumen::studio {
namespace {

struct Told {
  std::vector<std::string> lines;
  ChildEnd end;
};

Told RunShell(const std::string& script, ChildOutput output = ChildOutput::kStandardError,
              bool isStopped = false) {
  Told told;
  ChildRun run;
  run.arguments = {"/bin/sh", "-c", script};
  run.output = output;
  run.takeLine = [&](std::string_view line) { told.lines.emplace_back(line); };
  run.shallStop = [&] { return isStopped && !told.lines.empty(); };
  told.end = RunChild(run);
  return told;
}

TEST(ChildProcess, LinesComeAsTheyAreWritten) {
  const Told told = RunShell("echo out; printf 'one\\ntwo' >&2; exit 7");
  EXPECT_EQ(told.lines, (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(told.end.status, 7);
  EXPECT_EQ(told.end.signal, 0);
}

TEST(ChildProcess, StandardOutputCanBeReadInstead) {
  EXPECT_EQ(RunShell("echo out; echo err >&2", ChildOutput::kStandardOutput).lines,
            std::vector<std::string>{"out"});
}

TEST(ChildProcess, TellsWhichSignalEndedIt) {
  EXPECT_EQ(RunShell("kill -KILL $$").end.signal, SIGKILL);
}

TEST(ChildProcess, StopsEvenWhatDoesNotWantTo) {
  const Told told = RunShell("trap '' TERM; echo ready >&2; while :; do sleep 1; done",
                             ChildOutput::kStandardError, true);
  EXPECT_TRUE(told.end.isStopped);
  EXPECT_EQ(told.end.signal, SIGKILL);
}

TEST(ChildProcess, InheritsNothingButItsStreams) {
  const int open = dup(STDOUT_FILENO);  // without close-on-exec
  const Told told = RunShell("ls /proc/self/fd >&2");
  close(open);
  // ls opens the folder itself as number 3.
  EXPECT_EQ(told.lines, (std::vector<std::string>{"0", "1", "2", "3"}));
}

TEST(ChildProcess, EndlessLinesComeInPieces) {
  const Told told = RunShell("head -c 3000000 /dev/zero | tr '\\0' x >&2");
  std::size_t bytes = 0;
  for (const std::string& line : told.lines) {
    EXPECT_LT(line.size(), kLongestLine + 65536);
    bytes += line.size();
  }
  EXPECT_EQ(bytes, 3000000U);
}

TEST(ChildProcess, ASecondHolderOfThePipeKeepsNobody) {
  EXPECT_EQ(RunShell("sleep 30 & echo done >&2").lines, std::vector<std::string>{"done"});
}

TEST(ChildProcess, AMissingProgramIsAnError) {
  EXPECT_THROW(
      RunChild(
          {{"/nowhere/nebulex2"}, ChildOutput::kStandardError, [](auto) {}, [] { return false; }}),
      std::runtime_error);
}

}  // namespace
}  // namespace project_lumen::studio
