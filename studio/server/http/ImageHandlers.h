// Requests for images: opening, tiles, histograms, values.
#pragma once

#include <httplib.h>

#include "studio/Studio.h"

namespace project_lumen::studio {

nlohmann::json DescribeImages(Studio& studio);

void ListImages(Studio& studio, const httplib::Request& request, httplib::Response& response);
void OpenImage(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowImage(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ReloadImage(Studio& studio, const httplib::Request& request, httplib::Response& response);
void CloseImage(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowTile(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowPreviewTile(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowHistogram(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowValue(Studio& studio, const httplib::Request& request, httplib::Response& response);

}  // namespace project_lumen::studio
