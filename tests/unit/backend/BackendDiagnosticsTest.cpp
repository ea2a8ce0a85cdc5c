#include "backend/BackendDiagnostics.h"

#include <gtest/gtest.h>

namespace project_lumen::backend {
namespace {

TEST(BackendDiagnostics, SuppressedSamplesAreADataLossWarning) {
  EXPECT_EQ(DiagnosticOf("Warning: suppressed 3 near-saturated sample(s)."),
            (Diagnostic{"warning", "data_loss", "suppressed 3 near-saturated sample(s)."}));
}

TEST(BackendDiagnostics, AFailedProviderIsInformationAboutAutomaticSelection) {
  EXPECT_EQ(DiagnosticOf("Warning: ONNX Runtime CUDA initialization/warmup failed; T"),
            (Diagnostic{"info", "provider_selection",
                        "Automatic selection: ONNX Runtime CUDA initialization/warmup failed; T"}));
}

TEST(BackendDiagnostics, EveryOtherLineIsKeptAsItStands) {
  EXPECT_EQ(
      DiagnosticOf("Backend: ONNX Runtime (CPU execution provider)"),
      (Diagnostic{"info", "inference_backend", "Backend: ONNX Runtime (CPU execution provider)"}));
  EXPECT_EQ(DiagnosticOf("Warning: something else"),
            (Diagnostic{"info", "inference_backend", "Warning: something else"}));
}

}  // namespace
}  // namespace project_lumen::backend
