#include "cli/MachineInfo.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "cli/MachineInfoInterfaces.h"

namespace project_lumen::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string Document(const std::string& weights = "Nebulex2_weights.onnx") {
  std::ostringstream stream;
  WriteMachineInfo(stream, weights);
  return stream.str();
}

std::vector<std::string> KeysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& item : object.items()) {
    keys.push_back(item.key());
  }
  return keys;
}

Json Interfaces(bool linearRestoration) {
  std::ostringstream stream;
  stream << "{";
  WriteInterfaceBlocks(stream, "    ", linearRestoration);
  stream << "}";
  return Json::parse(stream.str());
}

TEST(MachineInfo, TopLevelKeysStandInTheirOrder) {
  EXPECT_EQ(KeysOf(Json::parse(Document())),
            (std::vector<std::string>{"schema", "product", "display_name", "executable", "version",
                                      "build", "backend", "features", "models", "options", "io",
                                      "diagnostics", "progress"}));
}

TEST(MachineInfo, WeightsNameIsFilledInAsAJsonString) {
  const Json document = Json::parse(Document("a\"b\\c.onnx"));
  EXPECT_EQ(document["models"][0]["default_weights"], "a\"b\\c.onnx");
}

TEST(MachineInfo, EndsWithOneLineFeedAndHasNoTabs) {
  const std::string text = Document();
  EXPECT_TRUE(text.ends_with("}\n"));
  EXPECT_FALSE(text.ends_with("\n\n"));
  EXPECT_EQ(text.find('\t'), std::string::npos);
}

TEST(MachineInfo, EveryOptionIsOneLine) {
  std::istringstream lines(Document());
  int options = 0;
  for (std::string line; std::getline(lines, line);) {
    options += line.starts_with("    { \"name\": ") ? 1 : 0;
  }
  EXPECT_EQ(options, 17);
}

TEST(MachineInfo, OptionsStandInTheirOrder) {
  const Json document = Json::parse(Document());
  std::vector<std::string> names;
  for (const Json& option : document["options"]) {
    names.push_back(option["name"]);
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{"machine_info", "help", "version", "check_updates", "input",
                                      "output", "mask", "unscreen", "weights", "stride", "upsample",
                                      "linear", "shadows_clipping", "target_background", "quiet",
                                      "disable_highlights_protection", "machine_progress"}));
}

TEST(MachineInfoInterfaces, WithRestorationLinearRunsRestoreShadowsAndUpsamplingIsOffered) {
  const Json images = Interfaces(true)["io"]["images"];
  EXPECT_EQ(images["dimensions"]["with_upsample"]["minimum_width"], 256);
  const Json linear = images["inputs"][1]["float_input_range"]["linear_processing"];
  EXPECT_EQ(linear["negative_policy"], "restore_forward_shadow_samples");
  EXPECT_EQ(linear["fits_output_mapping"]["image"],
            "fixed_divisor_times_final_main_with_shadow_restoration");
}

TEST(MachineInfoInterfaces, WithoutRestorationTheyDoNot) {
  const Json images = Interfaces(false)["io"]["images"];
  EXPECT_FALSE(images["dimensions"].contains("with_upsample"));
  const Json linear = images["inputs"][1]["float_input_range"]["linear_processing"];
  EXPECT_EQ(linear["negative_policy"], "inverse_mtf_without_source_restoration");
  EXPECT_EQ(linear["fits_output_mapping"]["image"], "fixed_divisor_times_final_main");
}

}  // namespace
}  // namespace project_lumen::cli
