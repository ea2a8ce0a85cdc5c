#include "studio/http/Routes.h"

#include <chrono>
#include <iostream>
#include <limits>
#include <mutex>
#include <utility>

#include "common/JsonString.h"
#include "studio/http/Answers.h"
#include "studio/http/FileHandlers.h"
#include "studio/http/ImageHandlers.h"
#include "studio/http/JobHandlers.h"
#include "studio/http/StateHandlers.h"
#include "studio/page/PageFiles.h"

namespace project_lumen::studio {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kMostBodyBytes = std::uint64_t{1} << 20U;
constexpr const char* kEventsPath = "/api/events";

using StudioHandler = void (*)(Studio&, const httplib::Request&, httplib::Response&);

// --- Refusals ---

// Says on standard error who was refused, a few times a minute at most.
void LogRefusal(const httplib::Request& request, const std::string& reason) {
  constexpr int kMostPerMinute = 100;
  static std::mutex mutex;
  static std::chrono::steady_clock::time_point minute;
  static int count = 0;
  const std::lock_guard lock(mutex);
  const auto now = std::chrono::steady_clock::now();
  if (now - minute > std::chrono::minutes(1)) {
    minute = now;
    count = 0;
  }
  if (++count <= kMostPerMinute) {
    // The path without the query, which may hold the token.
    std::cerr << "403 " << EscapeForDisplay(request.method) << ' '
              << EscapeForDisplay(request.path.substr(0, 200)) << ": " << reason << std::endl;
  }
}

void Refuse(const httplib::Request& request, httplib::Response& response,
            const std::string& reason) {
  LogRefusal(request, reason);
  response.status = 403;
  response.set_content("Forbidden: " + reason + ".\n", "text/plain");
}

RequestOrigin OriginOf(const httplib::Request& request, std::vector<std::string>& texts) {
  texts = {request.get_header_value("Host"), request.get_header_value("Origin"),
           request.get_header_value("Sec-Fetch-Site"), request.get_header_value("Cookie")};
  RequestOrigin origin;
  origin.method = request.method;
  origin.host = texts[0];
  origin.origin = texts[1];
  origin.fetchSite = texts[2];
  origin.cookies = texts[3];
  origin.hosts = static_cast<int>(request.get_header_value_count("Host"));
  return origin;
}

// The first address: its token becomes the cookie. The page goes on by itself, as a redirection
// would count as one of the site that brought the browser here, which keeps such cookies back.
void Welcome(const RequestGuard& guard, httplib::Response& response) {
  response.status = 200;
  response.set_header("Set-Cookie", guard.CookieHeader());
  response.set_content(
      "<!DOCTYPE html><html lang=\"en\"><head><meta charset=\"utf-8\"><title>nebulex2 "
      "studio</title>"
      "<link rel=\"icon\" type=\"image/svg+xml\" href=\"/icons/icon.svg\">"
      "<meta http-equiv=\"refresh\" content=\"0;url=/\"></head>"
      "<body><a href=\"/\">Open the studio</a></body></html>",
      "text/html; charset=utf-8");
}

// What cannot be read as a body is refused before it is.
bool RefuseBody(const httplib::Request& request, httplib::Response& response) {
  if (request.has_header("Transfer-Encoding") ||
      (request.method != "GET" && request.method != "HEAD" && request.method != "DELETE" &&
       !request.has_header("Content-Length"))) {
    AnswerError(response, {411, "bad_request", "The length of the body has to be said before it."});
    return true;
  }
  const auto length =
      std::strtoull(request.get_header_value("Content-Length").c_str(), nullptr, 10);
  const bool isUpload = request.path == kUploadPath;
  const auto limit = isUpload ? static_cast<std::uint64_t>(kMostUploadBytes) : kMostBodyBytes;
  if (length > limit) {
    AnswerError(response, TooLarge(isUpload ? "The file is larger than what can be uploaded."
                                            : "The request is too long."));
    return true;
  }
  if ((request.method == "POST" || request.method == "PUT") && !isUpload &&
      request.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
    AnswerError(response, {415, "bad_request", "The body has to be application/json."});
    return true;
  }
  return false;
}

httplib::Server::HandlerResponse Guard(const RequestGuard& guard, const httplib::Request& request,
                                       httplib::Response& response) {
  constexpr auto kHandled = httplib::Server::HandlerResponse::Handled;
  std::vector<std::string> texts;
  RequestOrigin origin = OriginOf(request, texts);
  const bool isWelcome =
      request.method == "GET" && request.path == "/" && request.has_param("token");
  if (isWelcome) {
    origin.fetchSite = {};  // the link may stand anywhere
  }
  const std::string reason = guard.RefusalOfOrigin(origin);
  if (!reason.empty()) {
    Refuse(request, response, reason);
    return kHandled;
  }
  if (isWelcome && guard.IsToken(request.get_param_value("token"))) {
    Welcome(guard, response);
    return kHandled;
  }
  if (!guard.HasCookie(origin.cookies)) {
    Refuse(request, response, "no cookie of this studio; open the address that it has printed");
    return kHandled;
  }
  return RefuseBody(request, response) ? kHandled : httplib::Server::HandlerResponse::Unhandled;
}

// --- Limits ---

RequestAllowance AllowanceOf(const httplib::Request& request) {
  constexpr milliseconds kUsual{30000};
  constexpr milliseconds kLong = std::chrono::hours(24);
  RequestAllowance allowance{kUsual, kMostBodyBytes, kUsual * 2};
  if (request.path == kUploadPath) {
    allowance.bodyTime = std::chrono::hours(1);
    allowance.bodyBytes = static_cast<std::uint64_t>(kMostUploadBytes);
  } else if (request.path == kEventsPath) {
    allowance.answerTime = kLong;
  } else if (request.path.find("/files/") != std::string::npos) {
    allowance.answerTime = std::chrono::minutes(10);
  }
  return allowance;
}

// --- The page ---

void ShowPage(const httplib::Request& request, httplib::Response& response) {
  const auto file = FindPageFile(request.path);
  if (!file) {
    throw NotFound("There is nothing at this address.");
  }
  response.set_content(file->bytes, std::string(file->type));
}

httplib::Headers HeadersOfAll() {
  return {{"Content-Security-Policy",
           "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; "
           "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
          {"X-Content-Type-Options", "nosniff"},
          {"X-Frame-Options", "DENY"},
          {"Referrer-Policy", "no-referrer"},
          {"Cross-Origin-Opener-Policy", "same-origin"},
          {"Cross-Origin-Resource-Policy", "same-origin"},
          {"Cache-Control", "no-store"}};
}

void AddRoute(LoopbackServer& server, const Route& route) {
  const auto handle = [handler = route.handler](const httplib::Request& request,
                                                httplib::Response& response) {
    try {
      handler(request, response);
    } catch (...) {
      AnswerException(response, std::current_exception());
      if (response.status == 403) {
        LogRefusal(request, "outside of the opened folders");
      }
    }
  };
  if (route.method == "GET") {
    server.Get(route.pattern, handle);
  } else if (route.method == "POST") {
    server.Post(route.pattern, handle);
  } else if (route.method == "PUT") {
    server.Put(route.pattern, handle);
  } else {
    server.Delete(route.pattern, handle);
  }
}

}  // namespace

std::vector<Route> AllRoutes(Studio& studio) {
  const auto with = [&studio](StudioHandler handler) {
    return [&studio, handler](const httplib::Request& request, httplib::Response& response) {
      handler(studio, request, response);
    };
  };
  const std::string tile = "/tiles/([a-z]+)/([0-9]{1,2})/([0-9]{1,6})_([0-9]{1,6})[.]png";
  const std::string image = "/api/images/(i[0-9]{1,9})";
  const std::string job = "/api/jobs/(j[0-9]{1,9})";
  return {
      {"GET", "/api/state", with(ShowState)},
      {"GET", kEventsPath, with(StreamEvents)},
      {"GET", "/api/program", with(ShowProgram)},
      {"POST", "/api/program", with(AskProgram)},
      {"GET", "/api/settings", with(ShowSettings)},
      {"PUT", "/api/settings", with(KeepSettings)},
      {"GET", "/api/folders", with(ListRoots)},
      {"GET", "/api/folders/(d[0-9]{1,9})", with(ListFolder)},
      {"GET", "/api/images", with(ListImages)},
      {"POST", "/api/images", with(OpenImage)},
      {"GET", image, with(ShowImage)},
      {"DELETE", image, with(CloseImage)},
      {"POST", image + "/reload", with(ReloadImage)},
      {"GET", image + tile, with(ShowTile)},
      {"GET", image + "/preview" + tile, with(ShowPreviewTile)},
      {"GET", image + "/histogram", with(ShowHistogram)},
      {"GET", image + "/value", with(ShowValue)},
      {"POST", image + "/preview", with(StartPreview)},
      {"DELETE", image + "/preview", with(DropPreview)},
      {"POST", image + "/save", with(SaveBlend)},
      {"GET", "/api/jobs", with(ListJobs)},
      {"POST", "/api/jobs", with(StartRuns)},
      {"POST", "/api/jobs/clear", with(ClearJobs)},
      {"GET", job, with(ShowJob)},
      {"DELETE", job, with(RemoveJob)},
      {"POST", job + "/stop", with(StopJob)},
      {"GET", job + "/files/([a-z]+)", with(DownloadResult)},
      // Last, since a path is taken by the first pattern that it fits.
      {"GET", "/(?!api/).*", ShowPage},
  };
}

void ServeStudio(LoopbackServer& server, Studio& studio, const RequestGuard& guard) {
  server.set_default_headers(HeadersOfAll());
  server.SetAllowance(AllowanceOf);
  server.set_pre_routing_handler(
      [&guard](const httplib::Request& request, httplib::Response& response) {
        return Guard(guard, request, response);
      });
  server.set_error_handler([](const httplib::Request& /*request*/, httplib::Response& response) {
    if (response.body.empty()) {
      const int status = response.status;
      AnswerError(response, status == 404 ? NotFound("There is nothing at this address.")
                                          : ApiError(status, "bad_request",
                                                     "This is no request that is "
                                                     "understood here."));
    }
  });
  server.Post(kUploadPath, [&studio](const httplib::Request& request, httplib::Response& response,
                                     const httplib::ContentReader& body) {
    try {
      TakeUpload(studio, request, response, body);
    } catch (...) {
      AnswerException(response, std::current_exception());
    }
  });
  for (const Route& route : AllRoutes(studio)) {
    AddRoute(server, route);
  }
}

}  // namespace project_lumen::studio
