// All addresses of the server.
#pragma once

#include <httplib.h>

#include <functional>
#include <string>
#include <vector>

#include "studio/Studio.h"
#include "studio/http/LoopbackServer.h"
#include "studio/http/RequestGuard.h"

namespace project_lumen::studio {

// Answers a request that the guard has let through; an exception becomes an answer with an error.
using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

struct Route {
  std::string method;   // "GET", "POST", "PUT" or "DELETE"
  std::string pattern;  // of the path, a regular expression
  Handler handler;
};

std::vector<Route> AllRoutes(Studio& studio);

// The one route whose body goes to the disk as it comes.
constexpr const char* kUploadPath = "/api/uploads";

// Gives the server its routes behind the guard, the headers of every answer, and the limits of
// every request.
void ServeStudio(LoopbackServer& server, Studio& studio, const RequestGuard& guard);

}  // namespace project_lumen::studio
