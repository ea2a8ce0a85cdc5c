#include "cli/HelpText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace project_lumen::cli {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST(PrintShortUsage, ThreeLines) {
  std::ostringstream stream;
  PrintShortUsage(stream);
  EXPECT_EQ(stream.str(),
            "Usage: nebulex2 --input <image> --output <starless-image> [options]\n"
            "Example: nebulex2 --input image.tif --output starless.tif --mask mask.tif --unscreen "
            "stars.tif\n"
            "Run 'nebulex2 --help' for full options and input/output details.\n");
}

TEST(BuildExtendedHelp, SectionsStandInTheirOrder) {
  const std::string help = BuildExtendedHelp("W.onnx", true);
  const std::size_t inputs = help.find("\n\n Inputs:\n");
  const std::size_t outputs = help.find("\n\n Outputs:\n");
  const std::size_t layout = help.find("\n\n Package layout:\n");
  EXPECT_EQ(inputs, 0U);
  EXPECT_LT(inputs, outputs);
  EXPECT_LT(outputs, layout);
  EXPECT_NE(layout, std::string::npos);
}

TEST(BuildExtendedHelp, StarLayerVariantAddsTheLinearLineAndTheStarLayerBlock) {
  const std::string help = BuildExtendedHelp("W.onnx", true);
  EXPECT_THAT(help, HasSubstr("\n                 and unsupported FITS HDU layouts.\n"
                              "   With --linear only, negative shadows are restored after MTF.\n"
                              "\n Outputs:\n"));
  EXPECT_THAT(
      help,
      HasSubstr("\n   FITS-to-FITS main/difference preserves source storage type and scaling.\n"
                "   Linear MTF/inverse uses float64; only neural inference uses float32.\n"
                "   Main/difference FITS retains source units. Float unscreen uses fractions,\n"
                "   BUNIT=1 and identity FITS scaling; integer unscreen uses full-range encoding.\n"
                "   Difference is clamped to [0,1] in normalized units. Reconstruction is\n"
                "   limited by caps, guards and storage quantization.\n"
                "   Discarded highlights are not restored by either star-layer output.\n"
                "   With --linear, constant channels"));
}

TEST(BuildExtendedHelp, PlainVariantLeavesThemOut) {
  const std::string help = BuildExtendedHelp("W.onnx", false);
  EXPECT_THAT(help, Not(HasSubstr("With --linear only")));
  EXPECT_THAT(help, Not(HasSubstr("Difference is clamped")));
  EXPECT_THAT(help, HasSubstr("\n   FITS-to-FITS output preserves source storage type, scaling and "
                              "source units.\n   Linear MTF/inverse uses float64; only neural "
                              "inference uses float32.\n   With --linear, constant channels"));
}

TEST(BuildExtendedHelp, PackageLayoutNamesTheWeightsOnceInEachList) {
  const std::string help = BuildExtendedHelp("W.onnx", true);
  EXPECT_EQ(CountOf(help, "W.onnx"), 2U);
  EXPECT_THAT(help, EndsWith("\n\n Package layout:\n"
                             "   Portable archive:\n"
                             "     To run from the extracted archive, keep these files together:\n"
                             "     nebulex2/\n"
                             "       nebulex2.exe\n"
                             "       W.onnx\n"
                             "       <runtime DLLs>\n"
                             "       README.txt\n"
                             "       LICENSE.txt\n"
                             "\n"
                             "   Manual install:\n"
                             "     To run nebulex2 from anywhere, place the files like this:\n"
                             "     C:\\Program Files\\Nebulex2\\bin\\nebulex2.exe\n"
                             "     C:\\Program Files\\Nebulex2\\lib\\nebulex2\\W.onnx\n"
                             "     Runtime DLLs must stay next to nebulex2.exe."));
}

TEST(BuildHelpDescription, FramesTheSectionsWithTheProductAndItsVersion) {
  const std::string description = BuildHelpDescription();
  EXPECT_THAT(description, StartsWith("\n Nebulex2 CLI, ONNX Runtime backend.\n\n Inputs:\n"
                                      "   Recommended: TIFF/TIF, PNG, or supported FITS.\n"));
  EXPECT_THAT(description, EndsWith("next to nebulex2.exe.\n\n Nebulex2 v2.6.2"));
  EXPECT_EQ(CountOf(description, "Nebulex2_weights.onnx"), 2U);
}

}  // namespace
}  // namespace project_lumen::cli
