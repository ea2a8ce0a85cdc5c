#include "cli/HelpText.h"

#include "cli/ProductInfo.h"

namespace project_lumen::cli {
namespace {

constexpr char kInputs[] =
    "\n\n Inputs:"
    "\n   Recommended: TIFF/TIF, PNG, or supported FITS."
    "\n   Non-FITS images: 8-bit or 16-bit integer, grayscale or RGB."
    "\n   FITS: standard image HDUs in .fit/.fits/.fts or"
    "\n         .fit.gz/.fits.gz/.fts.gz, including"
    "\n         2D grayscale images and simple 3-channel RGB cubes."
    "\n         Integer FITS uses fixed sample-format scaling; floats use scale 1."
    "\n         Float FITS normally uses normalized [0,1] samples."
    "\n         With --linear, values above 1 are clipped before MTF, with a loss warning."
    "\n         No automatic range normalization. Normalize float ADU input upstream."
    "\n         Warnings remain visible with --quiet; header extrema never set the scale."
    "\n         Non-finite/undefined FITS samples are rejected in both modes."
    "\n   Default stderr diagnostics describe formats, ranges, headers and processing."
    "\n   --quiet suppresses routine output, not data-loss/unit/fallback warnings."
    "\n   --machine-progress uses JSON Lines for progress and diagnostics on stderr."
    "\n   FITS/AstroTIFF outputs preserve same-family astronomy metadata."
    "\n   Might work: JPEG/JPG and BMP through OpenCV,"
    "\n               but these formats were not tested."
    "\n   Not accepted: floating-point non-FITS images, alpha channels,"
    "\n                 unsupported non-FITS channel/depth layouts,"
    "\n                 arbitrary scientific FITS cubes, FITS tables,"
    "\n                 and unsupported FITS HDU layouts.";

constexpr char kInputsLinear[] =
    "\n   With --linear only, negative shadows are restored after MTF.";

constexpr char kOutputs[] =
    "\n\n Outputs:"
    "\n   TIFF/PNG outputs preserve 8- or 16-bit non-FITS input depth."
    "\n   FITS inputs converted to TIFF/PNG use 16-bit output."
    "\n   Display output maps normalized white to 255 (8-bit) or 65535 (16-bit).";

constexpr char kOutputsFitsWithStarLayers[] =
    "\n   FITS-to-FITS main/difference preserves source storage type and scaling.";

constexpr char kOutputsFitsPlain[] =
    "\n   FITS-to-FITS output preserves source storage type, scaling and source units.";

constexpr char kOutputsPrecision[] =
    "\n   Linear MTF/inverse uses float64; only neural inference uses float32.";

constexpr char kOutputsStarLayers[] =
    "\n   Main/difference FITS retains source units. Float unscreen uses fractions,"
    "\n   BUNIT=1 and identity FITS scaling; integer unscreen uses full-range encoding."
    "\n   Difference is clamped to [0,1] in normalized units. Reconstruction is"
    "\n   limited by caps, guards and storage quantization."
    "\n   Discarded highlights are not restored by either star-layer output.";

constexpr char kOutputsClosing[] =
    "\n   With --linear, constant channels retain prepared values; singular varying MTF rejects."
    "\n   TIFF/PNG exports remain normalized display data, not physical ADU values."
    "\n   A FITS output is a new single-image FITS built from the selected"
    "\n   supported image HDU. Other HDUs and their headers are not copied."
    "\n   FITS outputs from other input formats use 32-bit floating point."
    "\n   TIFF outputs are always saved with LZW compression."
    "\n   Astronomy metadata is not converted between FITS and TIFF.";

std::string BuildInputsSection(bool starLayerVariant) {
  return std::string(kInputs) + (starLayerVariant ? kInputsLinear : "");
}

std::string BuildOutputsSection(bool starLayerVariant) {
  return std::string(kOutputs) +
         (starLayerVariant ? kOutputsFitsWithStarLayers : kOutputsFitsPlain) + kOutputsPrecision +
         (starLayerVariant ? kOutputsStarLayers : "") + kOutputsClosing;
}

std::string BuildPackageLayoutSection(std::string_view weightsFileName) {
  const std::string id = kModelId;
  const std::string executable = kExecutableName;
  const std::string weights(weightsFileName);
  const std::string installFolder = "C:\\Program Files\\" + std::string(kModelLabel);
  return "\n\n Package layout:\n   Portable archive:\n"
         "     To run from the extracted archive, keep these files together:\n     " +
         id + "/\n       " + executable + ".exe" + "\n       " + weights +
         "\n       <runtime DLLs>\n       README.txt\n       LICENSE.txt\n\n"
         "   Manual install:\n     To run " +
         executable + " from anywhere, place the files like this:\n     " + installFolder +
         "\\bin\\" + executable + ".exe" + "\n     " + installFolder + "\\lib\\" + id + "\\" +
         weights + "\n     Runtime DLLs must stay next to " + executable + ".exe.";
}

}  // namespace

void PrintShortUsage(std::ostream& stream) {
  stream << "Usage: nebulex2 --input <image> --output <starless-image> [options]\n"
            "Example: nebulex2 --input image.tif --output starless.tif --mask mask.tif --unscreen "
            "stars.tif\n"
            "Run 'nebulex2 --help' for full options and input/output details.\n";
}

std::string BuildExtendedHelp(std::string_view defaultWeightsFileName, bool starLayerVariant) {
  return BuildInputsSection(starLayerVariant) + BuildOutputsSection(starLayerVariant) +
         BuildPackageLayoutSection(defaultWeightsFileName);
}

std::string BuildHelpDescription() {
  return "\n Nebulex2 CLI, ONNX Runtime backend." +
         BuildExtendedHelp(kDefaultWeightsFileName, true) + "\n\n Nebulex2 v" + kVersion;
}

}  // namespace project_lumen::cli
