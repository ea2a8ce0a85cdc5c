#include "cli/Nebulex2/InputRecords.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/NumberText.h"
#include "io/fits/FitsKeywords.h"

namespace project_lumen::cli {
namespace {

using io::ImageDescription;
using io::InputReport;
using io::ReadMode;

// The end of every input_conversion record.
std::string ArithmeticText(ReadMode mode) {
  return mode == ReadMode::kLinear ? "MTF/inverse=float64; inference=float32"
                                   : "inference=float32 (no MTF)";
}

const char* LinearFlag(ReadMode mode) {
  return mode == ReadMode::kLinear ? "1" : "0";
}

void ReportRanges(const InputReport& report, double divisor, const std::string& imageSuffix,
                  const DiagnosticsSink& sink) {
  EmitInfo(sink, "input_range", DescribeRange(report.range->image, divisor) + imageSuffix);
  int number = 0;
  for (const RangeStatistics& channel : report.range->channels) {
    ++number;
    EmitInfo(sink, "channel_range",
             "channel=" + std::to_string(number) + " " + DescribeRange(channel, divisor));
  }
}

// --- FITS ---

std::string FitsFormatText(const ImageDescription& input) {
  const io::FitsImageInfo& fits = input.source.fits;
  std::string axes;
  for (const std::int64_t length : input.report.axes) {
    axes += (axes.empty() ? "" : ",") + std::to_string(length);
  }
  return "format=FITS stored=" + input.report.storedType +
         " BITPIX=" + std::to_string(fits.bitpix) + " equivalent=" + input.report.equivalentType +
         " equivalent_type=" + std::to_string(fits.equivalentType) +
         " NAXIS=" + std::to_string(fits.naxis) + " axes=" + axes +
         " interpretation=" + (fits.naxis == 2 ? "mono" : "RGB cube");
}

std::string HeaderCardText(const std::vector<std::string>& cards, const std::string& keyword) {
  if (const std::string* card = io::FindCard(cards, keyword)) {
    return card->substr(0, card->find_last_not_of(' ') + 1);
  }
  if (keyword == "bscale") {
    return keyword + "=missing (default 1)";
  }
  if (keyword == "bzero") {
    return keyword + "=missing (default 0)";
  }
  return keyword + "=missing/not applicable";
}

void ReportHeader(const std::vector<std::string>& cards, const DiagnosticsSink& sink) {
  constexpr std::array<const char*, 11> kReportedKeywords{"bitpix",  "naxis",  "naxis1", "naxis2",
                                                          "naxis3",  "bscale", "bzero",  "datamin",
                                                          "datamax", "bunit",  "blank"};
  for (const char* keyword : kReportedKeywords) {
    EmitInfo(sink, "fits_header", HeaderCardText(cards, keyword));
  }
}

const char* CompareExtrema(const io::FitsImageInfo& info, const RangeStatistics& samples) {
  if (samples.finite == 0) {
    return "unavailable";
  }
  const bool disagrees = (info.dataMin && *info.dataMin != samples.minimum) ||
                         (info.dataMax && *info.dataMax != samples.maximum);
  if (disagrees) {
    return "disagrees with decoded samples";
  }
  return info.dataMin || info.dataMax ? "agrees for supplied extrema" : "not supplied";
}

void ReportLinearPreparation(const RangeStatistics& samples, double divisor,
                             const DiagnosticsSink& sink) {
  const double maximum = samples.maximum / divisor;
  if (samples.aboveOne != 0) {
    const double percent =
        static_cast<double>(samples.aboveOne) * 100.0 / static_cast<double>(samples.samples);
    EmitWarning(sink, WarningKind::kDataLoss,
                "--linear clips " + std::to_string(samples.aboveOne) + " of " +
                    std::to_string(samples.samples) + " samples (" + FormatReal(percent) +
                    "%) above 1 after fixed sample-format conversion; normalized maximum=" +
                    FormatReal(maximum) +
                    ". Discarded highlights will not be restored. Normalize float ADU data "
                    "upstream.");
  }
  EmitInfo(sink, "input_prepared",
           "upper-clipped=" + std::to_string(samples.aboveOne) + "; pre-MTF range=[" +
               FormatReal(std::min(1.0, samples.minimum / divisor)) + "," +
               FormatReal(std::min(1.0, maximum)) + "]; negatives retained until MTF");
}

// What becomes of integer samples outside [0,1]: without a stretch nobody takes them back.
void WarnOfClippedSamples(const InputReport& report, double divisor, const DiagnosticsSink& sink) {
  const RangeStatistics& samples = report.range->image;
  const std::uint64_t clipped = samples.belowZero + samples.aboveOne;
  if (clipped == 0) {
    return;
  }
  const double percent =
      static_cast<double>(clipped) * 100.0 / static_cast<double>(samples.samples);
  std::string message = std::to_string(clipped) + " of " + std::to_string(samples.samples) +
                        " samples (" + FormatReal(percent) +
                        "%) lie outside [0,1] after fixed sample-format conversion and are "
                        "clipped: " +
                        std::to_string(samples.belowZero) + " below 0 become 0, " +
                        std::to_string(samples.aboveOne - report.tooLarge) + " above 1 become 1";
  if (report.tooLarge != 0) {
    message += ", " + std::to_string(report.tooLarge) + " beyond 32-bit floats become 0";
  }
  message += "; normalized range=[" + FormatReal(samples.minimum / divisor) + "," +
             FormatReal(samples.maximum / divisor) + "].";
  if (samples.belowZero != 0) {
    message += " For data that has not been stretched use --linear, which keeps samples below 0.";
  }
  if (samples.aboveOne != 0) {
    message += " Rescale the image upstream so that no sample is above K=" + FormatReal(divisor) +
               " in physical units.";
  }
  EmitWarning(sink, WarningKind::kDataLoss, message);
}

void ReportFits(const ImageDescription& input, ReadMode mode, const DiagnosticsSink& sink) {
  const io::FitsImageInfo& fits = input.source.fits;
  const InputReport& report = input.report;
  EmitInfo(sink, "input_format", FitsFormatText(input));
  ReportHeader(fits.headerCards, sink);
  if (report.range) {
    ReportRanges(report, fits.fixedDivisor, " undefined=" + std::to_string(report.undefined), sink);
    EmitInfo(sink, "header_extrema",
             std::string("DATAMIN/DATAMAX do not determine scale; comparison=") +
                 CompareExtrema(fits, report.range->image));
  } else if (fits.IsSupported()) {
    return;  // the pixels could not be read; those of an odd cube are not even tried
  }
  EmitInfo(sink, "input_conversion",
           "physical=x/K; fixed divisor K=" + FormatReal(fits.fixedDivisor) +
               "; offset=0; BSCALE/BZERO applied once by CFITSIO; no observed-range rescaling; "
               "linear=" +
               LinearFlag(mode) + "; physical_read=float64; " + ArithmeticText(mode));
  const bool allFinite = report.range && report.range->image.finite == report.range->image.samples;
  if (mode == ReadMode::kLinear && allFinite) {
    ReportLinearPreparation(report.range->image, fits.fixedDivisor, sink);
  } else if (allFinite && !fits.isFloat) {
    WarnOfClippedSamples(report, fits.fixedDivisor, sink);
  }
}

// --- Raster formats ---

void WarnOfMetadata(const InputReport& report, const DiagnosticsSink& sink) {
  if (!report.metadataFault.empty()) {
    EmitWarning(sink, WarningKind::kOutputFidelity,
                "Unable to inspect AstroTIFF metadata; continuing without preservation. " +
                    report.metadataFault);
  }
}

void WarnOfPages(const InputReport& report, const DiagnosticsSink& sink) {
  if (report.pages > 1) {
    EmitWarning(sink, WarningKind::kOutputFidelity,
                "The file holds " + std::to_string(report.pages) +
                    " images. Only the first is processed; further images left alone: " +
                    std::to_string(report.pages - 1) + ".");
  }
}

void ReportRaster(const ImageDescription& input, ReadMode mode, const DiagnosticsSink& sink) {
  const InputReport& report = input.report;
  const double divisor = input.source.fixedDivisor;
  WarnOfMetadata(report, sink);
  WarnOfPages(report, sink);
  EmitInfo(sink, "input_format",
           "format=" + report.format + " stored=" + report.storedType + " width=" +
               std::to_string(report.axes.at(0)) + " height=" + std::to_string(report.axes.at(1)) +
               " channels=" + std::to_string(report.axes.at(2)));
  ReportRanges(report, divisor, "", sink);
  EmitInfo(sink, "input_conversion",
           "fixed divisor K=" + FormatReal(divisor) + "; offset=0; linear=" + LinearFlag(mode) +
               "; no observed-range rescaling; " + ArithmeticText(mode));
}

}  // namespace

void ReportInput(const ImageDescription& input, ReadMode mode, const DiagnosticsSink& sink) {
  if (input.report.format.empty()) {
    return;
  }
  if (input.source.isFits) {
    ReportFits(input, mode, sink);
  } else {
    ReportRaster(input, mode, sink);
  }
}

}  // namespace project_lumen::cli
