#include "cli/BackendMessages.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace project_lumen::cli {
namespace {

std::string Report(const std::string& message, bool quiet = false) {
  std::ostringstream stream;
  ReportBackendMessage({quiet, false, stream}, message);
  return stream.str();
}

TEST(ReportBackendMessage, SuppressedSamplesAreADataLossWarningEvenWhenQuiet) {
  const std::string expected = "Warning [data_loss]: suppressed 3 near-saturated sample(s).\n";
  EXPECT_EQ(Report("Warning: suppressed 3 near-saturated sample(s)."), expected);
  EXPECT_EQ(Report("Warning: suppressed 3 near-saturated sample(s).", true), expected);
}

TEST(ReportBackendMessage, AFailedProviderIsInformationAboutAutomaticSelection) {
  EXPECT_EQ(Report("Warning: ONNX Runtime CUDA initialization/warmup failed; T"),
            "Info [provider_selection]: Automatic selection: ONNX Runtime CUDA "
            "initialization/warmup failed; T\n");
  EXPECT_EQ(Report("Warning: ONNX Runtime CUDA initialization/warmup failed; T", true), "");
}

TEST(ReportBackendMessage, EveryOtherLineIsKeptAsItStands) {
  EXPECT_EQ(Report("Backend: ONNX Runtime (CPU execution provider)"),
            "Info [inference_backend]: Backend: ONNX Runtime (CPU execution provider)\n");
  EXPECT_EQ(Report("Warning: something else"),
            "Info [inference_backend]: Warning: something else\n");
  EXPECT_EQ(Report("Backend: x", true), "");
}

}  // namespace
}  // namespace project_lumen::cli
