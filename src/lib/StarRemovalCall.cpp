#include "lib/StarRemovalCall.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <utility>

#include <opencv2/core.hpp>

#include "backend/BackendDiagnostics.h"
#include "common/RowBands.h"
#include "core/ImageProcessing.h"
#include "core/LayerBands.h"
#include "core/LinearRecords.h"
#include "core/StarLayers.h"
#include "lib/Errors.h"
#include "lib/Messages.h"
#include "lib/Model.h"
#include "lib/ResultBuffers.h"
#include "lib/SampleLayout.h"
#include "lib/SampleRows.h"
#include "lib/Settings.h"
#include "lib/SourceImage.h"
#include "lib/StoppableInference.h"
#include "lib/StoredSamples.h"

namespace project_lumen::lib {
namespace {

// The caller's callbacks as the core and the backend take them.
class Listener {
 public:
  explicit Listener(const nebulex_callbacks& callbacks) : callbacks_(callbacks) {}

  void Take(const Diagnostic& record) const {
    SendMessage(callbacks_.message, callbacks_.context, record);
  }

  [[nodiscard]] std::function<bool()> StopRequested() const {
    if (callbacks_.stop_requested == nullptr) {
      return nullptr;
    }
    return [this] { return callbacks_.stop_requested(callbacks_.context) != 0; };
  }

  [[nodiscard]] core::RunControl Control() const {
    core::RunControl control;
    control.stopRequested = StopRequested();
    if (callbacks_.progress != nullptr) {
      control.progress = [this](int done, int total) {
        callbacks_.progress(callbacks_.context, done, total);
        return true;
      };
    }
    return control;
  }

 private:
  nebulex_callbacks callbacks_;
};

core::TileInferenceFn Network(backend::OnnxRuntimeBackend& backend, const Listener& listener) {
  return [&](const core::ImageView& tile) -> core::Image {
    // The view is read only, and so is the session's use of the matrix around it.
    const cv::Mat input(tile.height, tile.width, CV_32FC3, const_cast<float*>(tile.data));
    const TileWork work = [&](const std::stop_token& stop, const auto& messages) {
      return backend.InferTile(input, stop, messages);
    };
    const auto take = [&](const std::string& line) { listener.Take(backend::DiagnosticOf(line)); };
    return {RunStoppable(work, listener.StopRequested(), take), tile.width, tile.height,
            tile.channels};
  };
}

cv::Mat Process(nebulex_model& model, const cv::Mat& source, double white, const Settings& settings,
                const Listener& listener) {
  const auto take = [&](const Diagnostic& record) { listener.Take(record); };
  if (!settings.processing.linear) {
    take(core::NotLinearRecord());
  }
  try {
    return core::ProcessImage(source, settings.processing, Network(model.backend, listener),
                              listener.Control(),
                              core::ReportsAsRecords(settings.processing, white, take));
  } catch (const std::invalid_argument& error) {
    throw BadImage(error.what());
  }
}

// --- Results ---

// A starless image, normalised, on its way to the caller's samples.
struct Starless {
  const cv::Mat& normalised;
  int depth;     // of the samples
  double white;  // of the samples

  [[nodiscard]] cv::Mat Stored(const cv::Range& rows) const {
    cv::Mat stored;
    StoreSamples(normalised.rowRange(rows), depth, white, stored);
    return stored;
  }
};

// A look at every row, so that what cannot be stored is found before anything is written. Integers
// are held within their range.
void RequireStorable(const Starless& starless) {
  if (starless.depth != CV_32F && starless.depth != CV_64F) {
    return;
  }
  cv::Mat tried;
  ForEachRowBand(starless.normalised,
                 [&](const cv::Range& rows) { tried = starless.Stored(rows); });
}

void WriteStarless(const Starless& starless, const SampleLayout& target) {
  ForEachRowBand(starless.normalised, [&](const cv::Range& rows) {
    WriteRows(target, starless.Stored(rows), rows.start);
  });
}

void WriteLayer(const core::LayerInputs& inputs, core::StarLayer layer, double white,
                const SampleLayout& target) {
  cv::Mat stored;
  core::ComputeLayer(inputs, layer, [&](const cv::Mat& samples, const cv::Range& rows) {
    StoreSamples(samples, target.depth, white, stored);
    WriteRows(target, stored, rows.start);
  });
}

void WriteResults(const cv::Mat& source, const Starless& starless, const Settings& settings,
                  const Listener& listener, ResultBuffers& buffers) {
  const core::LayerInputs inputs{
      source,
      [&](const cv::Range& rows) { return ReadBackSamples(starless.Stored(rows), starless.white); },
      false};
  RequireStorable(starless);
  const std::uint64_t suppressed = core::CheckLayerInputs(inputs, settings.wantsUnscreen);
  if (suppressed > 0) {
    listener.Take(Warning(WarningKind::kDataLoss, core::SuppressionWarning(suppressed)));
  }
  buffers.Allocate();
  WriteStarless(starless, buffers.Starless());
  if (settings.wantsMask) {
    WriteLayer(inputs, core::StarLayer::kMask, starless.white, buffers.Mask());
  }
  if (settings.wantsUnscreen) {
    // Of floating samples it is a fraction without a unit.
    constexpr double kFraction = 1.0;
    WriteLayer(inputs, core::StarLayer::kUnscreen, kFraction, buffers.Unscreen());
  }
}

template <typename Pointer>
void RequirePointer(Pointer pointer, const char* name) {
  if (pointer == nullptr) {
    throw BadArgument(std::string(name) + " is NULL.");
  }
}

}  // namespace

void RemoveStars(nebulex_model* model, const nebulex_view* image, const nebulex_settings* settings,
                 const nebulex_callbacks* callbacks, nebulex_results* results) {
  RequirePointer(model, "model");
  RequirePointer(image, "image");
  RequirePointer(results, "results");
  const Settings chosen = ReadSettings(settings);
  const Listener listener(ReadCallbacks(callbacks));
  const SampleLayout layout = LayoutOf(*image, "image");
  CheckImage(layout, chosen);
  ResultBuffers buffers(results, *image, layout, chosen);

  const double white = WhiteOf(layout, chosen);
  const cv::Mat source = ReadSourceImage(layout, chosen);
  const cv::Mat starless = Process(*model, source, white, chosen, listener);
  WriteResults(source, {starless, layout.depth, white}, chosen, listener, buffers);
}

}  // namespace project_lumen::lib
