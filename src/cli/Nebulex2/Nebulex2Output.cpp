#include "cli/Nebulex2/Nebulex2Output.h"

#include <opencv2/core.hpp>

#include "cli/Nebulex2/OutputRecords.h"
#include "common/StandardErrorDiversion.h"

namespace project_lumen::cli {

void WriteOutputImage(const io::OutputFile& file, const cv::Mat& prepared,
                      const DiagnosticsSink& sink) {
  EmitInfo(sink, "output", "Writing " + file.path);
  ReportOutputForm(io::DescribeOutput(file), file.role, sink);
  const io::OutputReport report = [&] {
    const StandardErrorDiversion diversion;
    io::ImageWriter writer(file, prepared.size());
    writer.Append(prepared);
    return writer.Finish();
  }();
  ReportQuantisation(report, file.role, sink);
}

void PrepareLayer(const io::OutputFile& file, const core::LayerInputs& inputs, cv::Mat& prepared) {
  const core::StarLayer layer =
      file.role == io::OutputRole::kUnscreen ? core::StarLayer::kUnscreen : core::StarLayer::kMask;
  core::ComputeLayer(inputs, layer, [&](const cv::Mat& samples, const cv::Range& rows) {
    const cv::Mat part = io::PrepareOutputImage(file, samples);
    prepared.create(inputs.source.size(), part.type());
    part.copyTo(prepared.rowRange(rows));
  });
}

}  // namespace project_lumen::cli
