#include "studio/http/StateHandlers.h"

#include <chrono>

#include "studio/http/Answers.h"
#include "studio/http/FileHandlers.h"
#include "studio/http/ImageHandlers.h"
#include "studio/http/JobHandlers.h"
#include "studio/http/JsonText.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

Json DescribeState(Studio& studio) {
  return {{"version", NEBULEX_VERSION},
          {"program", studio.program.Describe()},
          {"folders", DescribeRoots(studio)},
          {"images", DescribeImages(studio)},
          {"jobs", DescribeJobs(studio)},
          {"settings", studio.settings.Get()},
          {"limits",
           {{"upload_bytes", kMostUploadBytes},
            {"preview_min", kSmallestPreview},
            {"preview_max", kLargestPreview},
            {"tile_size", kTileSize}}}};
}

}  // namespace

void ShowState(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  AnswerJson(response, DescribeState(studio));
}

void StreamEvents(Studio& studio, const httplib::Request& /*request*/,
                  httplib::Response& response) {
  auto listener = studio.events.Listen(
      [&] { return "retry: 1000\n\n" + EventHub::FormatEvent("state", DescribeState(studio)); });
  if (!listener) {
    throw ApiError(503, "busy", "The studio is open in too many windows.");
  }
  response.set_chunked_content_provider(
      "text/event-stream",
      [listener](std::size_t /*offset*/, httplib::DataSink& sink) {
        constexpr std::chrono::seconds kPatience{10};
        const std::string events = listener->Next(kPatience);
        if (events.empty()) {
          sink.done();
          return true;
        }
        return sink.write(events.data(), events.size());
      },
      [&studio, listener](bool /*isWhole*/) { studio.events.Leave(listener); });
}

void ShowProgram(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  AnswerJson(response, studio.program.Describe());
}

void AskProgram(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  studio.program.Ask();
  const Json program = studio.program.Describe();
  studio.events.Publish("program", program);
  AnswerJson(response, program);
}

void ShowSettings(Studio& studio, const httplib::Request& /*request*/,
                  httplib::Response& response) {
  AnswerJson(response, studio.settings.Get());
}

void KeepSettings(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const Json settings = ParseJsonObject(request.body);
  studio.settings.Set(settings);
  studio.events.Publish("settings", settings);
  AnswerJson(response, settings);
}

}  // namespace project_lumen::studio
