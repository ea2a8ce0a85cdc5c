#include "studio/runs/Records.h"

#include <gtest/gtest.h>

namespace project_lumen::studio {
namespace {

using Kind = Record::Kind;

TEST(Records, ReadsWhatTheHostInterfaceShows) {
  const Record progress = ParseRecord(
      R"({"schema":"nebulexastro.cli.progress.v1","event":"progress","stage":"inference","current":3,"total":8,"percent":37.5})");
  EXPECT_EQ(progress.kind, Kind::kProgress);
  EXPECT_EQ(progress.current, 3);
  EXPECT_EQ(progress.total, 8);
  EXPECT_EQ(progress.percent, 37.5);
  const Record finish = ParseRecord(
      R"({"schema":"nebulexastro.cli.progress.v1","event":"finish","stage":"inference","current":8,"total":8,"percent":100.0,"ok":true})");
  EXPECT_EQ(finish.kind, Kind::kInferred);
  const Record warning = ParseRecord(
      R"({"schema":"nebulexastro.cli.diagnostic.v1","severity":"warning","code":"data_loss","message":"3 samples"})");
  EXPECT_EQ(warning.kind, Kind::kWarning);
  EXPECT_EQ(warning.code, "data_loss");
  EXPECT_EQ(warning.text, "3 samples");
  const Record error = ParseRecord(
      R"({"schema":"nebulexastro.cli.progress.v1","event":"error","stage":"processing","ok":false,"message":"No.\nWhere"})");
  EXPECT_EQ(error.kind, Kind::kError);
  EXPECT_EQ(error.text, "No.\nWhere");
}

TEST(Records, WhatIsNoKnownRecordStaysAsItIs) {
  for (
      const char* line :
      {"libfoo: cannot open", "{", "[]", "{}", R"({"schema":"nebulexastro.cli.progress.v2"})",
       R"({"schema":"nebulexastro.cli.progress.v1","event":"pause"})",
       R"({"schema":"nebulexastro.cli.progress.v1","event":"progress","current":"3","total":8,"percent":1})",
       R"({"schema":"nebulexastro.cli.progress.v1","event":"progress","current":9,"total":8,"percent":1})",
       R"({"schema":"nebulexastro.cli.progress.v1","event":"progress","current":-1,"total":8,"percent":1})",
       R"({"schema":"nebulexastro.cli.diagnostic.v1","severity":"fatal","code":"x","message":"y"})",
       R"({"schema":7})"}) {
    const Record record = ParseRecord(line);
    EXPECT_EQ(record.kind, Kind::kText) << line;
    EXPECT_EQ(record.text, line);
  }
}

TEST(Records, BytesThatAreNoUtf8AreReplaced) {
  EXPECT_EQ(ParseRecord("a\xff").text, "a\xEF\xBF\xBD");
}

}  // namespace
}  // namespace project_lumen::studio
