#include "core/LinearRecords.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace project_lumen::core {
namespace {

// Records as lines of text.
std::string Show(const std::vector<Diagnostic>& records) {
  std::string text;
  for (const Diagnostic& record : records) {
    text += record.severity + " [" + record.code + "]: " + record.message + "\n";
  }
  return text;
}

LinearChannelStats Channel(double median, double mad, double shadows, double midtones) {
  LinearChannelStats channel;
  channel.median = median;
  channel.normalizedMad = mad;
  channel.shadows = shadows;
  channel.midtones = midtones;
  return channel;
}

TEST(LinearRecords, SayWhenTheRunIsNotLinear) {
  EXPECT_EQ(Show({NotLinearRecord()}),
            "info [linear_mtf]: disabled; no automatic stretch or inverse transform\n");
}

TEST(LinearRecords, SamplesAboveOneAreADataLoss) {
  RangeStatistics range;
  for (const double sample : {0.25, 0.5, 0.75, 1.5}) {
    range.Add(sample, 1.0);
  }
  EXPECT_EQ(Show({ClippedBeforeMtfRecord(range)}),
            "warning [data_loss]: Pre-MTF working-grid samples above 1 are clipped. "
            "scalar_samples=4 finite=4 nonfinite=0 physical_range=[0.25,1.5] "
            "type_normalized_range=[0.25,1.5] below_zero=0 (0%) above_one=1 (25%)\n");
}

TEST(LinearRecords, EachChannelHasItsTransferWithSeventeenDigits) {
  LinearChannelStats flat = Channel(0.5, 0.0, 0.0, 0.75);
  flat.constant = true;
  LinearChannelStats sky = Channel(0.375, 0.1, 0.0625, 0.5);
  sky.atOrBelowShadows = 12;
  EXPECT_EQ(Show(TransferRecords({sky, flat}, {.shadowsClipping = -2.8, .targetBackground = 0.25},
                                 1000.0)),
            "info [linear_mtf]: channel=1 median=0.375 normalized_MAD=0.10000000000000001 "
            "shadows=0.0625 physical_shadows=62.5 midtones=0.5 "
            "shadows_multiplier=-2.7999999999999998 target_background=0.25 "
            "working_grid_clipped=12 constant=0; MTF/inverse=float64; inference=float32\n"
            "info [linear_mtf]: channel=2 median=0.5 normalized_MAD=0 shadows=0 "
            "physical_shadows=0 midtones=0.75 shadows_multiplier=-2.7999999999999998 "
            "target_background=0.25 working_grid_clipped=0 constant=1; MTF/inverse=float64; "
            "inference=float32\n");
}

TEST(LinearRecords, EachChannelOfTheSourceSaysWhatCameBack) {
  EXPECT_EQ(Show(RestorationRecords(
                {{.inShadows = 2, .alsoConstant = 0}, {.inShadows = 1, .alsoConstant = 6}})),
            "info [shadow_restoration]: final_source_grid channel=1 restored_shadow_samples=2 "
            "additional_constant_samples=0\n"
            "info [shadow_restoration]: final_source_grid channel=2 restored_shadow_samples=1 "
            "additional_constant_samples=6\n");
}

TEST(LinearRecords, OfARunComeWithItsReports) {
  std::vector<Diagnostic> records;
  const LinearReports reports =
      ReportsAsRecords({}, 1.0, [&](const Diagnostic& record) { records.push_back(record); });
  reports.aboveOne({});
  reports.transfer({Channel(0.5, 0.0, 0.0, 0.75)});
  reports.restored({{}, {}});
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[0], ClippedBeforeMtfRecord({}));
  EXPECT_EQ(records[1], TransferRecords({Channel(0.5, 0.0, 0.0, 0.75)}, {}, 1.0).front());
  EXPECT_EQ(records[2].code, "shadow_restoration");
  EXPECT_EQ(records[3].code, "shadow_restoration");
}

}  // namespace
}  // namespace project_lumen::core
