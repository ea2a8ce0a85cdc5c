#include "cli/Progress.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

namespace project_lumen::cli {
namespace {

struct Streams {
  std::ostringstream human;
  std::ostringstream machine;
  ProgressReporter Reporter(bool quiet, bool machineProgress) {
    return {quiet, machineProgress, human, machine};
  }
};

std::string Event(const std::string& rest) {
  return R"({"schema":"nebulexastro.cli.progress.v1",)" + rest + "}\n";
}

TEST(ReportProgress, OneTileForPeople) {
  Streams streams;
  const ProgressReporter reporter = streams.Reporter(false, false);
  EXPECT_TRUE(ReportProgress(reporter, 0, 1));
  EXPECT_TRUE(ReportProgress(reporter, 1, 1));
  EXPECT_EQ(streams.human.str(), "Working: 0.0%\rWorking: 100.0%\rWorking: Done! \n");
  EXPECT_EQ(streams.machine.str(), "");
}

TEST(ReportProgress, OneTileForHosts) {
  Streams streams;
  const ProgressReporter reporter = streams.Reporter(false, true);
  EXPECT_TRUE(ReportProgress(reporter, 0, 1));
  EXPECT_TRUE(ReportProgress(reporter, 1, 1));
  EXPECT_EQ(
      streams.machine.str(),
      Event(R"("event":"start","stage":"inference","current":0,"total":1,"percent":0.0)") +
          Event(R"("event":"progress","stage":"inference","current":1,"total":1,"percent":100.0)") +
          Event(R"("event":"finish","stage":"inference","current":1,"total":1,"percent":100.0,)"
                R"("ok":true)"));
  EXPECT_EQ(streams.human.str(), "");
}

TEST(ReportProgress, ThreeTilesRoundToOneDecimal) {
  Streams streams;
  const ProgressReporter reporter = streams.Reporter(false, false);
  for (int done = 0; done <= 3; ++done) {
    ReportProgress(reporter, done, 3);
  }
  EXPECT_EQ(streams.human.str(),
            "Working: 0.0%\rWorking: 33.3%\rWorking: 66.7%\rWorking: 100.0%\rWorking: Done! \n");
}

TEST(ReportProgress, QuietSilencesPeopleButNotHosts) {
  Streams streams;
  ReportProgress(streams.Reporter(true, false), 1, 1);
  EXPECT_EQ(streams.human.str() + streams.machine.str(), "");
  ReportProgress(streams.Reporter(true, true), 0, 8);
  EXPECT_EQ(streams.human.str(), "");
  EXPECT_EQ(streams.machine.str(),
            Event(R"("event":"start","stage":"inference","current":0,"total":8,"percent":0.0)"));
}

TEST(ReportProgress, LeavesTheStreamsNumberFormatAlone) {
  Streams streams;
  streams.human << std::setprecision(17);
  ReportProgress(streams.Reporter(false, false), 3, 8);
  streams.human << 0.1;
  EXPECT_EQ(streams.human.str(), "Working: 37.5%\r0.10000000000000001");
}

TEST(WriteErrorEvent, EscapesTheMessageOnOneLine) {
  std::ostringstream stream;
  WriteErrorEvent(stream, "Unable to read \"a\".\nModel context: none");
  EXPECT_EQ(stream.str(), Event(R"("event":"error","stage":"processing","ok":false,)"
                                R"("message":"Unable to read \"a\".\nModel context: none")"));
}

}  // namespace
}  // namespace project_lumen::cli
