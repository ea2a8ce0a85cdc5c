// Requests for the state as a whole: start, events, program, settings.
#pragma once

#include <httplib.h>

#include "studio/Studio.h"

namespace project_lumen::studio {

void ShowState(Studio& studio, const httplib::Request& request, httplib::Response& response);
void StreamEvents(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowProgram(Studio& studio, const httplib::Request& request, httplib::Response& response);
void AskProgram(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowSettings(Studio& studio, const httplib::Request& request, httplib::Response& response);
void KeepSettings(Studio& studio, const httplib::Request& request, httplib::Response& response);

}  // namespace project_lumen::studio
