#include "cli/CommandLine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace project_lumen::cli {
namespace {

using Arguments = std::vector<const char*>;

Arguments Line(std::initializer_list<const char*> rest) {
  Arguments arguments = {"nebulex2"};
  arguments.insert(arguments.end(), rest);
  return arguments;
}

ParsedCommandLine Parse(std::initializer_list<const char*> rest) {
  return ParseCommandLine(Line(rest), true);
}

std::string ParseError(std::initializer_list<const char*> rest) {
  try {
    Parse(rest);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

TEST(HasExactArgument, ComparesWholeArgumentsAfterTheProgramName) {
  EXPECT_TRUE(HasExactArgument(Line({"-q", "--machine-info"}), "--machine-info"));
  EXPECT_FALSE(HasExactArgument(Line({"--machine-inf"}), "--machine-info"));
  EXPECT_FALSE(HasExactArgument(Line({"--machine-info=1"}), "--machine-info"));
  EXPECT_FALSE(HasExactArgument(Arguments{"--machine-info"}, "--machine-info"));
  EXPECT_FALSE(HasExactArgument(Arguments{}, "--machine-info"));
}

TEST(ParseCommandLine, DefaultsOfEveryOption) {
  const ParsedCommandLine line = Parse({"--input", "a.tif"});
  EXPECT_EQ(line.options.inputPath, "a.tif");
  EXPECT_EQ(line.options.outputPath, "starless.jpg");
  EXPECT_EQ(line.options.maskPath, "");
  EXPECT_EQ(line.options.unscreenPath, "");
  EXPECT_EQ(line.options.weightsPath, "");
  EXPECT_EQ(line.options.stride, 256);
  EXPECT_EQ(line.options.shadowsClipping, -2.8);
  EXPECT_EQ(line.options.targetBackground, 0.25);
  EXPECT_FALSE(line.options.upsample);
  EXPECT_FALSE(line.options.linear);
  EXPECT_FALSE(line.options.quiet);
  EXPECT_TRUE(line.options.protectHighlights);
  EXPECT_FALSE(line.linearTuningGiven);
}

TEST(ParseCommandLine, LongFormOfEveryOption) {
  const ParsedCommandLine line = Parse({"--input",
                                        "i",
                                        "--output",
                                        "o",
                                        "--mask",
                                        "m",
                                        "--unscreen",
                                        "n",
                                        "--weights",
                                        "w",
                                        "--stride",
                                        "64",
                                        "--shadows-clipping",
                                        "-1.5",
                                        "--target-background",
                                        "0.125",
                                        "--upsample",
                                        "--linear",
                                        "--quiet",
                                        "--disable-highlights-protection",
                                        "--machine-progress"});
  EXPECT_EQ(line.options.inputPath, "i");
  EXPECT_EQ(line.options.outputPath, "o");
  EXPECT_EQ(line.options.maskPath, "m");
  EXPECT_EQ(line.options.unscreenPath, "n");
  EXPECT_EQ(line.options.weightsPath, "w");
  EXPECT_EQ(line.options.stride, 64);
  EXPECT_EQ(line.options.shadowsClipping, -1.5);
  EXPECT_EQ(line.options.targetBackground, 0.125);
  EXPECT_TRUE(line.options.upsample);
  EXPECT_TRUE(line.options.linear);
  EXPECT_TRUE(line.options.quiet);
  EXPECT_FALSE(line.options.protectHighlights);
  EXPECT_TRUE(line.linearTuningGiven);
}

TEST(ParseCommandLine, ShortForms) {
  const ParsedCommandLine line =
      Parse({"-i", "i", "-o", "o", "-m", "m", "-n", "n", "-w", "w", "-s", "2", "-u", "-q", "-d"});
  EXPECT_EQ(line.options.inputPath, "i");
  EXPECT_EQ(line.options.outputPath, "o");
  EXPECT_EQ(line.options.maskPath, "m");
  EXPECT_EQ(line.options.unscreenPath, "n");
  EXPECT_EQ(line.options.weightsPath, "w");
  EXPECT_EQ(line.options.stride, 2);
  EXPECT_TRUE(line.options.upsample);
  EXPECT_TRUE(line.options.quiet);
  EXPECT_FALSE(line.options.protectHighlights);
}

TEST(ParseCommandLine, PathsAreTakenLiterally) {
  for (const char* path : {"a b.tif", "-x.tif", "m31[1].fits", "\xF0\x9F\x90\xBE.tif", "~x.fits",
                           "!x.fits", "a=b.tif", " lead.tif"}) {
    EXPECT_EQ(Parse({"-i", path}).options.inputPath, path);
  }
}

TEST(ParseCommandLine, StrideIsNotJudgedHere) {
  EXPECT_EQ(Parse({"-i", "a", "-s", "3"}).options.stride, 3);
  EXPECT_EQ(Parse({"-i", "a", "-s", "-2"}).options.stride, -2);
}

TEST(ParseCommandLine, FailuresNameTheArgument) {
  EXPECT_EQ(ParseError({"-q"}), "Error: Required argument missing: input for arg  ");
  EXPECT_EQ(ParseError({"-i", "a", "--nonsense"}),
            "Error: Couldn't find match for argument for arg Argument: --nonsense");
  EXPECT_EQ(ParseError({"-i", "a", "-s", "many"}),
            "Error: Couldn't read argument value from string 'many' for arg Argument: -s "
            "(--stride)");
  EXPECT_EQ(ParseError({"-i", "a", "-i", "b"}),
            "Error: Argument already set! for arg Argument: -i (--input)");
  EXPECT_EQ(ParseError({"-i"}),
            "Error: Missing a value for this argument! for arg Argument: -i (--input)");
}

TEST(ParseCommandLine, HelpAndVersionEndWithStatusZero) {
  for (const char* introspection : {"--help", "-h", "--version"}) {
    testing::internal::CaptureStdout();
    try {
      Parse({introspection});
      ADD_FAILURE() << "no exit request for " << introspection;
    } catch (const ExitRequest& request) {
      EXPECT_EQ(request.Status(), 0);
    }
    EXPECT_NE(testing::internal::GetCapturedStdout().find("2.6.2"), std::string::npos);
  }
}

TEST(ParseCommandLine, UsageListsTheOptionsInTheOrderOfTheTable) {
  testing::internal::CaptureStdout();
  EXPECT_THROW(Parse({"--help"}), ExitRequest);
  const std::string help = testing::internal::GetCapturedStdout();
  const std::size_t where = help.find("Where:");
  ASSERT_NE(where, std::string::npos);
  std::size_t previous = where;
  for (const char* option :
       {"-i <string>,  --input <string>", "-o <string>,  --output <string>",
        "-m <string>,  --mask <string>", "-n <string>,  --unscreen <string>",
        "-w <string>,  --weights <string>", "-s <int>,  --stride <int>",
        "--shadows-clipping <number>", "--target-background <number>", "-u,  --upsample",
        "--linear", "-q,  --quiet", "-d,  --disable-highlights-protection", "--machine-info",
        "--check-updates", "--machine-progress", "--version", "-h,  --help"}) {
    const std::size_t at = help.find("   " + std::string(option) + "\n", previous);
    // The input is marked as required behind its type.
    const std::size_t marked = help.find("   " + std::string(option) + "  (required)\n", previous);
    const std::size_t found = std::min(at, marked);
    ASSERT_NE(found, std::string::npos) << option;
    previous = found;
  }
}

// The usage wraps its lines, so texts are compared with single blanks between words.
std::string SingleSpaced(const std::string& text) {
  std::istringstream words(text);
  std::string result;
  for (std::string word; words >> word;) {
    result += (result.empty() ? "" : " ") + word;
  }
  return result;
}

TEST(ParseCommandLine, UsageDescribesEveryOption) {
  testing::internal::CaptureStdout();
  EXPECT_THROW(Parse({"--help"}), ExitRequest);
  const std::string help = SingleSpaced(testing::internal::GetCapturedStdout());
  for (const char* description :
       {"--input <string> (required) Input image filename. Recommended: TIFF/TIF, PNG, or "
        "supported FITS.",
        "--output <string> Output image filename. See Outputs below for sample-type policy.",
        "--mask <string> Optional mask output filename. Disabled unless provided. See Outputs "
        "below for sample-type policy.",
        "--unscreen <string> Unscreen star-layer output filename. See Outputs below for "
        "sample-type policy.",
        "--weights <string> Override path to the model checkpoint (optional)",
        "--stride <int> Stride value. Must be even and between 2 and 512.",
        "--shadows-clipping <number> Linear MTF shadows-clipping factor in normalized MAD units. "
        "Must be negative.",
        "--target-background <number> Linear MTF target background. Must be strictly between 0 "
        "and 1.",
        "--upsample Use intermediate 2x upsampling",
        "--linear Brighten linear images with per-channel MTF (midtones transfer function) for "
        "neural processing, then reverse the stretch and restore clipped shadows. Fixed "
        "sample-format scaling only; values above 1 are clipped with a warning.",
        "--quiet Suppress routine output (warnings and errors remain visible)",
        "--disable-highlights-protection Disable starless output highlight protection for "
        "comparison or troubleshooting.",
        "--machine-info Print machine-readable product information as JSON and exit.",
        "--check-updates Check the latest Nebulex2 CLI version and exit.",
        "--machine-progress Print machine-readable progress events as JSON Lines."}) {
    EXPECT_NE(help.find(description), std::string::npos) << description;
  }
}

TEST(ValidateCommandLine, LinearTuningNeedsLinearEvenWithTheDefaultValues) {
  for (const auto& [option, value] :
       {std::pair("--target-background", "0.3"), {"--shadows-clipping", "-2.8"}}) {
    const ParsedCommandLine line = Parse({"-i", "a", option, value});
    try {
      ValidateCommandLine(line);
      ADD_FAILURE() << "accepted " << option;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "--shadows-clipping and --target-background require --linear.");
    }
  }
}

TEST(ValidateCommandLine, LinearTuningWithLinearIsFine) {
  EXPECT_NO_THROW(ValidateCommandLine(Parse({"-i", "a", "--linear", "--target-background", "7"})));
  EXPECT_NO_THROW(ValidateCommandLine(Parse({"-i", "a"})));
}

}  // namespace
}  // namespace project_lumen::cli
