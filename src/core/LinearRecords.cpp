#include "core/LinearRecords.h"

#include <algorithm>
#include <string>

#include "common/NumberText.h"

namespace project_lumen::core {

Diagnostic NotLinearRecord() {
  return Information("linear_mtf", "disabled; no automatic stretch or inverse transform");
}

Diagnostic ClippedBeforeMtfRecord(const RangeStatistics& range) {
  constexpr double kNormalised = 1.0;
  return Warning(WarningKind::kDataLoss, "Pre-MTF working-grid samples above 1 are clipped. " +
                                             DescribeRange(range, kNormalised));
}

std::vector<Diagnostic> TransferRecords(const std::vector<LinearChannelStats>& channels,
                                        const ProcessingSettings& settings, double fixedDivisor) {
  std::vector<Diagnostic> records;
  records.reserve(channels.size());
  for (const LinearChannelStats& stats : channels) {
    records.push_back(Information(
        "linear_mtf",
        "channel=" + std::to_string(records.size() + 1) + " median=" + FormatReal(stats.median) +
            " normalized_MAD=" + FormatReal(stats.normalizedMad) +
            " shadows=" + FormatReal(stats.shadows) + " physical_shadows=" +
            FormatReal(stats.shadows * fixedDivisor) + " midtones=" + FormatReal(stats.midtones) +
            " shadows_multiplier=" + FormatReal(settings.shadowsClipping) +
            " target_background=" + FormatReal(settings.targetBackground) +
            " working_grid_clipped=" + std::to_string(stats.atOrBelowShadows) + " constant=" +
            (stats.constant ? "1" : "0") + "; MTF/inverse=float64; inference=float32"));
  }
  return records;
}

std::vector<Diagnostic> RestorationRecords(const std::vector<RestoredSamples>& channels) {
  std::vector<Diagnostic> records;
  records.reserve(channels.size());
  for (const RestoredSamples& restored : channels) {
    records.push_back(
        Information("shadow_restoration",
                    "final_source_grid channel=" + std::to_string(records.size() + 1) +
                        " restored_shadow_samples=" + std::to_string(restored.inShadows) +
                        " additional_constant_samples=" + std::to_string(restored.alsoConstant)));
  }
  return records;
}

LinearReports ReportsAsRecords(const ProcessingSettings& settings, double fixedDivisor,
                               const DiagnosticsCallback& take) {
  const auto takeAll = [take](const std::vector<Diagnostic>& records) {
    std::for_each(records.begin(), records.end(), take);
  };
  LinearReports reports;
  reports.aboveOne = [take](const RangeStatistics& range) { take(ClippedBeforeMtfRecord(range)); };
  reports.transfer = [=](const std::vector<LinearChannelStats>& channels) {
    takeAll(TransferRecords(channels, settings, fixedDivisor));
  };
  reports.restored = [takeAll](const std::vector<RestoredSamples>& channels) {
    takeAll(RestorationRecords(channels));
  };
  return reports;
}

}  // namespace project_lumen::core
