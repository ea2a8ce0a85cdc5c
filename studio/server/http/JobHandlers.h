// Requests for runs, previews and blends.
#pragma once

#include <httplib.h>

#include "studio/Studio.h"
#include "studio/runs/PreviewArea.h"

namespace project_lumen::studio {

nlohmann::json DescribeJobs(Studio& studio);

void ListJobs(Studio& studio, const httplib::Request& request, httplib::Response& response);
void StartRuns(Studio& studio, const httplib::Request& request, httplib::Response& response);
void StartPreview(Studio& studio, const httplib::Request& request, httplib::Response& response);
void DropPreview(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ShowJob(Studio& studio, const httplib::Request& request, httplib::Response& response);
void StopJob(Studio& studio, const httplib::Request& request, httplib::Response& response);
void RemoveJob(Studio& studio, const httplib::Request& request, httplib::Response& response);
void ClearJobs(Studio& studio, const httplib::Request& request, httplib::Response& response);
void DownloadResult(Studio& studio, const httplib::Request& request, httplib::Response& response);
void SaveBlend(Studio& studio, const httplib::Request& request, httplib::Response& response);

}  // namespace project_lumen::studio
