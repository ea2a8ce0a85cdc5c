#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "studio/http/ApiError.h"
#include "studio/runs/Program.h"
#include "support/ExpectMessage.h"

namespace project_lumen::studio {
namespace {

using nlohmann::json;
using test::ExpectMessage;
using Words = std::vector<std::string>;

json Info() {
  return json::parse(R"({
    "options": [
      {"name": "input", "flags": ["-i", "--input"], "type": "path", "mode": "processing"},
      {"name": "output", "flags": ["--output"], "type": "path", "mode": "processing",
       "creates_output": true},
      {"name": "help", "flags": ["--help"], "type": "boolean", "mode": "introspection"},
      {"name": "quiet", "flags": ["--quiet"], "type": "boolean", "mode": "processing"},
      {"name": "stride", "flags": ["-s", "--stride"], "type": "integer", "minimum": 2,
       "maximum": 512, "constraints": {"even": true}, "mode": "processing"},
      {"name": "linear", "flags": ["--linear"], "type": "boolean", "mode": "processing"},
      {"name": "shadows", "flags": ["--shadows"], "type": "number", "exclusive_maximum": 0.0,
       "requires": "linear", "mode": "processing"},
      {"name": "weights", "flags": ["--weights"], "type": "path", "mode": "processing"},
      {"name": "machine", "flags": ["--machine"], "type": "boolean", "mode": "processing"}],
    "progress": {"machine": {"option": "machine"}},
    "io": {"images": {"dimensions": {"default": {"minimum_width": 512},
                                     "with_upsample": {"minimum_width": 256}}}}})");
}

Words ArgumentsFor(const json& chosen) {
  return OptionArguments(Info(), chosen, [](const std::string& id) { return "/nets/" + id; });
}

TEST(ProgramOptions, BecomeArgumentsInTheProgramsOrder) {
  EXPECT_EQ(ArgumentsFor({{"weights", "f1"}, {"shadows", -2.8}, {"linear", true}, {"stride", 64}}),
            (Words{"--stride", "64", "--linear", "--shadows", "-2.8", "--weights", "/nets/f1"}));
}

TEST(ProgramOptions, WhatIsOffIsLeftToTheProgram) {
  EXPECT_EQ(ArgumentsFor({{"linear", false}, {"stride", nullptr}}), Words{});
}

TEST(ProgramOptions, WhatTheStudioSetsCannotBeChosen) {
  for (const char* name : {"input", "output", "quiet", "machine", "help", "frob"}) {
    ExpectMessage<ApiError>(
        [&] {
          ArgumentsFor({{name, true}});
        },
        "There is no option " + std::string(name) + " to choose.");
  }
}

TEST(ProgramOptions, LimitsAreThoseOfTheProgram) {
  ExpectMessage<ApiError>([] { ArgumentsFor({{"stride", 1}}); }, "--stride takes an even number.");
  ExpectMessage<ApiError>([] { ArgumentsFor({{"stride", 0}}); }, "--stride does not take 0.");
  ExpectMessage<ApiError>([] { ArgumentsFor({{"stride", 514}}); }, "--stride does not take 514.");
  ExpectMessage<ApiError>(
      [] {
        ArgumentsFor({{"stride", 2.5}});
      },
      "--stride takes a whole number.");
  ExpectMessage<ApiError>([] { ArgumentsFor({{"stride", "64"}}); }, "--stride takes a number.");
  ExpectMessage<ApiError>(
      [] {
        ArgumentsFor({{"linear", true}, {"shadows", 0.0}});
      },
      "--shadows does not take 0.0.");
  ExpectMessage<ApiError>([] { ArgumentsFor({{"linear", 1}}); }, "--linear is a switch.");
  ExpectMessage<ApiError>(
      [] {
        ArgumentsFor({{"weights", 1}});
      },
      "--weights takes a file that was chosen.");
}

TEST(ProgramOptions, WhatAnOptionRequiresHasToBeOn) {
  ExpectMessage<ApiError>([] { ArgumentsFor({{"shadows", -1.0}}); }, "--shadows needs --linear.");
}

TEST(ProgramOptions, SmallestImages) {
  EXPECT_EQ(SmallestSide(Info(), json::object()), 512);
  EXPECT_EQ(SmallestSide(Info(), {{"upsample", true}}), 256);
}

}  // namespace
}  // namespace project_lumen::studio
