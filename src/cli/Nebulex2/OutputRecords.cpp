#include "cli/Nebulex2/OutputRecords.h"

#include <opencv2/core/hal/interface.h>
#include <string>

#include "common/NumberText.h"

namespace project_lumen::cli {
namespace {

const char* RoleName(io::OutputRole role) {
  switch (role) {
    case io::OutputRole::kMain:
      return "main";
    case io::OutputRole::kDifference:
      return "difference";
    default:
      return "unscreen";
  }
}

std::string FitsFormText(const io::OutputDescription& form, io::OutputRole role) {
  return "format=FITS BITPIX=" + std::to_string(form.bitpix) + " role=" + RoleName(role) +
         " fixed_white=" + FormatReal(form.white) + " BSCALE=" + FormatReal(form.bscale) +
         " BZERO=" + FormatReal(form.bzero) + " encoding_input=float64; " +
         (form.isFraction ? "dimensionless fraction"
                          : "source physical units; source storage quantization applies");
}

std::string RasterFormText(const io::OutputDescription& form) {
  return "display-format export; depth=" + std::to_string(form.bits) +
         " bits; normalized display values, not physical FITS units";
}

bool HasMoreThanEightBits(const io::SourceImageInfo& source) {
  constexpr int kEightBitFits = 8;
  return source.isFits ? source.fits.bitpix != kEightBitFits : source.storedDepth != CV_8U;
}

}  // namespace

void WarnOfLayersThatCannotRebuild(const io::OutputFile& starless, const DiagnosticsSink& sink) {
  const io::OutputDescription form = io::DescribeOutput(starless);
  std::string reason;
  if (form.isLossy) {
    reason = "JPEG compression changes its samples after the layers were computed from them";
  } else if (form.bits == 8 && HasMoreThanEightBits(starless.source)) {
    reason = "it is stored with 8 bits a sample, and the input has more";
  } else {
    return;
  }
  EmitWarning(sink, WarningKind::kOutputFidelity,
              "The starless image with its layers will not rebuild the input: " + reason + " (" +
                  starless.path + "). Write it as TIFF, PNG or FITS, which --output chooses.");
}

void ReportOutputForm(const io::OutputDescription& form, io::OutputRole role,
                      const DiagnosticsSink& sink) {
  EmitInfo(sink, "output_conversion",
           form.isFits ? FitsFormText(form, role) : RasterFormText(form));
}

void ReportQuantisation(const io::OutputReport& report, io::OutputRole role,
                        const DiagnosticsSink& sink) {
  if (!report.isQuantised) {
    return;
  }
  EmitInfo(sink, "output_quantization",
           "Integer FITS samples rounded to nearest storage value; source BSCALE/BZERO "
           "preserved.");
  if (report.clipped != 0) {
    EmitWarning(
        sink,
        report.clippedAtUpperLimit != 0 ? WarningKind::kDataLoss : WarningKind::kOutputFidelity,
        "clipped " + std::to_string(report.clipped) +
            " integer FITS output samples to the source storage limits; role=" + RoleName(role));
  }
}

}  // namespace project_lumen::cli
