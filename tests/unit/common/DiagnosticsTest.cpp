#include "common/Diagnostics.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace project_lumen {
namespace {

struct Recorder {
  std::ostringstream stream;
  DiagnosticsSink Human(bool quiet = false) { return {quiet, false, stream}; }
  DiagnosticsSink Machine(bool quiet = false) { return {quiet, true, stream}; }
};

TEST(Diagnostics, HumanInfoIsOneLabelledLine) {
  Recorder recorder;
  EmitInfo(recorder.Human(), "input_geometry", "width=3 height=2");
  EXPECT_EQ(recorder.stream.str(), "Info [input_geometry]: width=3 height=2\n");
}

TEST(Diagnostics, HumanWarningCarriesItsKind) {
  Recorder recorder;
  EmitWarning(recorder.Human(), WarningKind::kDataLoss, "clipped");
  EmitWarning(recorder.Human(), WarningKind::kOutputFidelity, "no header");
  EmitWarning(recorder.Human(), WarningKind::kExecutionFallback, "slow");
  EXPECT_EQ(recorder.stream.str(),
            "Warning [data_loss]: clipped\n"
            "Warning [output_fidelity]: no header\n"
            "Warning [execution_fallback]: slow\n");
}

TEST(Diagnostics, MachineRecordHasFixedFieldOrderWithoutSpaces) {
  Recorder recorder;
  EmitInfo(recorder.Machine(), "input", "Reading a.tif");
  EXPECT_EQ(recorder.stream.str(),
            R"({"schema":"nebulexastro.cli.diagnostic.v1","severity":"info","code":"input",)"
            R"("message":"Reading a.tif"})"
            "\n");
}

TEST(Diagnostics, QuietDropsInfoAndKeepsWarnings) {
  Recorder recorder;
  EmitInfo(recorder.Human(true), "input", "x");
  EmitInfo(recorder.Machine(true), "input", "x");
  EXPECT_EQ(recorder.stream.str(), "");
  EmitWarning(recorder.Human(true), WarningKind::kDataLoss, "human");
  EmitWarning(recorder.Machine(true), WarningKind::kDataLoss, "machine");
  EXPECT_EQ(recorder.stream.str(),
            "Warning [data_loss]: human\n"
            R"({"schema":"nebulexastro.cli.diagnostic.v1","severity":"warning",)"
            R"("code":"data_loss","message":"machine"})"
            "\n");
}

TEST(Diagnostics, WarningPrefixIsDroppedOnceFromWarningsOnly) {
  Recorder recorder;
  EmitWarning(recorder.Human(), WarningKind::kDataLoss, "Warning: Warning: twice");
  EmitWarning(recorder.Human(), WarningKind::kDataLoss, "warning: lower case stays");
  EmitInfo(recorder.Human(), "input", "Warning: kept");
  EXPECT_EQ(recorder.stream.str(),
            "Warning [data_loss]: Warning: twice\n"
            "Warning [data_loss]: warning: lower case stays\n"
            "Info [input]: Warning: kept\n");
}

TEST(Diagnostics, BothFormsEscapeAlikeAndStayOnOneLine) {
  const std::string message = "a\tb\"c\\d\x01\ne";
  Recorder human;
  EmitInfo(human.Human(), "x", message);
  EXPECT_EQ(human.stream.str(), "Info [x]: a\\tb\\\"c\\\\d\\u0001\\ne\n");
  Recorder machine;
  EmitInfo(machine.Machine(), "x", message);
  EXPECT_EQ(machine.stream.str(),
            R"({"schema":"nebulexastro.cli.diagnostic.v1","severity":"info","code":"x",)"
            R"("message":"a\tb\"c\\d\u0001\ne"})"
            "\n");
}

TEST(Diagnostics, Utf8PassesByteForByte) {
  Recorder recorder;
  EmitInfo(recorder.Human(), "input", "Reading \xF0\x9F\x90\xBE.tif \xFF");
  EXPECT_EQ(recorder.stream.str(), "Info [input]: Reading \xF0\x9F\x90\xBE.tif \xFF\n");
}

TEST(Diagnostics, ARecordMadeEarlierIsShownLikeOneThatIsWrittenAtOnce) {
  std::ostringstream stream;
  Emit({false, false, stream}, Information("input", "Reading a.tif"));
  Emit({true, false, stream}, Information("input", "not shown"));
  Emit({true, false, stream}, Warning(WarningKind::kDataLoss, "Warning: 3 samples clipped."));
  EXPECT_EQ(stream.str(), "Info [input]: Reading a.tif\nWarning [data_loss]: 3 samples clipped.\n");
}

}  // namespace
}  // namespace project_lumen
