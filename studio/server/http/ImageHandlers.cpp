#include "studio/http/ImageHandlers.h"

#include "studio/files/PathText.h"
#include "studio/http/Answers.h"
#include "studio/http/JsonText.h"
#include "studio/http/QueryNumbers.h"
#include "studio/images/Histogram.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

std::string ImageId(const httplib::Request& request) {
  return request.matches[1].str();
}

std::vector<core::MtfChannelStats> StretchOf(const LoadedImage& image, const Query& query) {
  const auto settings = QueryStretch(query);
  return settings ? WithSettings(image.stretch, *settings) : std::vector<core::MtfChannelStats>();
}

// Everything that a tile's bytes depend on.
std::string TileKey(const std::string& pictures, const httplib::Request& request,
                    const TileLook& look) {
  std::string key = pictures + request.path;
  for (const double number : {look.gain, look.amount, look.curve}) {
    key += "," + std::to_string(number);
  }
  for (const core::MtfChannelStats& channel : look.stretch) {
    key +=
        "," + std::to_string(channel.shadows * 1e9) + "," + std::to_string(channel.midtones * 1e9);
  }
  return key;
}

// Answers with the tile that the end of the request's path names; `first` is the number of the
// first of its four parts. `revision` tells pictures apart that one address had at other times.
void AnswerTile(Studio& studio, const httplib::Request& request, httplib::Response& response,
                const LayerPictures& pictures, const LoadedImage& image, int revision,
                std::size_t first) {
  const auto layer = LayerOfName(request.matches[first].str());
  if (!layer || !pictures.source || (*layer != Layer::kSource && !pictures.starless)) {
    throw NotFound("There is no such layer (yet).");
  }
  const auto number = [&](std::size_t part) {
    return ParseWholeNumber(request.matches[first + part].str()).value_or(-1);
  };
  const int level = number(1);
  const auto area = TileArea(pictures.source->Size(), level, number(2), number(3));
  if (!area) {
    throw NotFound("There is no such tile.");
  }
  TileLook look = QueryLook(request.params, *layer);
  look.stretch = StretchOf(image, request.params);
  const std::string key = TileKey(std::to_string(revision), request, look);
  auto bytes = studio.tiles.Find(key);
  if (!bytes) {
    bytes = EncodePng(RenderLayer(pictures, look, level, *area));
    studio.tiles.Keep(key, *bytes);
  }
  response.set_content(*bytes, "image/png");
}

Json DescribeValues(const PixelPyramid& pixels, const LoadedImage& image, const cv::Point& place) {
  const cv::Mat pixel = pixels.Read(pixels.MaxLevel(), {place, cv::Size(1, 1)});
  Json stored = Json::array();
  Json normalised = Json::array();
  for (int c = 0; c < pixels.Channels(); ++c) {
    const double sample = pixel.ptr<float>()[c];
    stored.push_back(image.Stored(sample));
    normalised.push_back(sample);
  }
  return {{"stored", stored}, {"normalised", normalised}};
}

Json DescribeSky(const LoadedImage& image, const cv::Point& place) {
  if (!image.sky) {
    return nullptr;
  }
  const SkyPosition position = image.sky->At(place.x + 1.0, place.y + 1.0);
  return {{"ra_deg", position.rightAscension},
          {"dec_deg", position.declination},
          {"ra", FormatRightAscension(position.rightAscension)},
          {"dec", FormatDeclination(position.declination)},
          {"frame", image.sky->Frame()}};
}

}  // namespace

Json DescribeImages(Studio& studio) {
  Json images = Json::array();
  for (const ImageState& image : studio.images.All()) {
    images.push_back(DescribeImage(image));
  }
  return images;
}

void ListImages(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  AnswerJson(response, {{"images", DescribeImages(studio)}});
}

void OpenImage(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const Json body = ParseJsonObject(request.body);
  RequireKnownMembers(body, {"file"});
  const auto [image, isReading] = studio.images.Open(StringMember(body, "file", ""));
  AnswerJson(response, DescribeImage(image), isReading ? 202 : 200);
}

void ShowImage(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  AnswerJson(response, DescribeImage(studio.images.Find(ImageId(request))));
}

void ReloadImage(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  AnswerJson(response, DescribeImage(studio.images.Reload(ImageId(request))), 202);
}

void CloseImage(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  studio.images.Close(ImageId(request));
  response.status = 204;
}

void ShowTile(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const ImageState image = studio.images.FindReady(ImageId(request));
  AnswerTile(studio, request, response, image.Pictures(), *image.loaded, image.revision, 2);
}

void ShowPreviewTile(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const ImageState image = studio.images.FindReady(ImageId(request));
  if (!image.preview || image.preview->state != ImagePreview::State::kReady) {
    throw NotFound("There is no preview (yet).");
  }
  AnswerTile(studio, request, response, image.preview->pictures, *image.loaded, image.revision, 2);
}

void ShowHistogram(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  constexpr int kFewestBins = 16;
  constexpr int kMostBins = 1024;
  const ImageState image = studio.images.FindReady(ImageId(request));
  const std::string layer =
      request.has_param("layer") ? request.get_param_value("layer") : "source";
  const LayerPictures pictures = image.Pictures();
  const auto& pixels = layer == "starless" ? pictures.starless : pictures.source;
  if ((layer != "source" && layer != "starless") || !pixels) {
    throw NotFound("There is no histogram of such a layer (yet).");
  }
  const int bins = QueryWholeNumber(request.params, "bins", 256);
  if (bins < kFewestBins || bins > kMostBins) {
    throw BadRequest("\"bins\" has to lie within 16 and 1024.");
  }
  const MeasuredSamples samples = MeasureSamples(*pixels);
  AnswerJson(response,
             {{"bins", bins},
              {"minimum", 0},
              {"maximum", 1},
              {"channels", CountSamples(samples, bins, StretchOf(*image.loaded, request.params))},
              {"sampled", samples.isSampled}});
}

void ShowValue(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const ImageState image = studio.images.FindReady(ImageId(request));
  const LayerPictures pictures = image.Pictures();
  const cv::Point place(QueryWholeNumber(request.params, "x", std::nullopt),
                        QueryWholeNumber(request.params, "y", std::nullopt));
  if (!cv::Rect({}, pictures.source->Size()).contains(place)) {
    throw BadRequest("This lies outside of the image.");
  }
  AnswerJson(
      response,
      {{"x", place.x},
       {"y", place.y},
       {"unit", image.loaded->unit.empty() ? Json(nullptr) : Json(image.loaded->unit)},
       {"source", DescribeValues(*pictures.source, *image.loaded, place)},
       {"starless", pictures.starless ? DescribeValues(*pictures.starless, *image.loaded, place)
                                      : Json(nullptr)},
       {"sky", DescribeSky(*image.loaded, place)}});
}

}  // namespace project_lumen::studio
