#include "studio/images/ImageState.h"

#include "studio/files/PathText.h"
#include "studio/images/DisplayStretch.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

const char* NameOfPhase(ImageState::Phase phase) {
  switch (phase) {
    case ImageState::Phase::kReading:
      return "reading";
    case ImageState::Phase::kReady:
      return "ready";
    default:
      return "failed";
  }
}

const char* NameOfState(ImagePreview::State state) {
  switch (state) {
    case ImagePreview::State::kWaiting:
      return "waiting";
    case ImagePreview::State::kRunning:
      return "running";
    case ImagePreview::State::kReady:
      return "ready";
    default:
      return "failed";
  }
}

Json TextOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json AllLayers() {
  return {"source", "starless", "mask", "unscreen", "blend"};
}

Json DescribeStretch(const LoadedImage& image) {
  const StretchSettings settings;
  Json channels = Json::array();
  for (const core::MtfChannelStats& channel : image.stretch) {
    channels.push_back({{"median", channel.median},
                        {"deviation", channel.normalizedMad},
                        {"shadows", channel.shadows},
                        {"midtones", channel.midtones}});
  }
  return {{"on", image.description.source.isFits || LooksLinear(image.stretch)},
          {"shadows_clipping", settings.shadowsClipping},
          {"target_background", settings.targetBackground},
          {"channels", channels}};
}

Json DescribeSuggestion(const LoadedImage& image) {
  const bool isLinear = LooksLinear(image.stretch);
  return {
      {"linear", isLinear},
      {"reason", isLinear ? "Half of all samples of every channel lie below 5 % of white, so the "
                            "image looks linear: not stretched yet."
                          : "The sky is as bright as that of an image that has been stretched."}};
}

Json DescribeResult(const ImageResult& result) {
  Json files = Json::array();
  for (const ResultFile& file : result.files) {
    files.push_back(DescribeResultFile(file, result.job));
  }
  return {
      {"job", result.job}, {"options", result.options}, {"layers", AllLayers()}, {"files", files}};
}

Json DescribePreview(const ImagePreview& preview) {
  Json document = DescribeArea(preview.area);
  document.update(
      {{"job", preview.job},
       {"state", NameOfState(preview.state)},
       {"error", TextOrNull(preview.error)},
       {"max_level", HighestLevel(preview.area.size())},
       {"options", preview.options},
       {"layers", preview.state == ImagePreview::State::kReady ? AllLayers() : Json::array()}});
  return document;
}

Json DescribePixels(const ImageState& image) {
  const LoadedImage& loaded = *image.loaded;
  const io::ImageDescription& description = loaded.description;
  return {{"width", loaded.pixels->Size().width},
          {"height", loaded.pixels->Size().height},
          {"channels", loaded.pixels->Channels()},
          {"grayscale", description.source.isGrayscale},
          {"tile_size", kTileSize},
          {"max_level", loaded.pixels->MaxLevel()},
          {"format", description.report.format},
          {"stored_type", loaded.ValueType()},
          {"unit", TextOrNull(loaded.unit)},
          {"white", description.source.fixedDivisor},
          {"warnings", loaded.warnings},
          {"has_wcs", loaded.sky.has_value()},
          {"suggestion", DescribeSuggestion(loaded)},
          {"stretch", DescribeStretch(loaded)}};
}

}  // namespace

Json DescribeArea(const cv::Rect& area) {
  return {{"x", area.x}, {"y", area.y}, {"width", area.width}, {"height", area.height}};
}

Json DescribeImage(const ImageState& image) {
  Json document{{"id", image.id},
                {"file", image.file},
                {"folder", TextOrNull(image.folder)},
                {"name", NameIn(image.path)},
                {"shown_path", image.isUploaded ? NameIn(image.path) : image.path},
                {"uploaded", image.isUploaded},
                {"state", NameOfPhase(image.phase)},
                {"error", TextOrNull(image.error)},
                {"changed_on_disk", image.hasChangedOnDisk},
                {"revision", image.revision},
                {"result", image.result ? DescribeResult(*image.result) : Json(nullptr)},
                {"preview", image.preview ? DescribePreview(*image.preview) : Json(nullptr)}};
  if (image.phase == ImageState::Phase::kReady) {
    document.update(DescribePixels(image));
  }
  return document;
}

}  // namespace project_lumen::studio
