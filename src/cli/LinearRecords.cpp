#include "cli/LinearRecords.h"

#include <string>

#include "common/NumberText.h"

namespace project_lumen::cli {

void EmitNotLinear(const DiagnosticsSink& sink) {
  EmitInfo(sink, "linear_mtf", "disabled; no automatic stretch or inverse transform");
}

void EmitClippedBeforeMtf(const DiagnosticsSink& sink, const RangeStatistics& range) {
  constexpr double kNormalised = 1.0;
  EmitWarning(
      sink, WarningKind::kDataLoss,
      "Pre-MTF working-grid samples above 1 are clipped. " + DescribeRange(range, kNormalised));
}

void EmitLinearTransfer(const DiagnosticsSink& sink,
                        const std::vector<core::LinearChannelStats>& channels,
                        const core::ProcessingSettings& settings, double fixedDivisor) {
  int number = 0;
  for (const core::LinearChannelStats& stats : channels) {
    ++number;
    EmitInfo(sink, "linear_mtf",
             "channel=" + std::to_string(number) + " median=" + FormatReal(stats.median) +
                 " normalized_MAD=" + FormatReal(stats.normalizedMad) +
                 " shadows=" + FormatReal(stats.shadows) +
                 " physical_shadows=" + FormatReal(stats.shadows * fixedDivisor) +
                 " midtones=" + FormatReal(stats.midtones) +
                 " shadows_multiplier=" + FormatReal(settings.shadowsClipping) +
                 " target_background=" + FormatReal(settings.targetBackground) +
                 " working_grid_clipped=" + std::to_string(stats.atOrBelowShadows) + " constant=" +
                 (stats.constant ? "1" : "0") + "; MTF/inverse=float64; inference=float32");
  }
}

void EmitShadowRestoration(const DiagnosticsSink& sink,
                           const std::vector<core::RestoredSamples>& channels) {
  int number = 0;
  for (const core::RestoredSamples& restored : channels) {
    ++number;
    EmitInfo(sink, "shadow_restoration",
             "final_source_grid channel=" + std::to_string(number) +
                 " restored_shadow_samples=" + std::to_string(restored.inShadows) +
                 " additional_constant_samples=" + std::to_string(restored.alsoConstant));
  }
}

}  // namespace project_lumen::cli
