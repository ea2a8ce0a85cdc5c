// Requests for folders, files and uploads.
#pragma once

#include <httplib.h>

#include "studio/Studio.h"

namespace project_lumen::studio {

nlohmann::json DescribeRoots(Studio& studio);

void ListRoots(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ListFolder(Studio& studio, const httplib::Request& request, httplib::Response& response);

// Streams the body to a file of its own. Nothing is left of one that does not come whole.
void TakeUpload(Studio& studio, const httplib::Request& request, httplib::Response& response,
                const httplib::ContentReader& body);

}  // namespace project_lumen::studio
