// What the studio's server reads by itself: numbers, ranges and looks of addresses, JSON bodies,
// names of results, options for the program, and the lines that the program says.
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "FuzzTarget.h"
#include "studio/files/PathText.h"
#include "studio/http/ApiError.h"
#include "studio/http/JsonText.h"
#include "studio/http/QueryNumbers.h"
#include "studio/http/RequestGuard.h"
#include "studio/results/ResultPlace.h"
#include "studio/runs/PreviewArea.h"
#include "studio/runs/Program.h"
#include "studio/runs/Records.h"

namespace project_lumen::fuzz {
namespace {

using namespace studio;
using nlohmann::json;

// Whatever comes, it is taken or refused as a fault of the request.
template <typename Action>
void TakeOrRefuse(Action action) {
  try {
    action();
  } catch (const ApiError& error) {
    Require(error.Status() == 400 || error.Status() == 404);
  }
}

void ReadQuery(const std::string& text) {
  const Query query{{"stretch", "1"}, {"shadows", text}, {"gain", text}, {"x", text}};
  TakeOrRefuse([&] {
    const auto stretch = QueryStretch(query);
    Require(stretch && stretch->shadowsClipping < 0.0);
  });
  TakeOrRefuse([&] {
    const TileLook look = QueryLook(query, Layer::kMask);
    Require(look.gain > 0.0 && std::isfinite(look.gain));
  });
  TakeOrRefuse([&] {
    const int column = QueryWholeNumber(query, "x", std::nullopt);
    Require(column >= 0);
    const auto area = TileArea({6000, 4000}, 13, column, column);
    Require(!area || (cv::Rect(0, 0, 6000, 4000) & *area) == *area);
  });
}

void ReadName(const std::string& text) {
  TakeOrRefuse([&] {
    const std::string name = ResultName(text, "m31.tif", "starless", ".tif");
    Require(name.find('/') == std::string::npos && name.front() != '.' &&
            name.find('\0') == std::string::npos && name.ends_with(".tif"));
  });
  Require(!IsPlainName(text) || (text != "." && text != ".."));
}

json Info() {
  return json::parse(R"({"options": [
    {"name": "stride", "flags": ["--stride"], "type": "integer", "minimum": 2, "maximum": 512,
     "constraints": {"even": true}, "mode": "processing"},
    {"name": "linear", "flags": ["--linear"], "type": "boolean", "mode": "processing"},
    {"name": "target", "flags": ["--target"], "type": "number", "exclusive_minimum": 0.0,
     "requires": "linear", "mode": "processing"},
    {"name": "weights", "flags": ["--weights"], "type": "path", "mode": "processing"}],
    "progress": {"machine": {"option": "machine_progress"}}})");
}

void ReadBody(const std::string& text) {
  TakeOrRefuse([&] {
    const json body = ParseJsonObject(text);
    Require(ParseJsonObject(ToText(body)).is_object());
    TakeOrRefuse([&] {
      const cv::Rect area =
          PreviewArea({NumberMember(body, "x", 0), NumberMember(body, "y", 0),
                       NumberMember(body, "width", 0), NumberMember(body, "height", 0)},
                      {3000, 700});
      Require((cv::Rect(0, 0, 3000, 700) & area) == area && area.width >= 512);
    });
    TakeOrRefuse([&] { static_cast<void>(StringsMember(body, "files")); });
    TakeOrRefuse([&] {
      for (const std::string& word :
           OptionArguments(Info(), body, [](const std::string&) { return "/net"; })) {
        Require(!word.empty());
      }
    });
  });
}

void ReadLine(const std::string& text) {
  const Record record = ParseRecord(text);
  static_cast<void>(json(record.text).dump());  // throws for what is no UTF-8
  Require(record.current >= 0 && record.current <= record.total);
  Require(record.percent >= 0.0 && record.percent <= 100.0);
}

void GuardRequest(const std::string& text) {
  static const RequestGuard guard(4711);
  Require(!guard.HasCookie(text));
  RequestOrigin origin;
  origin.method = "POST";
  origin.host = "127.0.0.1:4711";
  origin.origin = text;
  Require(guard.RefusalOfOrigin(origin).empty() == (text == "http://127.0.0.1:4711"));
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = project_lumen::fuzz::TextOf({data, size});
  project_lumen::fuzz::ReadQuery(text);
  project_lumen::fuzz::ReadName(text);
  project_lumen::fuzz::ReadBody(text);
  project_lumen::fuzz::ReadLine(text);
  project_lumen::fuzz::GuardRequest(text);
  return 0;
}
